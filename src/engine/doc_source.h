// DocSource: where a task's documents come from (a path, a list, a query), and DocSources, the
// sources of one task. At the start of a run every source is expanded into "Queued" rows of
// `task_instance_docs`, one per document.
//
// A goto, an SQL statement and a command-line task keep what they need in the same fields
// (`Source` holds a step number, a statement or a command line).
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "engine/failures.h"
#include "platform/collection.h"
#include "platform/date_time.h"
#include "platform/db/recordset.h"
#include "platform/variant.h"

namespace gw {

class Task;

// `SrcType`.
enum class SrcType : int { path = 0, sql = 1 };

class DocSource : public Object {
 public:
  // A new source with a fresh `DocSrcId`.
  static std::shared_ptr<DocSource> Create();
  std::string TypeName() const override { return "DocSource"; }

  // Does nothing: a source's row goes only with all the task's sources (`DocSources::DBClearAll`).
  void Delete() {}
  // Writes the row with the owning task's id; `ConnStr` is stored enciphered (in clear when it
  // cannot be enciphered). An empty `DocSrcId` gets a new id first. Without an owning task, fails
  // with 91.
  void Save();
  // Reads the row: failure 0xAAB19D7B when there is none, 0xAAB19D7C when there are several.
  // Each column is taken only when not null; a connection string that does not decipher (or
  // deciphers to nothing) is taken as stored.
  void Load(const std::string& DocSrcId);
  // Has an empty body and returns "".
  std::string ParseSource() { return {}; }
  // The addresses of this source, read anew at every call: a recordset with the address in its
  // first column. A `path` source gives `GetURIListFromFilePath(kPathNotSpecified)`, an `sql`
  // source `GetURIListFromSQL()`.
  db::RecordsetPtr UriList();
  // The same addresses handed to `each` one at a time, in the same order (the first column's
  // value of each row, null and empty ones included), with the same failures: a query's rows as
  // the store reads them, a folder's files folder by folder, none of them kept. False when the
  // statement of an `sql` source yields no rows (it has run then; `UriList` gives a closed
  // recordset for it).
  bool ForEachUri(const std::function<void(const Variant&)>& each);

  // Not stored: after `Load` it is always false.
  bool IncludeSubFolders() const { return include_sub_folders_; }
  void SetIncludeSubFolders(bool v) { include_sub_folders_ = v; }
  // The owning task, or null.
  std::shared_ptr<Task> GetTask() const { return task_.lock(); }
  // The task id of the stored row (the owner's id once it is set).
  const std::string& TaskId() const { return task_id_; }
  const std::string& Source() const { return source_; }
  void SetSource(std::string v) { source_ = std::move(v); }
  const std::string& DBName() const { return db_name_; }
  void SetDBName(std::string v) { db_name_ = std::move(v); }
  // In clear.
  const std::string& ConnStr() const { return conn_str_; }
  void SetConnStr(std::string v) { conn_str_ = std::move(v); }
  SrcType SourceType() const { return source_type_; }
  void SetSourceType(SrcType v) { source_type_ = v; }
  const std::string& DocSrcId() const { return doc_src_id_; }
  void SetDocSrcId(std::string v) { doc_src_id_ = std::move(v); }

  // The back reference, which `DocSources::Add` sets.
  void SetTask(const std::shared_ptr<Task>& task);

  // The same for the addresses of a link list (the unsaved links of a `UriList`, which the
  // acquisition layer hands over as their addresses): one "Queued" row per non-empty address, in
  // order, yielding before each. All rows are written in one transaction on the rules store (the
  // caller's, when one is active), whatever their number.
  void BuildDocTableFromURIListObject(const std::vector<std::string>& UriListObj);

 private:
  friend class DocSources;
  friend class Task;
  // The marker that stands for `Source` as the path to read.
  static constexpr const char* kPathNotSpecified = ":::Not_Specified:::";
  // The list of a path (`prmPathOverride`, or `Source` for the marker), one field "URI"
  // (VarChar, 6000): a path that is neither a folder nor a file is an address and is listed as it
  // stands; a file is listed by its full path; a folder by the full paths of its files (sorted by
  // name), files that cannot be read for want of permission left out, and with `IncludeSubFolders`
  // its subfolders after its files, each walked the same way. Other failures of the walk unwind.
  db::RecordsetPtr GetURIListFromFilePath(const std::string& prmPathOverride);
  // That list's addresses handed to `each` as the walk finds them.
  void WalkFilePath(const std::string& prmPathOverride,
                    const std::function<void(const std::string&)>& each);
  // The rows of the query `Source` on `ConnStr` (with `DBName` as the default database when set).
  // Fails with 0xA5915D8F without a connection string and 0xA5915D98 without a statement.
  db::RecordsetPtr GetURIListFromSQL();
  // The connection string the query of an `sql` source runs on, with `DBName` as its default
  // database; the checks and failures of `GetURIListFromSQL`.
  std::string SqlSourceConnection();
  // Queues this source's documents for the running task: one "Queued" row of
  // `task_instance_docs` per address that is neither null nor empty, with a new document id, in
  // list order, yielding to the host before each. An address listed twice is queued twice.
  void BuildDocTableFromURIList();
  DocSource() = default;

  std::string doc_src_id_;
  SrcType source_type_ = SrcType::path;
  std::string conn_str_;
  std::string db_name_;
  std::string source_;
  bool include_sub_folders_ = false;
  std::weak_ptr<Task> task_;
  std::string task_id_;
};

using DocSourcePtr = std::shared_ptr<DocSource>;

// The sources of one task, 1-based, in the order they were added.
class DocSources : public CollectionOf<DocSourcePtr> {
 public:
  // Queues the documents of every source in order (`BuildDocTableFromURIList`), yielding before
  // each. The arguments are not passed on: each source asks its own task.
  void CreateDocList(const std::string& JobId, const std::string& TaskId,
                     const DateTime& JobStartTime);
  // Removes the task's rows of doc_locations (`DDocSource::DeleteAll`).
  void DBClearAll();
  // Removes every item, yielding on each.
  void MemoryClearAll();
  void ClearAll() {
    MemoryClearAll();
    DBClearAll();
  }
  // `Save` on each source in order, yielding before each.
  void SaveAll();
  // Sets the source's task to this collection's task; a non-empty key must be new (457).
  DocSourcePtr Add(DocSourcePtr DocSrc, std::string_view sKey = {});

  std::shared_ptr<Task> GetTask() const { return task_.lock(); }
  void SetTask(const std::shared_ptr<Task>& task) { task_ = task; }

 private:
  std::weak_ptr<Task> task_;
};

}  // namespace gw
