#include "engine/doc.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "engine/task.h"
#include "platform/paths.h"
#include "platform/text.h"

namespace gw {

std::string FileSystemPathOf(std::string_view uri) {
  if (text::StartsWithNoCase(uri, "file://")) uri.remove_prefix(7);
  return std::string(uri);
}

MetaDocPtr Doc::Metadata() {
  if (!metadata_) {
    auto meta = MetaDoc::Create();
    meta->SetSourceUri(source_uri_);
    meta->SetLocalPath(local_path_);
    meta->SetDocId(doc_id_);
    meta->SetDownloadComplete(copy_complete_time_);
    if (auto task = task_.lock()) {
      if (auto page = task->GetDataPage()) {
        meta->SetDatapageId(page->Id());
        meta->SetDatapageName(page->DisplayName());
      }
    }
    metadata_ = std::move(meta);
  }
  return metadata_;
}

std::string Doc::GetSrcText(IDocPlugin& DocPlugin) {
  return ReportAs("Doc.GetSrcText(DocPlugin)", Args(DocPlugin), [&] {
    auto task = task_.lock();
    if (!task) ThrowObjectNotSet("Doc.GetSrcText");
    return DocPlugin.CleanseAndGetSource(local_path_,
                                         {{task->DocCleanseMethod(), task->DocCleanseParams()},
                                          {task->DocCleanseMethod2(), task->DocCleanseParams2()}});
  });
}

Status Doc::CheckReadable() const {
  constexpr const char* kSource = "Doc.GetSrcText";
  const std::string path = FileSystemPathOf(local_path_);
  // Looked at before it is opened: a named pipe or a device is never opened.
  const FileCheck check = CheckDocumentFile(path);
  switch (check.kind) {
    case FileCheck::kReadable:
      break;
    case FileCheck::kMissing:
      return Status(errnum::kFileNotFound, kSource,
                    "The document " + local_path_ + " could not be read: the file does not exist.");
    case FileCheck::kFolder:
      return Status(errnum::kPathFileAccessError, kSource,
                    "The document " + local_path_ + " could not be read: it is a folder.");
    case FileCheck::kUnreadable:
      return Status(errnum::kPermissionDenied, kSource,
                    "The document " + local_path_ + " could not be read: " + check.reason + ".");
  }
  // A regular file that was allowed to be read and has bytes needs no opening here (the reading
  // opens it). A size of nothing is looked into: some files say so and still have text.
  if (check.size > 0) return {};
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    return Status(
        errnum::kPermissionDenied, kSource,
        "The document " + local_path_ + " could not be read: " + std::strerror(errno) + ".");
  }
  if (in.peek() == std::ifstream::traits_type::eof()) {
    return Status(errnum::kInputPastEndOfFile, kSource,
                  "The document " + local_path_ + " is empty: there is nothing to extract.");
  }
  return {};
}

DocPtr Docs::Add(const std::shared_ptr<Task>& TaskInstance, std::string LocalPath,
                 std::string SourceUri, const DateTime& CopyCompleteTime, std::string DocId,
                 std::string_view sKey) {
  return ReportAs("Docs.Add(TaskInstance,LocalPath,SourceUri,CopyCompleteTime,DocId,sKey)",
                  Args(TaskInstance, LocalPath, SourceUri, CopyCompleteTime, DocId, sKey), [&] {
                    auto doc = Doc::Create();
                    if (TaskInstance) doc->SetTaskInstance(TaskInstance);
                    doc->SetCopyCompleteTime(CopyCompleteTime);
                    doc->SetDocId(std::move(DocId));
                    doc->SetLocalPath(std::move(LocalPath));
                    doc->SetSourceUri(std::move(SourceUri));
                    return items_.Add(std::move(doc), sKey);
                  });
}

}  // namespace gw
