// Ordered containers of the library: the 1-based `Collection` and the keyed `Dictionary`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "platform/error.h"
#include "platform/text.h"
#include "platform/variant.h"

namespace gw {

// A position (1-based) or a key: the `vntIndexKey` argument of every collection.
class IndexKey {
 public:
  IndexKey(int index) : index_(index), is_key_(false) {}
  IndexKey(long index) : index_(index), is_key_(false) {}
  IndexKey(const char* key) : key_(key), is_key_(true) {}
  IndexKey(std::string_view key) : key_(key), is_key_(true) {}
  IndexKey(const std::string& key) : key_(key), is_key_(true) {}
  // A Variant holding a number is a position; anything else is read as a key.
  static IndexKey FromVariant(const Variant& v);

  bool IsKey() const noexcept { return is_key_; }
  long Index() const noexcept { return index_; }
  const std::string& Key() const noexcept { return key_; }

 private:
  long index_ = 0;
  std::string key_;
  bool is_key_;
};

inline IndexKey IndexKey::FromVariant(const Variant& v) {
  switch (v.Type()) {
    case VarType::Integer:
    case VarType::Long:
    case VarType::LongLong:
    case VarType::Single:
    case VarType::Double:
      return IndexKey(static_cast<long>(v.ToLong()));
    default:
      return IndexKey(v.ToText());
  }
}

namespace detail {
// Key hashing and equality for maps keyed by text that ignores case. Transparent, so a lookup by
// a string_view neither folds nor copies the key. The hash functors are deliberately not
// noexcept: the standard library then keeps each node's hash instead of hashing its key again
// whenever it walks a bucket or erases.
struct NoCaseHash {
  using is_transparent = void;
  std::size_t operator()(std::string_view s) const { return text::HashNoCase(s); }
};
struct NoCaseEqual {
  using is_transparent = void;
  bool operator()(std::string_view a, std::string_view b) const noexcept {
    return text::EqualsNoCase(a, b);
  }
};
// The same for a map whose comparison is chosen at run time (binary or text).
struct ModeHash {
  using is_transparent = void;
  bool no_case = false;
  std::size_t operator()(std::string_view s) const {
    return no_case ? text::HashNoCase(s) : std::hash<std::string_view>{}(s);
  }
};
struct ModeEqual {
  using is_transparent = void;
  bool no_case = false;
  bool operator()(std::string_view a, std::string_view b) const noexcept {
    return no_case ? text::EqualsNoCase(a, b) : a == b;
  }
};

[[noreturn]] void ThrowSubscriptOutOfRange(std::string_view source);
[[noreturn]] void ThrowInvalidKey(std::string_view source);
[[noreturn]] void ThrowDuplicateKey(std::string_view source);
}  // namespace detail

// A 1-based ordered collection with optional unique keys. Keys ignore case, as the runtime's
// collections do. Adding a key that is present fails with 457; asking for a position outside
// 1..Count fails with 9 and for an unknown key with 5 (`Item`, `Remove`). `Find` and `TryRemove`
// are the non-failing forms for callers whose documented behaviour is "null when absent".
template <typename T>
class Collection {
  struct Entry {
    T value;
    std::string key;
  };

 public:
  using value_type = T;

  long Count() const noexcept { return static_cast<long>(items_.size()); }
  bool Empty() const noexcept { return items_.empty(); }

  // Appends `item`; a non-empty `key` must be new.
  T& Add(T item, std::string_view key = {}) { return Insert(items_.size(), std::move(item), key); }
  // Inserts before / after the item at `where` (a position or a key).
  T& AddBefore(T item, std::string_view key, const IndexKey& where) {
    return Insert(Resolve(where), std::move(item), key);
  }
  T& AddAfter(T item, std::string_view key, const IndexKey& where) {
    return Insert(Resolve(where) + 1, std::move(item), key);
  }

  T& Item(const IndexKey& ik) { return items_[Resolve(ik)].value; }
  const T& Item(const IndexKey& ik) const { return items_[Resolve(ik)].value; }
  T& operator()(const IndexKey& ik) { return Item(ik); }

  // The item, or nullptr when the position or key is unknown.
  T* Find(const IndexKey& ik) noexcept {
    const std::size_t pos = TryResolve(ik);
    return pos == npos ? nullptr : &items_[pos].value;
  }
  const T* Find(const IndexKey& ik) const noexcept {
    const std::size_t pos = TryResolve(ik);
    return pos == npos ? nullptr : &items_[pos].value;
  }
  bool Exists(std::string_view key) const { return keys_.find(key) != keys_.end(); }
  // 1-based position of a key, 0 if absent.
  long PositionOf(std::string_view key) const {
    const auto it = keys_.find(key);
    return it == keys_.end() ? 0 : static_cast<long>(it->second + 1);
  }
  const std::string& KeyAt(long index) const { return items_[Resolve(IndexKey(index))].key; }

