// gleanwright import: stores the datapages and packages of a file that 'export' wrote (or a
// person wrote the same way), in one transaction; importing it again updates them.
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>

#include "commands.h"
#include "engine/exchange.h"
#include "platform/error.h"
#include "platform/paths.h"

namespace gw::app {
namespace {

int RunImport(const std::string& file) {
  // A folder, a named pipe or a device is not opened.
  if (const FileCheck check = CheckDocumentFile(file); !check.Ok()) {
    throw Error(errnum::kFileNotFound, "gleanwright import",
                "Cannot read " + file + ": " + check.reason + ".");
  }
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Error(errnum::kFileNotFound, "gleanwright import", "Cannot read " + file + ".");
  std::ostringstream text;
  text << in.rdbuf();
  for (const auto& imported : exchange::Import(text.str(), file)) {
    std::cout << (imported.created ? "Created " : "Updated ") << imported.kind << " "
              << imported.name << " (" << imported.id << ")\n";
  }
  return 0;
}

CommandAction SetUpImport(CLI::App& cmd) {
  auto file = std::make_shared<std::string>();
  cmd.add_option("FILE", *file, "The file to import")->required();
  return [file] { return RunImport(*file); };
}

const CommandRegistration kImport(
    41, "import", SetUpImport,
    "Store the datapages and packages of a file written by 'export' (or by hand in the same form); "
    "objects keep their ids, so importing a file again updates them. A file with a fault is "
    "refused with its line, and nothing is stored");

}  // namespace
}  // namespace gw::app
