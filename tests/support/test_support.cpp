#include "support/test_support.h"

#include <linux/capability.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

namespace gw::testing {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "gwtest-XXXXXX").string();
  if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

ScopedHome::ScopedHome() {
  if (const char* old = std::getenv("GLEANWRIGHT_HOME")) {
    old_ = old;
    had_old_ = true;
  }
  ::setenv("GLEANWRIGHT_HOME", dir_.Path().c_str(), 1);
}

ScopedHome::~ScopedHome() {
  if (had_old_) {
    ::setenv("GLEANWRIGHT_HOME", old_.c_str(), 1);
  } else {
    ::unsetenv("GLEANWRIGHT_HOME");
  }
}

namespace {

constexpr unsigned kOverrides = (1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH);

bool SetOverrides(bool on) {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2]{};
  if (::syscall(SYS_capget, &header, data) != 0) return false;
  if (on) {
    data[0].effective |= kOverrides & data[0].permitted;
  } else {
    data[0].effective &= ~kOverrides;
  }
  return ::syscall(SYS_capset, &header, data) == 0;
}

}  // namespace

PermissionsBind::PermissionsBind() {
  if (::geteuid() != 0) return;
  if (!SetOverrides(false)) throw std::runtime_error("cannot drop the file-permission overrides");
  dropped_ = true;
}

PermissionsBind::~PermissionsBind() {
  if (dropped_) SetOverrides(true);
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void WriteFile(const std::filesystem::path& path, const std::string& content) {
  if (path.has_parent_path()) std::filesystem::create_directories(path.parent_path());
  std::ofstream out(path, std::ios::binary);
  if (!out) throw std::runtime_error("cannot write " + path.string());
  out << content;
}

std::filesystem::path SourceDir() {
  if (const char* s = std::getenv("GW_SOURCE_DIR")) return s;
  return GW_SOURCE_DIR_DEFAULT;
}

std::filesystem::path BinaryDir() {
  if (const char* s = std::getenv("GW_BINARY_DIR")) return s;
  return GW_BINARY_DIR_DEFAULT;
}

std::string RunOpenpyxlScript(const std::string& script) {
  static const bool available =
      std::system("/usr/bin/python3 -c 'import openpyxl' >/dev/null 2>&1") == 0;
  if (!available) {
    ADD_FAILURE() << "this test reads and writes workbooks with python3 and openpyxl, which are "
                     "not installed: scripts/install-deps.sh installs python3-openpyxl";
    return {};
  }
  TempDir dir;
  const auto file = dir / "script.py";
  WriteFile(file, script);
  std::string out;
  FILE* p = ::popen(("/usr/bin/python3 " + file.string() + " 2>&1").c_str(), "r");
  char buf[4096];
  while (p && std::fgets(buf, sizeof buf, p)) out += buf;
  if (p) ::pclose(p);
  return out;
}

Error CaughtError(const std::function<void()>& call) {
  try {
    call();
  } catch (const Error& e) {
    return e;
  }
  ADD_FAILURE() << "no failure was raised";
  return Error(0, "", "");
}

void ExpectFailures(const std::vector<ExpectedFailure>& failures) {
  for (const ExpectedFailure& f : failures) {
    SCOPED_TRACE(f.source);
    const Error e = CaughtError(f.raise);
    EXPECT_EQ(e.Number(), f.number);
    EXPECT_EQ(e.Source(), f.source);
    EXPECT_EQ(e.Description(), f.text);
  }
}

bool WaitFor(const std::function<bool()>& done, std::chrono::seconds limit) {
  const auto until = std::chrono::steady_clock::now() + limit;
  while (std::chrono::steady_clock::now() < until) {
    if (done()) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return done();
}

}  // namespace gw::testing
