#include "engine/doc_source.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/job.h"
#include "engine/task.h"
#include "infra/c_crypto.h"
#include "infra/c_guid_gen.h"
#include "platform/db/connection.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "rules/c_disconn_rs.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/rules_transaction.h"
#include "rules/stored_row.h"

namespace gw {

namespace fs = std::filesystem;

namespace {

// The empty list of a path source.
db::RecordsetPtr NewUriList() {
  auto list = db::Recordset::Create();
  list->AppendField("URI", db::DataType::VarChar, 6000);
  list->OpenFabricated();
  return list;
}

void AddUri(db::Recordset& list, const std::string& uri) {
  list.AddNew();
  list["URI"].SetValue(Variant(uri));
  list.Update();
}

bool IsPermissionDenied(const std::error_code& ec) {
  return ec == std::errc::permission_denied || ec == std::errc::operation_not_permitted;
}

// A failure of the walk other than a refused permission.
[[noreturn]] void ThrowWalkFailure(const fs::path& path, const std::error_code& ec) {
  const ErrorNumber number =
      ec == std::errc::no_such_file_or_directory ? errnum::kPathNotFound : ErrorNumber{75};
  Error e(number, "DocSource.GetURIListFromFilePath",
          "Could not read the folder " + path.string() + ": " + ec.message() + ".");
  e.SetSystemError(ec.value());
  throw e;
}

// What a folder holds: its files' names and its subfolders, each sorted by name. The names sit
// one after another in one text, so a folder of many thousand files costs little more than the
// bytes of their names while its documents are queued.
struct FolderListing {
  std::string names;
  std::vector<std::pair<std::size_t, std::size_t>> files;  // where each name starts, its length
  std::vector<fs::path> subfolders;

