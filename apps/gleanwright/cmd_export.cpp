// gleanwright export: a datapage, or a package with the datapages its tasks use, as one XML file
// to keep in version control or to import on another machine.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <memory>

#include "commands.h"
#include "engine/exchange.h"
#include "platform/error.h"
#include "platform/file_io.h"

namespace gw::app {
namespace {

[[noreturn]] void CannotWrite(const std::filesystem::path& path, const std::string& why) {
  throw Error(errnum::kPathNotFound, "gleanwright export",
              "Cannot write " + path.string() + ": " + why + ".");
}

// Writes `text` to `path`. A symbolic link is written through to the file it names, and a file
// that is not a regular one (a device such as /dev/stdout, a named pipe) is written in place. A
// regular file is written beside itself under a temporary name and renamed over the old one, so
// that a failed write leaves the old file as it was and no partial file behind; the new file
// keeps the old one's permissions. A folder is refused.
void WriteWhole(const std::filesystem::path& path, const std::string& text) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::file_status st = fs::status(path, ec);
  if (fs::is_directory(st)) CannotWrite(path, "it is a folder; give the name of a file in it");
  if (fs::exists(st) && !fs::is_regular_file(st)) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0 || WriteAll(fd, text) != 0) {
      const int err = errno;
      if (fd >= 0) ::close(fd);
      CannotWrite(path, std::strerror(err));
    }
    ::close(fd);
    return;
  }
  // The file a chain of links ends at, which may not exist yet.
  fs::path target = path;
  for (int hops = 0; fs::is_symlink(fs::symlink_status(target, ec)); ++hops) {
    if (hops == 40) CannotWrite(path, "its symbolic links form a loop");
    const fs::path next = fs::read_symlink(target, ec);
    if (ec) CannotWrite(path, ec.message());
    target = next.is_absolute() ? next : target.parent_path() / next;
  }
  if (target.parent_path().empty()) target = fs::path(".") / target;
  std::string partial =
      (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
  const int fd = ::mkstemp(partial.data());
  if (fd < 0) CannotWrite(path, std::strerror(errno));
  const auto give_up = [&](int err) {
    ::close(fd);
    ::unlink(partial.c_str());
    CannotWrite(path, std::strerror(err));
  };
  // The new file has the old one's permissions, or those a new file gets.
  struct stat old {};
  mode_t mode = 0;
  if (::stat(target.c_str(), &old) == 0) {
    mode = old.st_mode & 07777;
  } else {
    const mode_t mask = ::umask(0);
    ::umask(mask);
    mode = 0666 & ~mask;
  }
  if (::fchmod(fd, mode) != 0 || WriteAll(fd, text) != 0 || ::fsync(fd) != 0) give_up(errno);
  if (::close(fd) != 0) {
    const int err = errno;
    ::unlink(partial.c_str());
    CannotWrite(path, std::strerror(err));
  }
  if (::rename(partial.c_str(), target.c_str()) != 0) {
    const int err = errno;
    ::unlink(partial.c_str());
    CannotWrite(path, std::strerror(err));
  }
}

struct ExportOptions {
  std::string datapage;
  std::string package;
  std::string output;
};

int RunExport(const ExportOptions& o) {
  const exchange::ExportResult result = o.datapage.empty() ? exchange::ExportPackage(o.package)
                                                           : exchange::ExportDataPage(o.datapage);
  for (const auto& warning : result.warnings)
    std::cerr << "gleanwright: warning: " << warning << "\n";
  if (o.output.empty() || o.output == "-") {
    std::cout << result.xml;
    std::cout.flush();
    if (!std::cout) {
      throw Error(errnum::kPathNotFound, "gleanwright export", "Cannot write standard output.");
    }
  } else {
    WriteWhole(o.output, result.xml);
    std::cout << "Wrote " << o.output << "\n";
  }
  return 0;
}

CommandAction SetUpExport(CLI::App& cmd) {
  auto options = std::make_shared<ExportOptions>();
  auto* what = cmd.add_option_group("what", "What to export (one of)");
  what->add_option("--datapage", options->datapage, "The id or display name of a datapage");
  what->add_option("--package", options->package, "The id or name of a package");
  what->require_option(1);
  cmd.add_option("-o,--output", options->output,
                 "The file to write, through a symbolic link to the file it names; \"-\" or "
                 "nothing: standard output. The old file stays as it was when writing fails");
  return [options] { return RunExport(*options); };
}

const CommandRegistration kExport(
    40, "export", SetUpExport,
    "Write a datapage (template), or a package with the datapages its tasks use, as one XML file "
    "that 'import' reads back; connection strings stay enciphered");

}  // namespace
}  // namespace gw::app