  void Remove(const IndexKey& ik) { Erase(Resolve(ik)); }
  bool TryRemove(const IndexKey& ik) {
    const std::size_t pos = TryResolve(ik);
    if (pos == npos) return false;
    Erase(pos);
    return true;
  }
  void Clear() noexcept {
    items_.clear();
    keys_.clear();
  }

  // Iteration over the items, in order; `Const` gives the read-only one.
  template <bool Const>
  class Iterator {
    using Base = std::conditional_t<Const, typename std::vector<Entry>::const_iterator,
                                    typename std::vector<Entry>::iterator>;
    using Ref = std::conditional_t<Const, const T&, T&>;

   public:
    using difference_type = std::ptrdiff_t;
    using value_type = T;
    Iterator() = default;
    explicit Iterator(Base it) : it_(it) {}
    Ref operator*() const { return it_->value; }
    std::remove_reference_t<Ref>* operator->() const { return &it_->value; }
    Iterator& operator++() {
      ++it_;
      return *this;
    }
    Iterator operator++(int) {
      auto copy = *this;
      ++it_;
      return copy;
    }
    bool operator==(const Iterator& o) const { return it_ == o.it_; }

   private:
    Base it_;
  };
  using iterator = Iterator<false>;
  using const_iterator = Iterator<true>;
  iterator begin() { return iterator(items_.begin()); }
  iterator end() { return iterator(items_.end()); }
  const_iterator begin() const { return const_iterator(items_.begin()); }
  const_iterator end() const { return const_iterator(items_.end()); }

 private:
  static constexpr std::size_t npos = static_cast<std::size_t>(-1);

  std::size_t TryResolve(const IndexKey& ik) const noexcept {
    if (ik.IsKey()) {
      const auto it = keys_.find(std::string_view(ik.Key()));
      return it == keys_.end() ? npos : it->second;
    }
    if (ik.Index() < 1 || ik.Index() > Count()) return npos;
    return static_cast<std::size_t>(ik.Index() - 1);
  }
  std::size_t Resolve(const IndexKey& ik) const {
    const std::size_t pos = TryResolve(ik);
    if (pos == npos) {
      if (ik.IsKey()) detail::ThrowInvalidKey("Collection");
      detail::ThrowSubscriptOutOfRange("Collection");
    }
    return pos;
  }
  T& Insert(std::size_t pos, T item, std::string_view key) {
    if (!key.empty() && keys_.find(key) != keys_.end()) detail::ThrowDuplicateKey("Collection");
    const bool at_end = pos == items_.size();
    items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(pos),
                  Entry{std::move(item), std::string(key)});
    if (!at_end) Reindex(pos + 1);
    if (!key.empty()) keys_.emplace(std::string(key), pos);
    return items_[pos].value;
  }
  void Erase(std::size_t pos) {
    if (!items_[pos].key.empty()) keys_.erase(keys_.find(std::string_view(items_[pos].key)));
    items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(pos));
    Reindex(pos);
  }
  // Positions at or after `from` moved: renumber their keys.
  void Reindex(std::size_t from) {
    for (std::size_t k = from; k < items_.size(); ++k) {
      if (!items_[k].key.empty()) keys_.find(std::string_view(items_[k].key))->second = k;
    }
  }

  std::vector<Entry> items_;
  std::unordered_map<std::string, std::size_t, detail::NoCaseHash, detail::NoCaseEqual> keys_;
};

// The base of a class that is a collection of its own kind of object (a dataset's fields, a
// package's tasks...): it keeps the items in `items_` and offers what every such class offers
// unchanged: `Item` (which fails with 9 for an unknown position and 5 for an unknown key),
// `Count`, `Remove` and enumeration. The class adds its own `Add`, which sets what an item must
// know of its owner.
template <typename T>
class CollectionOf {
 public:
  T Item(const IndexKey& vntIndexKey) const { return items_.Item(vntIndexKey); }
  long Count() const { return items_.Count(); }
  void Remove(const IndexKey& vntIndexKey) { items_.Remove(vntIndexKey); }
  auto begin() const { return items_.begin(); }
  auto end() const { return items_.end(); }

 protected:
  Collection<T> items_;
};

enum class CompareMode { Binary = 0, Text = 1 };

// An insertion-ordered keyed map with binary or text (case-insensitive) key comparison: the
// runtime's Dictionary. `Item` on an unknown key adds it with an Empty value, as the runtime does;
// `Find` does not.
template <typename V = Variant>
class Dictionary {
 public:
  Dictionary() = default;
  explicit Dictionary(CompareMode mode) : mode_(mode), index_(MakeIndex(mode)) {}
  Dictionary(const Dictionary& other) : mode_(other.mode_), index_(MakeIndex(other.mode_)) {
    for (const auto& [k, v] : other.entries_) Add(k, v);
  }
  Dictionary& operator=(const Dictionary& other) {
    if (this != &other) {
      RemoveAll();
      mode_ = other.mode_;
      index_ = MakeIndex(mode_);
      for (const auto& [k, v] : other.entries_) Add(k, v);
    }
    return *this;
  }
  Dictionary(Dictionary&&) noexcept = default;
  Dictionary& operator=(Dictionary&&) noexcept = default;

