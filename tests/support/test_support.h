// Helpers shared by the test programs.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/error.h"

namespace gw::testing {

// A fresh folder below the system's temporary folder, removed with everything in it when the
// object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& Path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

// Points $GLEANWRIGHT_HOME at a fresh temporary folder for the life of the object, and puts the
// old value back afterwards.
class ScopedHome {
 public:
  ScopedHome();
  ~ScopedHome();
  const std::filesystem::path& Path() const { return dir_.Path(); }

 private:
  TempDir dir_;
  std::string old_;
  bool had_old_ = false;
};

// While alive, file permissions bind this process even when it runs as the superuser (which CI
// does): the capabilities that override them are taken out of the effective set, and put back
// when the object goes. Without the superuser's rights it does nothing.
class PermissionsBind {
 public:
  PermissionsBind();
  ~PermissionsBind();
  PermissionsBind(const PermissionsBind&) = delete;
  PermissionsBind& operator=(const PermissionsBind&) = delete;

 private:
  bool dropped_ = false;
};

std::string ReadFile(const std::filesystem::path& path);
void WriteFile(const std::filesystem::path& path, const std::string& content);

// The source tree's root (for files under tests/data and examples/).
std::filesystem::path SourceDir();
// The build tree's root (for programs built beside the tests).
std::filesystem::path BinaryDir();

// Runs `script` with Debian's python3 and openpyxl (an independent reader and writer of
// workbooks) and returns what it printed, errors included. Without openpyxl the test fails and
// says what to install.
std::string RunOpenpyxlScript(const std::string& script);

// Asks `done` every 20 ms until it says yes or `limit` has passed; its last answer.
bool WaitFor(const std::function<bool()>& done, std::chrono::seconds limit);

// The failure `call` raises. When it raises none the test fails and the result has number 0.
Error CaughtError(const std::function<void()>& call);
// The number of that failure.
inline ErrorNumber FailureNumber(const std::function<void()>& call) {
  return CaughtError(call).Number();
}

// A failure a test expects: what raises it, and its number, source and text.
struct ExpectedFailure {
  std::function<void()> raise;
  ErrorNumber number;
  std::string source;
  std::string text;
};
// Checks each expected failure in turn, traced by its source.
void ExpectFailures(const std::vector<ExpectedFailure>& failures);

}  // namespace gw::testing
