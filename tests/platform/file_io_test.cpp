#include "platform/file_io.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>

#include "support/test_support.h"

namespace gw {
namespace {

void Ignore(int) {}

// Bytes that show where a piece went missing or came twice.
std::string Pattern(std::size_t size) {
  std::string bytes(size, '\0');
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i % 251);
  return bytes;
}

TEST(WriteAll, GoesOnAfterShortAndInterruptedWritesUntilEveryByteIsThrough) {
  // SIGUSR1 runs a handler that does nothing and does not restart the call it interrupted, so a
  // write that is blocked when the signal comes returns at once: with the bytes it had written so
  // far, or with EINTR when there were none.
  struct sigaction interrupting {};
  struct sigaction old {};
  interrupting.sa_handler = Ignore;
  ::sigaction(SIGUSR1, &interrupting, &old);
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  const std::string data = Pattern(std::size_t{1} << 20);  // far more than the pipe holds

  // The reader takes the bytes a few at a time and interrupts the writer after every piece.
  const pthread_t writer = ::pthread_self();
  std::string received;
  std::thread reader([&] {
    char piece[512];
    for (;;) {
      const ssize_t n = ::read(fds[0], piece, sizeof piece);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      received.append(piece, static_cast<std::size_t>(n));
      ::pthread_kill(writer, SIGUSR1);
    }
  });

  // A single plain write is cut short here: the set-up does what it is meant to.
  const ssize_t first = ::write(fds[1], data.data(), data.size());
  const int first_errno = errno;
  EXPECT_TRUE(first < static_cast<ssize_t>(data.size()))
      << "a plain write took all " << first << " bytes at once";
  if (first < 0) {
    EXPECT_EQ(first_errno, EINTR);
  }

  const std::size_t sent = first > 0 ? static_cast<std::size_t>(first) : 0;
  const int result = WriteAll(fds[1], std::string_view(data).substr(sent));
  ::close(fds[1]);
  reader.join();
  ::close(fds[0]);
  ::sigaction(SIGUSR1, &old, nullptr);

  EXPECT_EQ(result, 0);
  ASSERT_EQ(received.size(), data.size());
  EXPECT_TRUE(received == data) << "the bytes arrived out of order or changed";
}

TEST(WriteAll, ReportsTheErrnoOfAWriteThatFails) {
  const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(WriteAll(fd, "text"), EBADF);
  EXPECT_EQ(errno, EBADF);
  ::close(fd);
  EXPECT_EQ(WriteAll(fd, ""), 0) << "nothing to write needs no write";
}

TEST(FileLock, HoldsTheFileAgainstEveryOtherOpenerUntilItGoes) {
  testing::TempDir dir;
  const std::filesystem::path path = dir / "store.lock";
  // Another open of the same file: `flock` locks of two opens conflict, even in one process.
  const auto another_gets_it = [&] {
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    const bool got = fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;
    if (fd >= 0) ::close(fd);
    return got;
  };
  {
    FileLock lock;
    bool opened = false;
    ASSERT_EQ(lock.Acquire(path, opened), 0);
    EXPECT_TRUE(opened);
    EXPECT_TRUE(std::filesystem::exists(path)) << "a missing lock file is made";
    EXPECT_FALSE(another_gets_it());
  }
  EXPECT_TRUE(another_gets_it()) << "the lock goes with the object";

  FileLock nowhere;
  bool opened = true;
  EXPECT_EQ(nowhere.Acquire(dir / "no such folder" / "store.lock", opened), ENOENT);
  EXPECT_FALSE(opened) << "the file could not be opened, so locking was never tried";
}

}  // namespace
}  // namespace gw
