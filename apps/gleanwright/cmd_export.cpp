// gleanwright export: a datapage, or a package with the datapages its tasks use, as one XML file
// to keep in version control or to import on another machine.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>

#include "commands.h"
#include "engine/exchange.h"
#include "platform/error.h"

namespace gw::app {
namespace {

// Writes `text` to `path` through a temporary file beside it, so a failed write leaves no half
// file behind.
void WriteWhole(const std::filesystem::path& path, const std::string& text) {
  const std::filesystem::path partial = path.string() + ".partial";
  {
    std::ofstream out(partial, std::ios::binary | std::ios::trunc);
    out << text;
    out.close();
    if (!out) {
      std::error_code ignored;
      std::filesystem::remove(partial, ignored);
      throw Error(errnum::kPathNotFound, "gleanwright export",
                  "Cannot write " + path.string() + ".");
    }
  }
  std::filesystem::rename(partial, path);
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
  } else {
    WriteWhole(o.output, result.xml);
    std::cout << "Wrote " << o.output << "\n";
  }
  return 0;
}

const CommandRegistration kExport(40, [](CLI::App& app, const GlobalOptions&,
                                         const std::function<void(int)>& set_exit) {
  auto* cmd = app.add_subcommand(
      "export",
      "Write a datapage (template), or a package with the datapages its tasks use, as one XML "
      "file that 'import' reads back; connection strings stay enciphered");
  auto options = std::make_shared<ExportOptions>();
  auto* what = cmd->add_option_group("what", "What to export (one of)");
  what->add_option("--datapage", options->datapage, "The id or display name of a datapage");
  what->add_option("--package", options->package, "The id or name of a package");
  what->require_option(1);
  cmd->add_option("-o,--output", options->output, "The file to write (default: standard output)");
  cmd->callback([options, set_exit] { set_exit(RunExport(*options)); });
});

}  // namespace
}  // namespace gw::app
