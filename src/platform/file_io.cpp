#include "platform/file_io.h"

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

}  // namespace gw
