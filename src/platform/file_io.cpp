#include "platform/file_io.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace gw {

int WriteAll(int fd, std::string_view bytes) noexcept {
  while (!bytes.empty()) {
    const ssize_t n = ::write(fd, bytes.data(), bytes.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      return errno;
    }
    bytes.remove_prefix(static_cast<std::size_t>(n));
  }
  return 0;
}

FileLock::~FileLock() {
  if (fd_ >= 0) ::close(fd_);
}

int FileLock::Acquire(const std::filesystem::path& path, bool& opened) noexcept {
  opened = false;
  if (fd_ >= 0) ::close(fd_);
  fd_ = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd_ < 0) return errno;
  opened = true;
  int rc;
  do {
    rc = ::flock(fd_, LOCK_EX);
  } while (rc != 0 && errno == EINTR);
  if (rc == 0) return 0;
  const int code = errno;
  ::close(fd_);
  fd_ = -1;
  errno = code;
  return code;
}

}  // namespace gw
