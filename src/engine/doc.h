// Doc: one document of a task's run that is ready for extraction (a row of `task_instance_docs`
// with a local copy), and Docs, the run's documents in the order the store gave them.
#pragma once

#include <memory>
#include <string>

#include "engine/doc_plugin.h"
#include "extraction/data_page.h"
#include "meta/meta_doc.h"
#include "platform/collection.h"
#include "platform/date_time.h"
#include "platform/error.h"

namespace gw {

class Task;

// The file a local address names: a "file://" address loses its prefix; any other text is taken
// as a path as it stands.
std::string FileSystemPathOf(std::string_view uri);

class Doc : public Object, public IDoc {
 public:
  static std::shared_ptr<Doc> Create() { return std::shared_ptr<Doc>(new Doc()); }
  std::string TypeName() const override { return "Doc"; }

  const std::string& DocId() const { return doc_id_; }
  void SetDocId(std::string v) { doc_id_ = std::move(v); }
  // The address the document came from.
  std::string SourceUri() const override { return source_uri_; }
  void SetSourceUri(std::string v) { source_uri_ = std::move(v); }
  // Where its text is read: the local copy, or the source itself when copies are switched off.
  const std::string& LocalPath() const { return local_path_; }
  void SetLocalPath(std::string v) { local_path_ = std::move(v); }
  const DateTime& CopyCompleteTime() const { return copy_complete_time_; }
  // The running task the document belongs to (a back reference; null when gone or unset).
  std::shared_ptr<Task> TaskInstance() const { return task_.lock(); }
  void SetTaskInstance(const std::shared_ptr<Task>& task) { task_ = task; }

  // Made on first use: a `MetaDoc` with the document's addresses, id and copy time, and the id and
  // name of the running task's datapage when it has one.
  MetaDocPtr Metadata() override;

  // The document's text as the plug-in reads it, after the task's two cleansing passes have
  // rewritten the file (first `DocCleanseMethod`, then `DocCleanseMethod2`). The only place a run
  // reads a document. Fails with 91 without a task.
  std::string GetSrcText(IDocPlugin& DocPlugin);

  // Whether the text at `LocalPath` can be read at all: a soft failure (number 53 for a missing
  // file, 75 for a folder, 70 for one that cannot be opened, 62 for an empty one) says why
  // not. The run records it on the document and does not extract it.
  Status CheckReadable() const;

 private:
  friend class Docs;
  void SetCopyCompleteTime(DateTime v) { copy_complete_time_ = v; }
  Doc() = default;

  std::string doc_id_;
  std::string source_uri_;
  std::string local_path_;
  DateTime copy_complete_time_;
  std::weak_ptr<Task> task_;
  MetaDocPtr metadata_;
};

using DocPtr = std::shared_ptr<Doc>;

class Docs : public CollectionOf<DocPtr> {
 public:
  // Makes a document, sets its task (when given), copy time, id, local path and source, and adds
  // it with `sKey` when that is not empty (a key must be new: 457).
  DocPtr Add(const std::shared_ptr<Task>& TaskInstance, std::string LocalPath,
             std::string SourceUri, const DateTime& CopyCompleteTime, std::string DocId,
             std::string_view sKey = {});
  // Lets go of the document at `index` (1-based) while it keeps its place and key: `Item` then
  // gives null. A run lets go of each document once its history is written.
  void Release(long index) { items_.Item(index).reset(); }
};

}  // namespace gw
