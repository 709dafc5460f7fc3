// The link from a field to its dataset, or from a dataset to its datapage.
#pragma once

#include <memory>
#include <string>

namespace gw {

// The owner is held weakly when one was set (the owner keeps this object, not the other way
// round), or strongly when this object had to load or make an owner of its own.
template <typename Owner>
class OwnerLink {
 public:
  // The owner, if one is set or was made, without making one.
  std::shared_ptr<Owner> IfSet() const {
    if (auto owner = set_.lock()) return owner;
    return own_;
  }
  // The owner; without one, the owner stored under `owner_id` is loaded, or, when the id is
  // empty, a new owner is made and `owner_id` takes its id. This object keeps what it loaded or
  // made.
  std::shared_ptr<Owner> Get(std::string& owner_id) {
    if (auto owner = IfSet()) return owner;
    auto owner = Owner::Create();
    if (!owner_id.empty()) {
      owner->Load(owner_id);
    } else {
      owner_id = owner->Id();
    }
    own_ = owner;
    return owner;
  }
  void Set(const std::shared_ptr<Owner>& owner) {
    set_ = owner;
    own_.reset();
  }

 private:
  std::weak_ptr<Owner> set_;
  std::shared_ptr<Owner> own_;
};

}  // namespace gw
