#include "platform/paths.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "platform/error.h"

namespace gw {

std::filesystem::path HomeDir() {
  std::filesystem::path dir;
  if (const char* home = std::getenv("GLEANWRIGHT_HOME"); home && *home) {
    dir = home;
  } else if (const char* xdg = std::getenv("XDG_DATA_HOME"); xdg && *xdg) {
    dir = std::filesystem::path(xdg) / "gleanwright";
  } else if (const char* user_home = std::getenv("HOME"); user_home && *user_home) {
    dir = std::filesystem::path(user_home) / ".local" / "share" / "gleanwright";
  } else {
    dir = std::filesystem::temp_directory_path() / "gleanwright";
  }
  std::error_code ec;
  std::filesystem::create_directories(dir, ec);
  if (ec) {
    Error e(errnum::kPathNotFound, "HomeDir",
            "Cannot create the folder " + dir.string() + ": " + ec.message());
    e.SetSystemError(ec.value());
    throw e;
  }
  return dir;
}

std::filesystem::path ProgramDir() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return std::filesystem::current_path();
  return exe.parent_path();
}

FileCheck CheckDocumentFile(const std::filesystem::path& path) {
  const auto fail = [](FileCheck::Kind kind, std::string reason) {
    return FileCheck{kind, std::move(reason)};
  };
  if (path.empty()) return fail(FileCheck::kMissing, "the file does not exist");
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) {
    const int err = errno;
    struct stat link {};
    if (err == ELOOP) return fail(FileCheck::kUnreadable, "its symbolic links form a loop");
    if (err == ENOENT && ::lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
      std::error_code ec;
      const auto target = std::filesystem::read_symlink(path, ec);
      return fail(FileCheck::kUnreadable, "it is a symbolic link to " +
                                              (ec ? std::string("a file") : target.string()) +
                                              ", which does not exist");
    }
    if (err == ENOENT || err == ENOTDIR)
      return fail(FileCheck::kMissing, "the file does not exist");
    return fail(FileCheck::kUnreadable, std::strerror(err));
  }
  if (S_ISDIR(st.st_mode)) {
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK | X_OK, AT_EACCESS) != 0) {
      return fail(FileCheck::kFolder, std::string("it is a folder that cannot be listed (") +
                                          std::strerror(errno) + ")");
    }
    return fail(FileCheck::kFolder, "it is a folder");
  }
  if (S_ISFIFO(st.st_mode)) {
    return fail(FileCheck::kUnreadable, "it is a named pipe, which is never opened");
  }
  if (S_ISCHR(st.st_mode) || S_ISBLK(st.st_mode)) {
    return fail(FileCheck::kUnreadable, "it is a device, which is never opened");
  }
  if (S_ISSOCK(st.st_mode)) {
    return fail(FileCheck::kUnreadable, "it is a socket, which is never opened");
  }
  if (!S_ISREG(st.st_mode)) return fail(FileCheck::kUnreadable, "it is not a regular file");
  if (::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) != 0) {
    return fail(FileCheck::kUnreadable, std::strerror(errno));
  }
  FileCheck readable;
  readable.permissions = st.st_mode & 07777;
  readable.size = static_cast<long long>(st.st_size);
  return readable;
}

}  // namespace gw
