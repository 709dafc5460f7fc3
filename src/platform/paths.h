// Where the product keeps its own files.
#pragma once

#include <filesystem>
#include <string>

namespace gw {

// `$GLEANWRIGHT_HOME`, or `~/.local/share/gleanwright` (`$XDG_DATA_HOME/gleanwright` when that is
// set). Every file the product keeps for itself (the rules database, the settings store, key
// files, download folders by default) lives below it. Created on first use.
std::filesystem::path HomeDir();

// The running program's folder (the application's path), for files shipped beside it.
std::filesystem::path ProgramDir();

// Whether the file at `path` can be read as a document, and if not, why. Looks at the file
// without opening it: a named pipe would block the reader and a device could be anything. Access
// is asked with the effective ids, with which the file would be opened.
struct FileCheck {
  enum Kind { kReadable, kMissing, kFolder, kUnreadable };
  Kind kind = kReadable;
  // The end of a sentence: "it is a folder", "it is a named pipe, which is never opened",
  // "Permission denied"; empty when readable.
  std::string reason;
  // The file's permission bits and size as it was looked at (set when readable).
  unsigned permissions = 0;
  long long size = 0;
  bool Ok() const { return kind == kReadable; }
};
FileCheck CheckDocumentFile(const std::filesystem::path& path);

}  // namespace gw
