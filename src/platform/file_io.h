// Writing to file descriptors, and lock files.
#pragma once

#include <filesystem>
#include <string_view>

namespace gw {

// Writes all of `bytes` to `fd`: a write that a signal interrupts is made again, and one that
// takes only part of the bytes is followed by another for the rest. 0, or the errno of the write
// that failed (EIO for a write that took nothing). `errno` is left as that write set it.
int WriteAll(int fd, std::string_view bytes) noexcept;

// An exclusive `flock` on a lock file, held while the object lives: closing the file lets go.
class FileLock {
 public:
  FileLock() = default;
  ~FileLock();
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;

  // Opens `path` (made when missing) and waits for the lock, going on when a signal interrupts
  // the wait. 0 once the lock is held; else the errno of the call that failed (`errno` is left
  // so too), with `opened` telling whether the file was open, so that locking it failed.
  int Acquire(const std::filesystem::path& path, bool& opened) noexcept;

 private:
  int fd_ = -1;
};

}  // namespace gw
