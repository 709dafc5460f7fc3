// FileSaver: where a downloaded or produced file goes, and writing it there.
//
// A saver is a template: a root folder, three optional sub-folder levels (`JobFolder`,
// `TaskFolder`, `DocFolder`) and a file name, each a text that may hold path tags. Tags are filled
// in when a file is saved, from the task (its package, datapage and start times), the document
// id, the source address and the clock:
//
//   [PKGID] [PKGNAME] [PKGTIME] [TASKID] [TASKNAME] [TASKTIME] [DOCID] [DATAPAGE]
//   [DAY] [MONTH] [YEAR] [HOUR] [MINUTE] [SECOND]
//   [URL] [URLQUERY] [URLPATH] [FILENAME] [HOST]
//
// plus many aliases ("[JOBNAME]", "[DATE]", "[TIMESTAMP]", "[DOMAIN]", and date patterns such as
// "MM-DD-YYYY"; `AliasTable`). Aliases and tags are matched without regard to case; an alias is
// plain text, so "ymm-x" in a folder name becomes "y[MONTH]-x" too. A tag whose source is
// missing stays in the text as it is. Dates are written as the runtime writes a date
// ("mm-dd-yyyy hh:mm:ss"), the date parts as plain numbers.
//
// The text is then made safe for the file system: "?", "*", ":", "|" become "_", "<" "(", ">" ")",
// a double quote an apostrophe, and a control character "_". In a folder level "/" and "\" both
// make a sub-folder (so packages written on Windows keep their levels); in a file name they become
// "_". A level made only of dots ("..") gets its dots replaced by "_", so no tag, address or header
// can climb out of the root folder. A file name gets the extension the address implies (a page of
// a dynamic site, "list.php", is saved as "list.htm"; `ExtensionMap`).
//
// Limits: the folder path is cut to its first 243 characters; a file name is shortened so that
// the whole path stays within 255 characters; every component of the path also stays within 255
// bytes (the file system's own limit). A file that exists is never overwritten: the next free
// name is taken, "a.htm", "a(1).htm", "a(2).htm". Files are written to a temporary name in their
// folder first and moved to their name only when complete, without replacing anything.
//
// Failures: a folder that cannot be made raises `engineerr::kCannotCreateFolder`; a file that
// cannot be written, or a source that cannot be copied, raises 3004 (`errnum::kWriteToFileFailed`);
// a source that is not a file raises 53 (`errnum::kFileNotFound`). Each reports under
// "FileSaver.<member>".
//
// Text form (`ISerializable`), on one line:
//   <FileSaver><DocFolder value="..."/><FileName value="..."/><JobFolder value="..."/>
//   <RootFolder value="..."/><TaskFolder value="..."/></FileSaver>
// The values are written as they stand, not escaped; a text that does not parse leaves the saver
// as it was, without an error. The task, address and document id are not part of it.
//
// A saver is not safe to share between threads; the library uses it from its one thread.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/failures.h"
#include "infra/xml_serializer.h"
#include "platform/error.h"
#include "platform/stream.h"
#include "platform/variant.h"
#include "web/uri.h"

namespace gw {

class Task;

class FileSaver : public Object, public ISerializable {
 public:
  static std::shared_ptr<FileSaver> Create() { return std::make_shared<FileSaver>(); }
  std::string TypeName() const override { return "FileSaver"; }

  // ---- the template ----
  const std::string& RootFolder() const noexcept { return root_folder_; }
  void SetRootFolder(std::string v) { root_folder_ = std::move(v); }
  const std::string& JobFolder() const noexcept { return job_folder_; }
  void SetJobFolder(std::string v) { job_folder_ = std::move(v); }
  const std::string& TaskFolder() const noexcept { return task_folder_; }
  void SetTaskFolder(std::string v) { task_folder_ = std::move(v); }
  const std::string& DocFolder() const noexcept { return doc_folder_; }
  void SetDocFolder(std::string v) { doc_folder_ = std::move(v); }
  const std::string& FileName() const noexcept { return file_name_; }
  void SetFileName(std::string v) { file_name_ = std::move(v); }

  // ---- what the tags read; set anew for every saved item ----
  // The page or file being saved; null for none.
  const std::shared_ptr<web::Uri>& SrcUrl() const noexcept { return src_url_; }
  void SetSrcUrl(std::shared_ptr<web::Uri> url) { src_url_ = std::move(url); }
  void SetDocID(std::string id) { doc_id_ = std::move(id); }
  const std::string& DocID() const noexcept { return doc_id_; }
  // The task whose package, datapage and times fill the tags; not kept alive by the saver.
  void SetTask(const std::shared_ptr<Task>& task) { task_ = task; }
  std::shared_ptr<Task> GetTask() const { return task_.lock(); }

  // ---- saving; each returns the path of the file written ----
  // Writes `text` without a line ending. With `Overwrite` an existing file at `CalcFullPath()` is
  // deleted first. A new file is UTF-16 (little-endian) with a byte-order mark; with `Append`,
  // text added to an existing file is written as UTF-8 (the system's narrow encoding), so the two
  // encodings then meet in one file, as they always have.
  std::string SaveText(std::string_view text, bool Overwrite = false, bool Append = false);
  // The stream's bytes, under a new creatable name.
  std::string SaveStream(Stream& oStream);
  // The same for bytes already at hand (a response body), without copying them into a stream.
  std::string SaveBytes(std::string_view bytes);
  // Copies a local file (a path or a "file://" address) under a new creatable name;
  // `copied_bytes`, when given, receives the size of the copy.
  std::string CopyFile(const std::string& SrcFile, long long* copied_bytes = nullptr);
  // Deletes every file and folder inside `RootFolder` (the folder itself stays). A root of "/" is
  // refused with 70 (`errnum::kPermissionDenied`).
  void ClearRootFolder();