  std::string_view Name(const std::pair<std::size_t, std::size_t>& file) const {
    return std::string_view(names).substr(file.first, file.second);
  }
};

// Lists `folder`; false when it may not be listed. Every entry that is not a folder counts as a
// file, also one that cannot be read (a file the user may not read, a link that leads nowhere or
// into a loop, a named pipe, a device): it becomes a document whose copy records why it was not
// read, rather than vanishing.
bool ListFolder(const fs::path& folder, FolderListing& listing) {
  std::error_code ec;
  fs::directory_iterator it(folder, ec);
  if (ec) {
    if (IsPermissionDenied(ec)) return false;
    ThrowWalkFailure(folder, ec);
  }
  for (; it != fs::directory_iterator(); it.increment(ec)) {
    if (ec) break;
    // The entry's kind as the listing gives it; only a link or an unknown kind is looked up.
    std::error_code entry_ec;
    const bool is_folder = it->is_directory(entry_ec);
    if (!entry_ec && is_folder) {
      listing.subfolders.push_back(it->path());
    } else {
      const fs::path name = it->path().filename();
      listing.files.emplace_back(listing.names.size(), name.native().size());
      listing.names.append(name.native());
    }
  }
  if (ec && !IsPermissionDenied(ec)) ThrowWalkFailure(folder, ec);
  // Names of one folder sort as their paths do.
  std::sort(listing.files.begin(), listing.files.end(),
            [&](const auto& a, const auto& b) { return listing.Name(a) < listing.Name(b); });
  std::sort(listing.subfolders.begin(), listing.subfolders.end());
  return true;
}

std::string FullPath(const fs::path& path) {
  std::error_code ec;
  fs::path full = fs::absolute(path, ec);
  if (ec) full = path;
  return full.lexically_normal().string();
}

}  // namespace

db::RecordsetPtr DocSource::UriList() {
  return ReportAs("DocSource.UriList", [&] {
    return source_type_ == SrcType::sql ? GetURIListFromSQL()
                                        : GetURIListFromFilePath(kPathNotSpecified);
  });
}

bool DocSource::ForEachUri(const std::function<void(const Variant&)>& each) {
  return ReportAs("DocSource.UriList", [&] {
    if (source_type_ == SrcType::sql) {
      return ReportAs("DocSource.GetURIListFromSQL", [&] {
        return CDisconnRS(SqlSourceConnection()).ForEachRow(source_, [&](const db::Row& row) {
          each(row.front());
        });
      });
    }
    WalkFilePath(kPathNotSpecified, [&](const std::string& uri) { each(Variant(uri)); });
    return true;
  });
}

db::RecordsetPtr DocSource::GetURIListFromFilePath(const std::string& prmPathOverride) {
  auto list = NewUriList();
  WalkFilePath(prmPathOverride, [&](const std::string& uri) { AddUri(*list, uri); });
  return list;
}

void DocSource::WalkFilePath(const std::string& prmPathOverride,
                             const std::function<void(const std::string&)>& each) {
  ReportAs("DocSource.GetURIListFromFilePath(prmPathOverride)", Args(prmPathOverride), [&] {
    const std::string path = prmPathOverride == kPathNotSpecified ? source_ : prmPathOverride;
    std::error_code ec;
    const fs::file_status st = path.empty() ? fs::file_status() : fs::status(path, ec);
    if (fs::is_directory(st)) {
      std::vector<fs::path> subfolders;
      {
        FolderListing listing;
        // A folder that may not be listed is taken as empty.
        ListFolder(path, listing);
        // A name is a single part of a path (never "." or ".."): the folder's full path and the
        // name make the file's.
        const fs::path full_folder = FullPath(path);
        for (const auto& file : listing.files) each((full_folder / listing.Name(file)).native());
        subfolders = std::move(listing.subfolders);
      }
      if (include_sub_folders_) {
        for (const auto& folder : subfolders) {
          // A subfolder that may not be listed is recorded as a document that says so.
          if (::faccessat(AT_FDCWD, folder.c_str(), R_OK | X_OK, AT_EACCESS) != 0) {
            each(FullPath(folder));
            continue;
          }
          // The subfolder's own list, after this folder's files.
          WalkFilePath(folder.string(), each);
        }
      }
    } else if (fs::exists(st) || fs::is_symlink(fs::symlink_status(path, ec))) {
      // A file, also one that cannot be read: its document says why.
      each(FullPath(path));
    } else {
      // Neither a folder nor a file: an address, fetched as it stands.
      each(path);
    }
  });
}

std::string DocSource::SqlSourceConnection() {
  if (conn_str_.empty()) {
    throw Error(engineerr::kNoConnectionString, "DocSource.GetURIListFromSQL",
                "Connection String empty.  Please enter a valid connection string.");
  }
  auto cn = db::Connection::Create();
  cn->SetConnectionString(conn_str_);
  if (!db_name_.empty()) cn->SetProperty("Initial Catalog", db_name_);
  cn->Open();
  const std::string cn_str = cn->ConnectionString();
  cn->Close();
  if (source_.empty()) {
    throw Error(engineerr::kNoStatement, "DocSource.GetURIListFromSQL",
                "No SQL statement was specified.  Please specify as valid SQL Select "
                "Statement.");
  }
  return cn_str;
}

db::RecordsetPtr DocSource::GetURIListFromSQL() {
  return ReportAs("DocSource.GetURIListFromSQL",
                  [&] { return CDisconnRS(SqlSourceConnection()).RunQuery(source_, true); });
}

namespace {

// Queues addresses as documents of the running task ("Queued", each with a new id), all in one
// transaction of the rules store (inside a caller's, part of that one), whatever their number.
// `list(queue)` hands each address to `queue`, which yields to the host first and passes over an
// empty address.
template <typename List>
void QueueDocuments(Task& task, List&& list) {
  auto job = task.GetJob();
  const DateTime job_start = job->StartTime();
  const std::string job_id = job->JobId();
  const std::string task_id = task.TaskId();
  const std::string cn_str = modConnectionString::GetCnStr();
  std::optional<RulesTransaction> transaction;
  if (!RulesTransaction::ActiveConnection(cn_str)) transaction.emplace(cn_str);
  D_Doc docs;
  list([&](const std::string& uri) {
    DoEvents();
    if (uri.empty()) return;
    docs.SaveDocument(CGUIDGen::NewGUID(), task_id, job_id, job_start, uri, "", "Queued");
  });
  if (transaction) transaction->Commit();
}

}  // namespace

void DocSource::BuildDocTableFromURIList() {
  ReportAs("DocSource.BuildDocTableFromURIList", [&] {
    auto task = task_.lock();
    if (!task) ThrowObjectNotSet("DocSource.BuildDocTableFromURIList");
    // The addresses are queued as they are read: none of them is kept.
    QueueDocuments(*task, [&](const auto& queue) {
      const bool listed = ForEachUri([&](const Variant& uri) {
        queue(uri.IsNull() || uri.IsEmpty() ? std::string() : uri.ToText());
      });
      // A statement that yields no rows gives a closed list, which cannot be read: nothing is
      // queued.
      if (!listed) db::Recordset::Create()->RecordCount();
    });
  });
}

void DocSource::BuildDocTableFromURIListObject(const std::vector<std::string>& UriListObj) {
  ReportAs("DocSource.BuildDocTableFromURIListObject(UriListObj)", Args(UriListObj), [&] {
    auto task = task_.lock();
    if (!task) ThrowObjectNotSet("DocSource.BuildDocTableFromURIListObject");
    QueueDocuments(*task, [&](const auto& queue) {
      for (const std::string& uri : UriListObj) queue(uri);
    });
  });
}

std::shared_ptr<DocSource> DocSource::Create() {
  std::shared_ptr<DocSource> s(new DocSource());
  s->doc_src_id_ = CGUIDGen::NewGUID();
  return s;
}

void DocSource::SetTask(const std::shared_ptr<Task>& task) {
  task_ = task;
  if (task) task_id_ = task->TaskId();
}

void DocSource::Save() {
  ReportAs("DocSource.Save", [&] {
    const std::string stored = CCrypto().EncryptOrKeep(conn_str_);
    if (doc_src_id_.empty()) doc_src_id_ = CGUIDGen::NewGUID();
    auto task = task_.lock();
    if (!task) ThrowObjectNotSet("DocSource.Save");
    task_id_ = task->TaskId();
    DDocSource().Save(doc_src_id_, db_name_, stored, task_id_, source_,
                      static_cast<int>(source_type_));
  });
}

void DocSource::Load(const std::string& DocSrcId) {
  ReportAs("DocSource.Load(DocSrcId)", Args(DocSrcId), [&] {
    auto rs = DDocSource().Selectx(DocSrcId, true);
    const StoredRow row(
        *rs, MissingRow(engineerr::kNoSuchDocSource, "DocSource.Load", "Document Source"),
        DuplicateRow(engineerr::kDuplicateDocSource, "DocSource.Load", "Document Source"));
    row.Take("doc_location_id", [&](const Variant& v) { doc_src_id_ = v.ToString(); });
    row.Take("task_id", [&](const Variant& v) { task_id_ = v.ToString(); });
    row.Take("source_type",
             [&](const Variant& v) { source_type_ = static_cast<SrcType>(v.ToLong()); });
    row.Take("source", [&](const Variant& v) { source_ = v.ToString(); });
    // One written before strings were enciphered stays as stored.
    row.Take("conn_str",
             [&](const Variant& v) { conn_str_ = CCrypto().DecryptOrKeep(v.ToString()); });
    row.Take("db_name", [&](const Variant& v) { db_name_ = v.ToString(); });
    include_sub_folders_ = false;
  });
}

void DocSources::DBClearAll() {
  ReportAs("DocSources.DBClearAll", [&] {
    auto task = task_.lock();
    if (!task) ThrowObjectNotSet("DocSources.DBClearAll");
    DDocSource().DeleteAll(task->TaskId());
  });
}

void DocSources::CreateDocList(const std::string&, const std::string&, const DateTime&) {
  ReportAs("DocSources.CreateDocList(JobId,TaskId,JobStartTime)", [&] {
    for (const auto& source : items_) {
      DoEvents();
      source->BuildDocTableFromURIList();
    }
  });
}

void DocSources::MemoryClearAll() {
  while (items_.Count() > 0) {
    DoEvents();
    items_.Remove(1);
  }
}

void DocSources::SaveAll() {
  ReportAs("DocSources.SaveAll", [&] {
    for (const auto& source : items_) {
      DoEvents();
      source->Save();
    }
  });
}

DocSourcePtr DocSources::Add(DocSourcePtr DocSrc, std::string_view sKey) {
  return ReportAs("DocSources.Add(DocSrc,sKey)", Args(DocSrc, sKey), [&] {
    DocSrc->SetTask(task_.lock());
    return items_.Add(std::move(DocSrc), sKey);
  });
}

}  // namespace gw
