// Inside the acquisition layer: what the crawler and the tests of this layer do with a `UriList`
// beyond its public surface. Other layers use uri_list.h.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "acquire/uri_list.h"

namespace gw::acquire_internal {

struct UriListInternal {
  using Entries = std::vector<std::pair<std::string, UriListItemPtr>>;

  // Queues the unsaved links of `list` as documents of the running task (`DocSource`'s
  // `BuildDocTableFromURIListObject`, all in one transaction on the rules store), then forgets
  // them. The task's first document source does it, or one made for the purpose when the task
  // has none.
  static void SaveToDB(UriList& list, const std::shared_ptr<Task>& TaskInstance);
  // Writes `list.ToString(IncludeSrcUri, isEmail)` to `Filepath` through a `FileSaver` (its
  // folder as the root, its name as the file name template), deleting an older file first, so
  // that it always holds the whole list, as UTF-16 with a byte-order mark; the folder is made
  // when missing. Reports under "UriList.WriteToFile(Filepath,IncludeSrcUri,isEmail)".
  static void WriteToFile(const UriList& list, const std::string& Filepath, bool IncludeSrcUri,
                          bool isEmail);
  // Every item, and the unsaved ones, each as (key, item) in order.
  static const Entries& RawDictionary(const UriList& list) { return list.items_; }
  static const Entries& RawUnsavedDictionary(const UriList& list) { return list.unsaved_; }
};

}  // namespace gw::acquire_internal
