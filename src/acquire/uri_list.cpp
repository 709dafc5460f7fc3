#include "acquire/uri_list.h"

#include <filesystem>

#include "acquire/uri_list_internal.h"
#include "acquire/uri_rules.h"
#include "engine/doc_source.h"
#include "engine/file_saver.h"
#include "engine/task.h"
#include "platform/error.h"

namespace gw {

namespace {

UriListItemPtr MakeItem(const web::Uri& url, const std::string& source) {
  return std::make_shared<UriListItem>(url.ToString(), source, url.linkText());
}

// Adds under `key` unless the key is there; true when added.
bool AddTo(std::vector<std::pair<std::string, UriListItemPtr>>& items,
           std::unordered_map<std::string, std::size_t>& index, const std::string& key,
           const UriListItemPtr& item) {
  const auto [it, added] = index.emplace(key, items.size());
  if (added) items.emplace_back(key, item);
  return added;
}

}  // namespace

bool UriList::Exists(const web::Uri& url) const { return index_.contains(url.HashCode()); }

bool UriList::Add(const web::Uri& url, const std::string& SourceUrl, bool ForSaveToDB) {
  const std::string& key = url.HashCode();
  if (!ForSaveToDB) {
    // One look-up: the index takes the key first, and the item is made only for a new key.
    const auto [it, added] = index_.try_emplace(key, items_.size());
    if (!added) return false;
    try {
      items_.emplace_back(key, MakeItem(url, SourceUrl));
    } catch (...) {
      index_.erase(it);
      throw;
    }
    return true;
  }
  const auto item = MakeItem(url, SourceUrl);
  const bool added = AddTo(items_, index_, key, item);
  AddTo(unsaved_, unsaved_index_, key, item);
  return added;
}

std::string UriList::ToString(bool IncludeSrcUri, bool isEmail) const {
  return ReportAs("UriList.ToString(IncludeSrcUri,isEmail)", Args(IncludeSrcUri, isEmail), [&] {
    std::string out;
    for (const auto& [key, item] : items_) {
      if (isEmail) {
        out += web::Uri(item->url()).OpaquePart();
      } else {
        out += item->url();
      }
      if (IncludeSrcUri) out += ", " + web::Uri(item->SrcUrl()).ToString();
      out += "\r\n";
    }
    return out;
  });
}

std::vector<std::string> UriList::Keys() const {
  std::vector<std::string> out;
  out.reserve(items_.size());
  for (const auto& entry : items_) out.push_back(entry.first);
  return out;
}

std::vector<UriListItemPtr> UriList::Items() const {
  std::vector<UriListItemPtr> out;
  out.reserve(items_.size());
  for (const auto& entry : items_) out.push_back(entry.second);
  return out;
}

UriListItemPtr UriList::Item(const std::string& key) const {
  const auto it = index_.find(key);
  return it == index_.end() ? nullptr : items_[it->second].second;
}

UriListItemPtr UriList::ItemByIndex(long index) const {
  if (index < 1 || index > Count()) {
    throw Error(errnum::kSubscriptOutOfRange, "UriList.ItemByIndex", "Subscript out of range");
  }
  return items_[static_cast<std::size_t>(index - 1)].second;
}

std::shared_ptr<UriList> UriList::DivideByRuleset(const UriRuleset& Ruleset,
                                                  bool ReturnMatches) const {
  return ReportAs("UriList.DivideByRuleset(Ruleset,ReturnMatches)", Args(Ruleset, ReturnMatches),
                  [&] {
                    auto result = Create();
                    for (const auto& [key, item] : items_) {
                      web::Uri u(item->url());
                      u.SetLinkText(item->linkText());
                      if (Ruleset.IsMatch(u) == ReturnMatches) result->Add(u, item->SrcUrl(), true);
                    }
                    return result;
                  });
}

void UriList::MergeTo(const UriList& MergeFrom) {
  ReportAs("UriList.MergeTo(MergeFrom)", Args(MergeFrom), [&] {
    for (const auto& [key, item] : MergeFrom.items_) {
      // A new address without its text: merged links keep their source only.
      const web::Uri u(item->url());
      if (!Exists(u)) Add(u, item->SrcUrl(), true);
    }
  });
}

namespace acquire_internal {

void UriListInternal::SaveToDB(UriList& list, const std::shared_ptr<Task>& TaskInstance) {
  ReportAs("UriList.SaveToDB(TaskInstance)", Args(TaskInstance), [&] {
    if (!TaskInstance) {
      throw Error(errnum::kObjectNotSet, "UriList.SaveToDB",
                  "Object variable or With block variable not set");
    }
    DocSourcePtr source;
    if (TaskInstance->GetDocSources().Count() > 0) {
      source = TaskInstance->GetDocSources().Item(1);
    } else {
      source = DocSource::Create();
      source->SetTask(TaskInstance);
    }
    std::vector<std::string> addresses;
    addresses.reserve(list.unsaved_.size());
    for (const auto& entry : list.unsaved_) addresses.push_back(entry.second->url());
    source->BuildDocTableFromURIListObject(addresses);
    list.unsaved_.clear();
    list.unsaved_index_.clear();
  });
}

void UriListInternal::WriteToFile(const UriList& list, const std::string& Filepath,
                                  bool IncludeSrcUri, bool isEmail) {
  ReportAs("UriList.WriteToFile(Filepath,IncludeSrcUri,isEmail)",
           Args(Filepath, IncludeSrcUri, isEmail), [&] {
             // Through a file saver: the old file goes first (Overwrite), so the new one is UTF-16
             // with a byte-order mark and always holds the whole list.
             const std::filesystem::path path = std::filesystem::absolute(Filepath);
             auto saver = FileSaver::Create();
             saver->SetRootFolder(path.parent_path().string());
             saver->SetFileName(path.filename().string());
             saver->SaveText(list.ToString(IncludeSrcUri, isEmail), true, isEmail);
           });
}

}  // namespace acquire_internal

}  // namespace gw
