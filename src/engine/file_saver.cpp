#include "engine/file_saver.h"

#include <fcntl.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>

#include "engine/doc.h"
#include "engine/job.h"
#include "engine/task.h"
#include "extraction/data_page.h"
#include "platform/charset.h"
#include "platform/date_time.h"
#include "platform/file_io.h"
#include "platform/paths.h"
#include "platform/text.h"
#include "rules/settings.h"

namespace gw {

namespace fs = std::filesystem;

namespace {

// Set once a file written without a name could not be named for a reason of the system (no
// /proc, a file system that refuses the link): the process's later files take a temporary name.
std::atomic<bool> unnamed_files_unusable{false};

// A path component may hold at most this many bytes; a whole path (as the templates count it)
// this many characters; a folder path is cut to leave room for a name.
constexpr std::size_t kMaxComponentBytes = 255;
constexpr std::size_t kMaxPathChars = 255;
constexpr std::size_t kMaxFolderChars = 243;

std::vector<std::pair<std::string, std::string>> BuildAliasTable() {
  struct Row {
    const char* canonical;
    std::vector<const char*> aliases;
  };
  const std::vector<Row> rows = {
      {"[PKGID]", {"[PACKAGEID]", "[PACKAGE_ID]", "[PKG_ID]", "[JOBID]", "[JOB_ID]"}},
      {"[PKGNAME]",
       {"[PACKAGENAME]", "[PACKAGE_NAME]", "[PKG_NAME]", "[PACKAGE]", "[PKG]", "[JOBNAME]",
        "[JOB_NAME]", "[JOB]"}},
      {"[PKGTIME]",
       {"[PACKAGETIME]", "[PACKAGE_TIME]", "[PKG_TIME]", "[PACKAGESTART]", "[PACKAGE_START]",
        "[PKG_START]", "[PKGSTART]", "[JOBTIME]", "[JOB_TIME]"}},
      {"[TASKID]", {"[TSKID]", "[TSK_ID]", "[TASK_ID]"}},
      {"[TASKNAME]", {"[TSKNAME]", "[TSK_NAME]", "[TASK_NAME]", "[TSK]", "[TASK]"}},
      {"[TASKTIME]",
       {"[TSKTIME]", "[TSK_TIME]", "[TASK_TIME]", "[TSKSTART]", "[TSK_START]", "[TASK_START]",
        "[TASKSTART]"}},
      {"[DOCID]", {"[DOC]", "[DOC_ID]", "[DOCUMENT_ID]"}},
      {"[DATAPAGE]",
       {"[DATAPAGENAME]", "[DPAGE]", "[DPAGENAME]", "[DATAPAGE_NAME]", "[DPAGE_NAME]"}},
  };
  std::vector<std::pair<std::string, std::string>> table;
  for (const Row& row : rows) {
    for (const char* alias : row.aliases) table.emplace_back(alias, row.canonical);
  }
  // Date patterns, so that a template "MM-DD-YYYY" works.
  const std::vector<std::pair<const char*, const char*>> patterns = {
      {"MM-", "[MONTH]-"},  {"MM/", "[MONTH]/"},    {"-MM", "-[MONTH]"},  {"/MM", "/[MONTH]"},
      {"DD-", "[DAY]-"},    {"DD/", "[DAY]/"},      {"-DD", "-[DAY]"},    {"/DD", "/[DAY]"},
      {"-YYYY", "-[YEAR]"}, {"/YYYY", "/[YEAR]"},   {"YYYY-", "[YEAR]-"}, {"YYYY/", "[YEAR]/"},
      {"HH:", "[HOUR]:"},   {"HH :", "[HOUR] :"},   {"MM:", "[MINUTE]:"}, {"MM :", "[MINUTE] :"},
      {":SS", ":[SECOND]"}, {": SS", ": [SECOND]"},
  };
  for (const auto& [alias, canonical] : patterns) table.emplace_back(alias, canonical);
  const std::vector<Row> rest = {
      {"[MONTH]-[DAY]-[YEAR]", {"[DATE]", "[DATESTAMP]", "[TODAY]"}},
      {"[HOUR]:[MINUTE]:[SECOND]", {"[TIME]"}},
      {"[MONTH]-[DAY]-[YEAR]_[HOUR]:[MINUTE]:[SECOND]", {"[DATETIME]", "[TIMESTAMP]"}},
      {"[URL]", {"[URI]", "[SRCURL]", "[SRC_URL]", "[SRC_URI]", "[SRCURI]"}},
      {"[URLQUERY]",
       {"[QUERYSTRING]", "[QUERY_STRING]", "[QUERY]", "[URL_QUERY]", "[URIQUERY]", "[URI_QUERY]"}},
      {"[URLPATH]",
       {"[PATH]", "[URL_PATH]", "[URI_PATH]", "[SRC_PATH]", "[DOCPATH]", "[DOC_PATH]"}},
      {"[FILENAME]",
       {"[URLFILENAME]", "[URL_FILENAME]", "[URL_FILE_NAME]", "[URIFILENAME]", "[URI_FILENAME]",
        "[URI_FILE_NAME]", "[FILE]", "[FILE_NAME]"}},
      {"[HOST]",
       {"[HOSTNAME]", "[HOST_NAME]", "[SERVER]", "[SERVERNAME]", "[SERVER_NAME]", "[DOMAIN]",
        "[DOMAIN_NAME]", "[DOMAINNAME]"}},
  };
  for (const Row& row : rest) {
    for (const char* alias : row.aliases) table.emplace_back(alias, row.canonical);
  }
  return table;
}

std::string Trimmed(std::string_view s) { return std::string(text::TrimSpaces(s)); }

// The first `n` characters of `s` (never splitting one).
std::string FirstChars(std::string_view s, std::size_t n) {
  return std::string(text::TruncateCodePoints(s, n));
}

// At most `max_bytes` bytes of `s`, cut at a character boundary.
std::string_view FirstBytes(std::string_view s, std::size_t max_bytes) {
  if (s.size() <= max_bytes) return s;
  std::size_t end = max_bytes;
  while (end > 0 && (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80) --end;
  return s.substr(0, end);
}

bool Exists(const std::string& path) {
  std::error_code ec;
  return fs::exists(fs::symlink_status(path, ec));
}

[[noreturn]] void WriteFailed(const char* source, const std::string& path, const std::string& why) {
  throw Error(errnum::kWriteToFileFailed, source,
              "Write to file failed: " + path + " (" + why + ").");
}

// A name for a temporary file in `folder` that no other writer uses.
std::string TemporaryName(const std::string& folder) {
  static std::atomic<unsigned long> counter{0};
  return folder + "/.gw-" + std::to_string(::getpid()) + "-" + std::to_string(++counter) + ".part";
}

// Gives the finished temporary file its name without replacing anything: false when a file of
// that name appeared meanwhile.
bool Publish(const std::string& temporary, const std::string& path) {
  if (::link(temporary.c_str(), path.c_str()) == 0) {
    ::unlink(temporary.c_str());
    return true;
  }
  if (errno == EEXIST) return false;
  if (errno == EPERM || errno == ENOTSUP || errno == EOPNOTSUPP || errno == EMLINK) {
    // A file system without hard links: check, then move.
    if (Exists(path)) return false;
    if (::rename(temporary.c_str(), path.c_str()) == 0) return true;
  }
  const std::string why = std::strerror(errno);
  ::unlink(temporary.c_str());
  WriteFailed("FileSaver.SaveToFile", path, why);
}

void WriteOrFail(int fd, std::string_view bytes, const std::string& path) {
  if (const int code = WriteAll(fd, bytes); code != 0) {
    WriteFailed("FileSaver.SaveToFile", path, std::strerror(code));
  }
}

// Copies what is left of `in` to `out` inside the kernel (read and write where the file systems
// do not allow it), counting the bytes in `copied`; 0, or the errno of the failure. `size` is the
// size the file was looked at with: a transfer that stops short exactly there has met the end,
// and no further transfer is asked for to find it (a file that grew meanwhile is copied on).
int CopyContent(int in, int out, long long size, long long& copied) {
  constexpr std::size_t kMost = std::size_t{1} << 30;
  bool kernel = true;
  char buffer[65536];
  for (;;) {
    ssize_t n = kernel ? ::sendfile(out, in, nullptr, kMost) : -1;
    if (n < 0 && kernel && (errno == EINVAL || errno == ENOSYS)) {
      kernel = false;
      continue;
    }
    if (!kernel) {
      n = ::read(in, buffer, sizeof buffer);
      if (n > 0) {
        if (const int code = WriteAll(out, {buffer, static_cast<std::size_t>(n)}); code != 0) {
          return code;
        }
      }
    }
    if (n == 0) return 0;
    if (n < 0 && errno != EINTR) return errno;
    if (n > 0) {
      copied += n;
      if (kernel && copied == size && static_cast<std::size_t>(n) < kMost) return 0;
    }
  }
}

std::string Utf16WithBom(std::string_view utf8) {
  return "\xFF\xFE" + EncodeFromUtf8(utf8, "UTF-16LE");
}

}  // namespace

const std::vector<std::pair<std::string, std::string>>& FileSaver::AliasTable() {
  static const auto table = BuildAliasTable();
  return table;
}

const char* FileSaver::ExtensionMap(std::string_view ext) {
  static constexpr const char* kToHtm[] = {"",     "asp",  "aspx",  "cf",  "cfm",  "cgi",  "dhtml",
                                           "html", "fcgi", "jhtml", "jsp", "php",  "php3", "php4",
                                           "pl",   "plx",  "shtml", "stm", "story"};
  for (const char* key : kToHtm) {
    if (ext == key) return "htm";
  }
  return nullptr;
}

// ---- the pipeline -------------------------------------------------------------------------

std::string FileSaver::ReplaceAliases(std::string_view str) {
  std::string s(str);
  for (const auto& [alias, canonical] : AliasTable()) {
    if (text::FindNoCase(s, alias) != text::npos) s = text::ReplaceAll(s, alias, canonical, true);
  }
  return s;
}

std::string FileSaver::ReplaceTags(std::string_view str) {
  std::string s(str);
  // Tags in a fixed order, each value worked out only when its tag is there (a value may hold a
  // tag replaced after it, as before).
  const auto put = [&s](std::string_view tag, const auto& value) {
    if (text::FindNoCase(s, tag) != text::npos) s = text::ReplaceAll(s, tag, value(), true);
  };
  const auto has = [&s](std::initializer_list<std::string_view> tags) {
    for (std::string_view tag : tags) {
      if (text::FindNoCase(s, tag) != text::npos) return true;
    }
    return false;
  };
  if (auto task = task_.lock()) {
    // A package or datapage that cannot be read leaves its tags as they are.
    std::shared_ptr<Job> job;
    if (has({"[PKGID]", "[PKGNAME]", "[PKGTIME]"})) {
      try {
        job = task->GetJob();
      } catch (const Error&) {
      }
    }
    if (job) {
      put("[PKGID]", [&] { return job->JobId(); });
      put("[PKGNAME]", [&] { return job->JobName(); });
      put("[PKGTIME]", [&] { return job->StartTime().ToUsText(); });
    }
    std::shared_ptr<DataPage> page;
    if (has({"[DATAPAGE]"})) {
      try {
        page = task->GetDataPage();
      } catch (const Error&) {
      }
    }
    if (page) put("[DATAPAGE]", [&] { return page->DisplayName(); });
    put("[TASKTIME]", [&] { return task->StartTime().ToUsText(); });
    put("[TASKID]", [&] { return task->TaskId(); });
    put("[TASKNAME]", [&] { return task->TaskName(); });
  }
  put("[DOCID]", [&] { return doc_id_; });
  // One clock reading for all the date and time tags.
  std::optional<DateTime> now;
  const auto part = [&](int (DateTime::*field)() const) {
    return [&, field] {
      if (!now) now = DateTime::Now();
      return std::to_string(((*now).*field)());
    };
  };
  put("[DAY]", part(&DateTime::Day));
  put("[MONTH]", part(&DateTime::Month));
  put("[YEAR]", part(&DateTime::Year));
  put("[HOUR]", part(&DateTime::Hour));
  put("[MINUTE]", part(&DateTime::Minute));
  put("[SECOND]", part(&DateTime::Second));
  if (src_url_) {
    const web::Uri& u = *src_url_;
    put("[URLPATH]", [&] { return u.PathWithoutFile(); });
    put("[URL]", [&] {
      std::string shown;
      try {
        shown = u.ToString();
      } catch (const Error&) {
        shown = u.ToExternalForm();
      }
      return text::ReplaceAll(shown, "://", "_");
    });
    if (u.QueryString().empty()) {
      // "[FILENAME]?[URLQUERY]" of an address without a query leaves no stray separator.
      for (const char* sep : {"?", "*", ":", "_"}) {
        put(std::string("[FILENAME]") + sep + "[URLQUERY]",
            [] { return std::string("[FILENAME][URLQUERY]"); });
      }
    }
    put("[URLQUERY]", [&] { return u.QueryString(); });
    put("[FILENAME]", [&] { return GetFilename(u); });
    put("[HOST]", [&] { return u.Host(); });
  }
  return s;
}

std::string FileSaver::FileSystemEncode(std::string_view str, bool IsFolder) {
  std::string out;
  out.reserve(str.size());
  for (const char c : str) {
    switch (c) {
      case '?':
      case '*':
      case ':':
      case '|':
        out += '_';
        break;
      case '<':
        out += '(';
        break;
      case '>':
        out += ')';
        break;
      case '"':
        out += '\'';
        break;
      case '\\':
      case '/':
        out += IsFolder ? '/' : '_';
        break;
      default:
        out += (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) ? '_' : c;
    }
  }
  return out;
}

std::string FileSaver::RemoveSlashes(std::string_view s) {
  std::string r = Trimmed(s);
  if (!r.empty() && (r.front() == '/' || r.front() == '\\')) r.erase(0, 1);
  if (!r.empty() && (r.back() == '/' || r.back() == '\\')) r.pop_back();
  return r;
}

std::string FileSaver::GetFilename(const web::Uri& u) {
  std::string name = u.FileName();
  const std::string raw_ext = u.FileExtension();
  std::string ext = text::AsciiLower(raw_ext);
  if (const char* mapped = ExtensionMap(ext)) ext = mapped;
  if (name.empty()) name = "default";
  if (!raw_ext.empty()) {
    name = text::ReplaceAll(name, raw_ext, ext);
  } else {
    name += ".htm";
  }
  if (!name.ends_with("." + ext)) name += "." + ext;
  return name;
}

const std::string& FileSaver::Aliased(std::string_view str) {
  for (const auto& [from, to] : aliased_) {
    if (from == str) return to;
  }
  if (aliased_.size() >= 8) aliased_.clear();
  aliased_.emplace_back(std::string(str), ReplaceAliases(str));
  return aliased_.back().second;
}

std::string FileSaver::GetFileSystemName(std::string_view str, bool IsFolder) {
  std::string s = FileSystemEncode(ReplaceTags(Aliased(str)), IsFolder);
  if (IsFolder) return RemoveSlashes(s);
  std::string ext;
  std::string shown;
  if (src_url_) {
    try {
      shown = src_url_->ToString();
    } catch (const Error&) {
      shown = src_url_->ToExternalForm();
    }
  }
  if (!shown.empty()) {
    ext = text::AsciiLower(src_url_->FileExtension());
    if (const char* mapped = ExtensionMap(ext)) ext = mapped;
  } else if (const std::size_t dot = s.rfind('.'); dot != std::string::npos) {
    const char* mapped = ExtensionMap(text::AsciiLower(std::string_view(s).substr(dot + 1)));
    ext = mapped ? mapped : "";
  }
  if (!ext.empty() && !s.ends_with("." + ext)) s += "." + ext;
  return s;
}

std::string FileSaver::CalcFileName() {
  if (Trimmed(file_name_).empty()) file_name_ = "default.htm";
  std::string name = GetFileSystemName(file_name_, false);
  if (Trimmed(name).empty()) name = GetFileSystemName("default.htm", false);
  // "." and ".." name folders, not files.
  if (name == "." || name == "..") name.assign(name.size(), '_');
  return name;
}

std::string FileSaver::GetDefaultRootFolder() {
  if (!default_root_read_) {
    default_root_ = Settings().GetOption("DefaultDownloadPath").ToText();
    // Without the setting, the product's own folder rather than the top of the file system.
    if (text::TrimSpaces(default_root_).empty()) default_root_ = (HomeDir() / "downloads").string();
    default_root_read_ = true;
  }
  return default_root_;
}

std::string FileSaver::BuildFolderPath() {
  shortened_ = false;
  std::string root = Trimmed(root_folder_.empty() ? GetDefaultRootFolder() : root_folder_);
  root = text::ReplaceAll(root, "\\", "/");
  for (int pass = 0; pass < 2; ++pass) root = text::ReplaceAll(root, "//", "/");
  // The root keeps its leading "/": on this file system that is what makes it absolute.
  if (!root.empty() && root.back() == '/') root.pop_back();
  std::string path = root + "/";
  const std::size_t root_length = path.size();
  for (const std::string* level : {&job_folder_, &task_folder_, &doc_folder_}) {
    if (!Trimmed(*level).empty()) path += GetFileSystemName(*level, true) + "/";
  }
  if (text::CountCodePoints(path) > kMaxFolderChars) {
    path = FirstChars(path, kMaxFolderChars);
    shortened_ = true;
  }
  for (int pass = 0; pass < 2; ++pass) path = text::ReplaceAll(path, "//", "/");

  // What the levels made may not climb out of the root, nor exceed a component's bytes.
  if (path.size() <= root_length) return path;
  std::vector<std::string> parts = text::Split(std::string_view(path).substr(root_length), "/");
  for (std::string& segment : parts) {
    if (segment == "." || segment == "..") segment.assign(segment.size(), '_');
    if (segment.size() > kMaxComponentBytes) {
      segment = std::string(FirstBytes(segment, kMaxComponentBytes));
      shortened_ = true;
    }
  }
  return path.substr(0, root_length) + text::Join(parts, "/");
}

std::string FileSaver::CalcFullPath() { return BuildFolderPath() + CalcFileName(); }

std::string FileSaver::EnsureFolderExists(const std::string& FolderPath) {
  std::error_code ec;
  fs::create_directories(FolderPath, ec);
  if (!fs::is_directory(FolderPath, ec)) {
    throw Error(engineerr::kCannotCreateFolder, "FileSaver.EnsureFileExists",
                "Could not create folder '" + FolderPath +
                    "'.  Ensure that it is possible to create the folder manually and that "
                    "permissions are set properly.");
  }
  return FolderPath;
}

std::string FileSaver::TrimFile(const std::string& dir, std::string& base,
                                const std::string& numStr, const std::string& extension) {
  const std::size_t n = text::CountCodePoints(dir) + 1 + text::CountCodePoints(base) +
                        text::CountCodePoints(numStr) + text::CountCodePoints(extension);
  if (n > kMaxPathChars) {
    const std::size_t over = n - kMaxPathChars;
    const std::size_t chars = text::CountCodePoints(base);
    if (chars > over) {
      base = FirstChars(base, chars - over);
      shortened_ = true;
    }
  }
  const std::size_t fixed = numStr.size() + extension.size();
  if (base.size() + fixed > kMaxComponentBytes && fixed < kMaxComponentBytes) {
    base = std::string(FirstBytes(base, kMaxComponentBytes - fixed));
    shortened_ = true;
  }
  return base + numStr + extension;
}

std::string FileSaver::GetCreateableFileName(const std::string& folder,
                                             const std::string& filename) {
  return CreateableFileName(folder, filename, true);
}

std::string FileSaver::CreateableFileName(const std::string& folder, const std::string& filename,
                                          bool probe_first) {
  const std::size_t dot = filename.rfind('.');
  std::string base = dot == std::string::npos ? filename : filename.substr(0, dot);
  const std::string extension = dot == std::string::npos ? "" : filename.substr(dot);
  // The folder as the file system names it: without its final "/" ("" for the root).
  const std::string dir = folder.ends_with('/') ? folder.substr(0, folder.size() - 1) : folder;
  const std::string prefix = dir + "/";
  const auto numbered = [](long n) {
    return n == 0 ? std::string() : "(" + std::to_string(n) + ")";
  };
  // Saving many files under one name would probe every earlier number on each save: go on after
  // the number found taken last time, while that name and the plain name are both still there.
  const std::string key = prefix + filename;
  long counter = 0;
  const auto last = last_taken_.find(key);
  if (last != last_taken_.end()) {
    const bool shortened = shortened_;
    std::string plain = base, previous = base;
    if (Exists(prefix + TrimFile(dir, plain, "", extension)) &&
        (last->second == 0 ||
         Exists(prefix + TrimFile(dir, previous, numbered(last->second), extension)))) {
      counter = last->second + 1;
    }
    shortened_ = shortened;
  }
  // Unless asked to look first, the first name is taken without looking: the exclusive naming
  // finds it taken, and then the free one is looked for.
  for (bool first = true;; ++counter, first = false) {
    std::string candidate = prefix + TrimFile(dir, base, numbered(counter), extension);
    const bool unprobed = !probe_first && first;
    if (!unprobed && Exists(candidate)) continue;
    // The number handed out is remembered (it is taken once the file is written), and not
    // without bound.
    if (last_taken_.size() >= kMaxRememberedNames) last_taken_.clear();
    last_taken_[key] = counter;
    return candidate;
  }
}

std::string FileSaver::GetCreateableFullPath() { return CreateableFullPath(true); }

std::string FileSaver::CreateableFullPath(bool probe_first) {
  const std::string folder = BuildFolderPath();
  // The folder is made (and looked at) once while it stays the same; should it go away
  // meanwhile, the write that finds it missing makes it again (`WriteNewFile`).
  if (folder != made_folder_) {
    EnsureFolderExists(folder);
    made_folder_ = folder;
  }
  const bool folder_shortened = shortened_;
  std::string path = CreateableFileName(folder, CalcFileName(), probe_first);
  shortened_ = shortened_ || folder_shortened;
  return path;
}

// ---- writing ------------------------------------------------------------------------------

std::string FileSaver::WriteNewFile(std::string_view bytes) {
  return WriteNewFile([&](int fd, const std::string& path) { WriteOrFail(fd, bytes, path); });
}

std::string FileSaver::WriteNewFile(
    const std::function<void(int fd, const std::string& path)>& write) {
  // The name found first (new to this saver, or the number after the last one it handed out) is
  // tried without looking (a new file is almost always under a free name); the exclusive naming
  // below finds it taken, and then the free one is looked for.
  std::string path = CreateableFullPath(false);
  bool probed = false;
  std::string folder = fs::path(path).parent_path().string();
  const auto next_free_name = [&] {
    path = probed ? GetCreateableFileName(folder, fs::path(path).filename().string())
                  : CreateableFullPath(true);
    probed = true;
  };
  // A folder made earlier and removed (or replaced) since is made again, or fails to be, as it
  // would have before each write.
  const auto open_again_if_folder_gone = [&](const auto& open) {
    int result = open();
    if (result < 0 && (errno == ENOENT || errno == ENOTDIR) && !made_folder_.empty()) {
      made_folder_.clear();
      path = GetCreateableFullPath();
      probed = true;
      folder = fs::path(path).parent_path().string();
      result = open();
    }
    return result;
  };
  // A file without a name is written first and named when whole: a process killed meanwhile
  // leaves nothing behind, and no temporary name is made and removed for each file (ext4 makes
  // every new file after many removals look through the removed ones).
  const int fd =
      unnamed_files_unusable.load(std::memory_order_relaxed) ? -1 : open_again_if_folder_gone([&] {
        return ::open(folder.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0644);
      });
  if (fd >= 0) {
    try {
      write(fd, path);
    } catch (...) {
      ::close(fd);
      throw;
    }
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    bool named = false;
    int error = 0;
    while (!named) {
      if (naming_listener_) naming_listener_(path);
      if (::linkat(AT_FDCWD, self.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0) {
        named = true;
      } else if (errno == EEXIST) {
        // The name is taken (or another writer took it meanwhile): the next free one.
        next_free_name();
      } else {
        error = errno;
        break;
      }
    }
    ::close(fd);
    if (named) return path;
    // Without /proc the file cannot be named: written again below, the old way, and every later
    // file takes the old way at once rather than being written twice.
    if (error != ENOENT && error != EPERM && error != EOPNOTSUPP && error != EXDEV) {
      WriteFailed("FileSaver.SaveToFile", path, std::strerror(error));
    }
    unnamed_files_unusable.store(true, std::memory_order_relaxed);
  }
  std::string temporary;
  const int named_fd = open_again_if_folder_gone([&] {
    temporary = TemporaryName(folder);
    return ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
  });
  if (named_fd < 0) WriteFailed("FileSaver.SaveToFile", path, std::strerror(errno));
  try {
    write(named_fd, path);
  } catch (...) {
    ::close(named_fd);
    ::unlink(temporary.c_str());
    throw;
  }
  if (::close(named_fd) != 0) {
    const std::string why = std::strerror(errno);
    ::unlink(temporary.c_str());
    WriteFailed("FileSaver.SaveToFile", path, why);
  }
  // The name may be taken (or another writer may take it meanwhile): then the next free one.
  const auto publish = [&] {
    if (naming_listener_) naming_listener_(path);
    return Publish(temporary, path);
  };
  while (!publish()) next_free_name();
  return path;
}

std::string FileSaver::SaveBytes(std::string_view bytes) {
  return ReportAs("FileSaver.SaveBytes(bytes)", [&] { return WriteNewFile(bytes); });
}

std::string FileSaver::SaveStream(Stream& oStream) {
  return ReportAs("FileSaver.SaveStream(oStream)", [&] {
    std::string path = WriteNewFile(oStream.Bytes());
    oStream.Close();
    return path;
  });
}

std::string FileSaver::SaveText(std::string_view text, bool Overwrite, bool Append) {
  return ReportAs("FileSaver.SaveText(text,Overwrite,Append)", [&] {
    const std::string full = CalcFullPath();
    std::error_code ec;
    if (Overwrite && Exists(full)) fs::remove(full, ec);
    if (!Exists(full) || !Append) return WriteNewFile(Utf16WithBom(text));
    const int fd = ::open(full.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) WriteFailed("FileSaver.SaveText", full, std::strerror(errno));
    try {
      WriteOrFail(fd, text, full);
    } catch (...) {
      ::close(fd);
      throw;
    }
    ::close(fd);
    return full;
  });
}

std::string FileSaver::CopyFile(const std::string& SrcFile, long long* copied_bytes) {
  return ReportAs("FileSaver.CopyFile(SrcFile)", [&] {
    const std::string source = FileSystemPathOf(SrcFile);
    // Looked at before it is opened: a link into nothing or into a loop, a named pipe, a device
    // or a refused permission is never opened, and the failure says which.
    const FileCheck check = CheckDocumentFile(source);
    if (check.kind == FileCheck::kMissing) {
      throw Error(errnum::kFileNotFound, "FileSaver.CopyFile", "File not found: " + source);
    }
    if (!check.Ok()) {
      throw Error(errnum::kPathFileAccessError, "FileSaver.CopyFile",
                  "Not copied: " + source + ": " + check.reason + ".");
    }
    // The copy takes the source's permissions, as a file system copy does.
    return WriteNewFile([&](int out, const std::string& path) {
      const auto failed = [&](int error) {
        return Error(
            errnum::kWriteToFileFailed, "FileSaver.CopyFile",
            "Could not copy " + source + " to " + path + ": " + std::strerror(error) + ".");
      };
      const int in = ::open(source.c_str(), O_RDONLY | O_CLOEXEC);
      if (in < 0) throw failed(errno);
      long long copied = 0;
      int error = CopyContent(in, out, check.size, copied);
      if (copied_bytes) *copied_bytes = copied;
      if (error == 0 && ::fchmod(out, check.permissions) != 0) error = errno;
      ::close(in);
      if (error != 0) throw failed(error);
    });
  });
}

void FileSaver::ClearRootFolder() {
  ReportAs("FileSaver.ClearRootFolder", [&] {
    const std::string folder = Trimmed(root_folder_);
    std::error_code ec;
    if (folder.empty() || !fs::is_directory(folder, ec)) return;
    if (fs::equivalent(folder, "/", ec)) {
      throw Error(errnum::kPermissionDenied, "FileSaver.ClearFolder",
                  "The root of the file system is never cleared.");
    }
    for (const auto& entry : fs::directory_iterator(folder)) fs::remove_all(entry.path());
    last_taken_.clear();
    made_folder_.clear();
  });
}

// ---- text form ----------------------------------------------------------------------------

std::string FileSaver::Serialize() {
  // Values as they stand, as the saver has always written them.
  const auto element = [](const char* name, const std::string& value) {
    return std::string("<") + name + " value=\"" + value + "\"/>";
  };
  return "<FileSaver>" + element("DocFolder", doc_folder_) + element("FileName", file_name_) +
         element("JobFolder", job_folder_) + element("RootFolder", root_folder_) +
         element("TaskFolder", task_folder_) + "</FileSaver>";
}

void FileSaver::Deserialize(std::string_view text) {
  xmlDocPtr doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, "UTF-8",
                                XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING);
  if (!doc) return;  // a text that does not parse changes nothing
  const xmlNode* root = xmlDocGetRootElement(doc);
  for (const xmlNode* node = root ? root->children : nullptr; node; node = node->next) {
    if (node->type != XML_ELEMENT_NODE) continue;
    xmlChar* raw = xmlGetProp(node, reinterpret_cast<const xmlChar*>("value"));
    std::string value = raw ? reinterpret_cast<const char*>(raw) : "";
    xmlFree(raw);
    const std::string_view name = reinterpret_cast<const char*>(node->name);
    if (name == "DocFolder")
      doc_folder_ = std::move(value);
    else if (name == "FileName")
      file_name_ = std::move(value);
    else if (name == "JobFolder")
      job_folder_ = std::move(value);
    else if (name == "RootFolder")
      root_folder_ = std::move(value);
    else if (name == "TaskFolder")
      task_folder_ = std::move(value);
  }
  xmlFreeDoc(doc);
}

}  // namespace gw
