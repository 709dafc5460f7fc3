#include "platform/paths.h"

#include <unistd.h>

#include <cstdlib>
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
    throw Error(errnum::kPathNotFound, "HomeDir",
                "Cannot create the folder " + dir.string() + ": " + ec.message());
  }
  return dir;
}

std::filesystem::path ProgramDir() {
  std::error_code ec;
  const auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
  if (ec) return std::filesystem::current_path();
  return exe.parent_path();
}

}  // namespace gw