  // The folder path (with its separator at the end) plus `CalcFileName()`; nothing is checked.
  std::string CalcFullPath();
  // Root (or, when empty, the setting "DefaultDownloadPath", read once, or without that
  // $GLEANWRIGHT_HOME/downloads) and the three levels, each ending in "/", cut to 243 characters.
  // A root of "/" gives a path that begins with "/".
  std::string BuildFolderPath();
  // Makes the folder and its parents; fails with `engineerr::kCannotCreateFolder`. Returns it.
  std::string EnsureFolderExists(const std::string& FolderPath);
  // True when the last file saved had its folder path or name shortened to fit the limits.
  bool LastPathWasShortened() const noexcept { return shortened_; }
  // Told the path a new, complete file is about to be given, just before each attempt to give it
  // that name (a name found taken is followed by the next name's notice): a process killed after
  // the naming leaves a file its listener has heard of. `LastPathWasShortened` already holds for
  // that path. Empty for none.
  void SetNamingListener(std::function<void(const std::string& path)> listener) {
    naming_listener_ = std::move(listener);
  }

  // ISerializable.
  std::string Serialize() override;
  void Deserialize(std::string_view text) override;

  // ---- inside the library ----
  // `FileName` through the pipeline; "default.htm" when it is or becomes empty.
  std::string CalcFileName();
  // `EnsureFolderExists(BuildFolderPath())` + a free name for `CalcFileName()`.
  std::string GetCreateableFullPath();
  // folder + "/" + the first of name, name(1), name(2)... that does not exist, each shortened by
  // `TrimFile`. For a name it has handed out before, the saver starts after the number it last
  // handed out, as long as that file and the plain name still exist: thousands of files under one
  // name cost a few probes each instead of one per earlier file. A number freed below it
  // meanwhile is therefore not reused (until the plain name is gone or the root is cleared).
  std::string GetCreateableFileName(const std::string& folder, const std::string& filename);
  // base + numStr + extension, with `base` cut (for good) so that folder + "/" + the result stays
  // within 255 characters and the name within 255 bytes; nothing is cut when that is impossible.
  std::string TrimFile(const std::string& dir, std::string& base, const std::string& numStr,
                       const std::string& extension);
  // Aliases, tags, file-system encoding and (for a file) the expected extension.
  std::string GetFileSystemName(std::string_view str, bool IsFolder);
  static std::string ReplaceAliases(std::string_view str);
  std::string ReplaceTags(std::string_view str);
  static std::string FileSystemEncode(std::string_view str, bool IsFolder);
  // Trims spaces and removes one leading and one trailing separator.
  static std::string RemoveSlashes(std::string_view s);
  // The file name an address implies: its own with the extension mapped ("list.php" gives
  // "list.htm"), "default.htm" for a folder address.
  static std::string GetFilename(const web::Uri& u);
  std::string GetDefaultRootFolder();

  // (alias, canonical) in the order they are replaced.
  static const std::vector<std::pair<std::string, std::string>>& AliasTable();
  // The extension a lower-cased extension maps to, or nullptr when it is not in the map.
  static const char* ExtensionMap(std::string_view ext);

 private:
  // `GetCreateableFullPath` and `GetCreateableFileName`; without `probe_first`, the first name
  // found (a name handed out for the first time, or the number after the last one handed out) is
  // not looked for: the caller's exclusive create tells whether it is taken, and then asks again
  // with it.
  std::string CreateableFullPath(bool probe_first);
  std::string CreateableFileName(const std::string& folder, const std::string& filename,
                                 bool probe_first);
  std::string WriteNewFile(std::string_view bytes);
  // Makes a new file at the next free name and returns its path: `write` fills the descriptor
  // it is given (the path is the name the file is meant to take, for messages). The file is
  // written without a name and named when whole, so a process killed meanwhile leaves nothing
  // behind; where the system cannot name such a file it is written under a temporary name.
  std::string WriteNewFile(const std::function<void(int fd, const std::string& path)>& write);
  // `ReplaceAliases(str)`, remembered for the few templates a saver names its files by.
  const std::string& Aliased(std::string_view str);

  std::string root_folder_, job_folder_, task_folder_, doc_folder_, file_name_;
  std::shared_ptr<web::Uri> src_url_;
  std::string doc_id_;
  std::weak_ptr<Task> task_;
  std::string default_root_;
  bool default_root_read_ = false;
  bool shortened_ = false;
  // (folder and name) -> the number `GetCreateableFileName` last handed out for it.
  static constexpr std::size_t kMaxRememberedNames = 1024;
  std::map<std::string, long> last_taken_;
  // The folder `GetCreateableFullPath` last made (or found), not looked at again while it stays.
  std::string made_folder_;
  std::function<void(const std::string& path)> naming_listener_;
  // (template, its aliases replaced), a few of them.
  std::vector<std::pair<std::string, std::string>> aliased_;
};

using FileSaverPtr = std::shared_ptr<FileSaver>;

}  // namespace gw
