// Where the product keeps its own files.
#pragma once

#include <filesystem>

namespace gw {

// `$GLEANWRIGHT_HOME`, or `~/.local/share/gleanwright` (`$XDG_DATA_HOME/gleanwright` when that is
// set). Every file the product keeps for itself (the rules database, the settings store, key
// files, download folders by default) lives below it. Created on first use.
std::filesystem::path HomeDir();

// The running program's folder (the application's path), for files shipped beside it.
std::filesystem::path ProgramDir();

}  // namespace gw
