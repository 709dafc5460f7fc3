// UriList: a set of links keyed by their normal form (`Uri::HashCode`), each with the page it was
// found on and its text, in the order they were first seen.
//
// Two links that differ only in what `HashCode` ignores (a fragment, the letter case of the host
// or path, escaping) are one link, and the first sighting wins with its source and text. Beside
// all its items a list keeps those not yet stored as documents of a task ("unsaved"): `Add` with
// `ForSaveToDB`, `MergeTo` and `DivideByRuleset` mark what they add, and storing them as documents
// of a task clears them. Looking a link up costs the same however long the list is.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/collection.h"
#include "web/uri.h"

namespace gw {

class Task;
class UriRuleset;
namespace acquire_internal {
struct UriListInternal;
}

class UriListItem : public Object {
 public:
  // An item keeps the values of the sighting that added it.
  UriListItem(std::string url, std::string src_url, std::string link_text)
      : url_(std::move(url)), src_url_(std::move(src_url)), link_text_(std::move(link_text)) {}
  std::string TypeName() const override { return "UriListItem"; }

  // The address in `Uri::ToString` form.
  const std::string& url() const { return url_; }
  // The page it was found on.
  const std::string& SrcUrl() const { return src_url_; }
  const std::string& linkText() const { return link_text_; }

 private:
  std::string url_;
  std::string src_url_;
  std::string link_text_;
};

using UriListItemPtr = std::shared_ptr<UriListItem>;

class UriList : public Object {
 public:
  static std::shared_ptr<UriList> Create() { return std::make_shared<UriList>(); }
  std::string TypeName() const override { return "UriList"; }

  bool Exists(const web::Uri& url) const;
  // Adds `url` (its display form, `SourceUrl` and its `linkText`) unless a link with its
  // `HashCode` is there; with `ForSaveToDB` also to the unsaved links, unless it is there already.
  // True when the link was new to the list.
  bool Add(const web::Uri& url, const std::string& SourceUrl = {}, bool ForSaveToDB = false);
  // One line per link, each ending in CR LF: the address (with `isEmail`, the plain address: the
  // opaque part of a "mailto:" address), and with `IncludeSrcUri` ", " and the page it was found
  // on. Fails as `Uri::Parse` when a stored address or source does not parse.
  std::string ToString(bool IncludeSrcUri, bool isEmail = false) const;
  long Count() const { return static_cast<long>(items_.size()); }
  // The keys (`HashCode`s) and items, in order.
  std::vector<std::string> Keys() const;
  std::vector<UriListItemPtr> Items() const;
  // The item with that key; null when there is none.
  UriListItemPtr Item(const std::string& key) const;
  // 1-based; fails with 9 outside 1..Count.
  UriListItemPtr ItemByIndex(long index) const;
  // A new list of the links (with their sources and texts) that `Ruleset` matches
  // (`ReturnMatches`) or does not match; every one is marked unsaved there. This list is left as
  // it is.
  std::shared_ptr<UriList> DivideByRuleset(const UriRuleset& Ruleset,
                                           bool ReturnMatches = false) const;
  // Adds the links of `MergeFrom` that this list does not have, with their sources but not their
  // texts, marked unsaved (despite its name, it merges into this list).
  void MergeTo(const UriList& MergeFrom);

 private:
  // Storing the unsaved links, writing the list to a file and walking its entries in place are
  // for the crawler and the tests of this layer (acquire/uri_list_internal.h).
  friend struct acquire_internal::UriListInternal;
  std::vector<std::pair<std::string, UriListItemPtr>> items_;
  std::unordered_map<std::string, std::size_t> index_;  // key -> position in items_
  std::vector<std::pair<std::string, UriListItemPtr>> unsaved_;
  std::unordered_map<std::string, std::size_t> unsaved_index_;
};

using UriListPtr = std::shared_ptr<UriList>;

}  // namespace gw
