// gleanwright: the command-line host of the extraction library.
#include <cstdio>
#include <iostream>

#include "acquire/components.h"
#include "commands.h"
#include "design/components.h"
#include "platform/error.h"
#include "rules/connection_string.h"
#include "rules/settings.h"
#include "web/web_settings.h"

int main(int argc, char** argv) {
  CLI::App app{
      "gleanwright: extract structured data from web pages and local documents.\n"
      "A datapage (template) says how rows are cut out of a page; a package runs tasks that\n"
      "queue documents, apply datapages to them, and write rows into target databases."};
  app.set_version_flag("--version", std::string("gleanwright ") + GW_VERSION);
  app.require_subcommand(0, 1);

  // The classes of the upper layers that package runs make.
  gw::RegisterDesignComponents();
  gw::RegisterAcquireComponents();
  // The web client reads its settings from the rules store's settings table first.
  gw::web::SetOptionReader([](const std::string& name) { return gw::Settings().GetOption(name); });

  gw::app::GlobalOptions globals;
  app.add_option("--rules", globals.rules_connection,
                 "Rules database connection string for this invocation only (default: the stored "
                 "one, else $GLEANWRIGHT_HOME/ZentrovoDB.sqlite)");

  // Before any command runs: --rules replaces the stored rules connection string for this run.
  app.parse_complete_callback([&] { gw::SetRulesConnectionOverride(globals.rules_connection); });

  int exit_status = 0;
  gw::app::RegisterCommands(app, globals, [&](int status) { exit_status = status; });

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  } catch (const gw::Error& e) {
    std::cerr << "gleanwright: error " << e.NumberText() << " (" << e.Source()
              << "): " << e.Description() << "\n";
    for (const auto& line : e.CallStack()) std::cerr << "  at " << line << "\n";
    return 1;
  } catch (const std::exception& e) {
    std::cerr << "gleanwright: " << e.what() << "\n";
    return 1;
  }
  if (argc == 1) {
    std::cout << app.help();
    return 0;
  }
  return exit_status;
}