  CompareMode GetCompareMode() const noexcept { return mode_; }
  // Only while empty (error 5 otherwise), as the runtime allows.
  void SetCompareMode(CompareMode mode) {
    if (!entries_.empty()) detail::ThrowInvalidKey("Dictionary");
    mode_ = mode;
    index_ = MakeIndex(mode);
  }

  long Count() const noexcept { return static_cast<long>(entries_.size()); }
  bool Exists(std::string_view key) const { return Locate(key) != entries_.end(); }

  void Add(std::string_view key, V value) {
    if (Locate(key) != entries_.end()) detail::ThrowDuplicateKey("Dictionary");
    entries_.emplace_back(std::string(key), std::move(value));
    if (!index_.empty()) {
      index_.emplace(std::string(key), std::prev(entries_.end()));
    } else if (entries_.size() > kLinear) {
      for (auto it = entries_.begin(); it != entries_.end(); ++it) index_.emplace(it->first, it);
    }
  }
  // Adds or replaces.
  void Set(std::string_view key, V value) {
    if (V* v = Find(key)) {
      *v = std::move(value);
    } else {
      Add(key, std::move(value));
    }
  }
  V& Item(std::string_view key) {
    if (V* v = Find(key)) return *v;
    Add(key, V{});
    return entries_.back().second;
  }
  V& operator[](std::string_view key) { return Item(key); }
  V* Find(std::string_view key) {
    const auto it = Locate(key);
    return it == entries_.end() ? nullptr : &it->second;
  }
  const V* Find(std::string_view key) const {
    const auto it = Locate(key);
    return it == entries_.end() ? nullptr : &it->second;
  }
  // The key as it was added (its letter case kept), for a key that compares equal.
  const std::string* StoredKey(std::string_view key) const {
    const auto it = Locate(key);
    return it == entries_.end() ? nullptr : &it->first;
  }
  // Error 32811 for an unknown key.
  void Remove(std::string_view key) {
    if (!TryRemove(key)) {
      throw Error(errnum::kElementNotFound, "Dictionary", "Element not found");
    }
  }
  bool TryRemove(std::string_view key) {
    if (index_.empty()) {
      const auto it = Locate(key);
      if (it == entries_.end()) return false;
      entries_.erase(it);
      return true;
    }
    const auto it = index_.find(key);
    if (it == index_.end()) return false;
    entries_.erase(it->second);
    index_.erase(it);
    return true;
  }
  void RemoveAll() noexcept {
    entries_.clear();
    index_.clear();
  }
  std::vector<std::string> Keys() const {
    std::vector<std::string> keys;
    keys.reserve(entries_.size());
    for (const auto& e : entries_) keys.push_back(e.first);
    return keys;
  }
  std::vector<V> Items() const {
    std::vector<V> items;
    items.reserve(entries_.size());
    for (const auto& e : entries_) items.push_back(e.second);
    return items;
  }

  // Iteration over (key, value) pairs in insertion order.
  auto begin() { return entries_.begin(); }
  auto end() { return entries_.end(); }
  auto begin() const { return entries_.begin(); }
  auto end() const { return entries_.end(); }

 private:
  using List = std::list<std::pair<std::string, V>>;
  using Index =
      std::unordered_map<std::string, typename List::iterator, detail::ModeHash, detail::ModeEqual>;
  static Index MakeIndex(CompareMode mode) {
    const bool no_case = mode == CompareMode::Text;
    return Index(0, detail::ModeHash{no_case}, detail::ModeEqual{no_case});
  }
  // Up to this many entries a key is found by walking the list (no index to allocate and fill:
  // most dictionaries are small, such as the headers of a response); from the next entry on an
  // index finds it, until the dictionary is emptied.
  static constexpr std::size_t kLinear = 8;
  typename List::const_iterator Locate(std::string_view key) const {
    if (!index_.empty()) {
      const auto it = index_.find(key);
      return it == index_.end() ? entries_.end() : typename List::const_iterator(it->second);
    }
    const detail::ModeEqual equal{mode_ == CompareMode::Text};
    for (auto it = entries_.begin(); it != entries_.end(); ++it) {
      if (equal(it->first, key)) return it;
    }
    return entries_.end();
  }
  typename List::iterator Locate(std::string_view key) {
    const auto it = std::as_const(*this).Locate(key);
    return entries_.erase(it, it);  // the same position, writable
  }

  CompareMode mode_ = CompareMode::Binary;
  List entries_;
  Index index_ = MakeIndex(CompareMode::Binary);
};

}  // namespace gw
