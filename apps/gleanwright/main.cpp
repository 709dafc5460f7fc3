// gleanwright: the command-line host of the extraction library.
#include <cstdio>
#include <iostream>
#include <string>

#include "acquire/components.h"
#include "commands.h"
#include "design/components.h"
#include "infra/error_report.h"
#include "infra/log_files.h"
#include "platform/error.h"
#include "rules/connection_string.h"
#include "rules/env_config.h"
#include "rules/settings.h"
#include "web/err_logger.h"
#include "web/web_settings.h"

namespace {

// The error dialog of the desktop hosts: the failure in one line, then its report.
void ShowReport(const gw::Error& e, const std::string& report) {
  std::cerr << "gleanwright: error " << e.NumberText() << " (" << e.Source()
            << "): " << e.Description() << "\n";
  if (!report.empty()) {
    std::cerr << report;
  } else {
    for (const auto& line : e.CallStack()) std::cerr << "  at " << line << "\n";
  }
}

// The handler at the top of the host: the report is finished, shown (unless the number is a
// log-only one: then only its first line is), appended to LogFile.txt and, when the user turned
// it on, sent to their error log server.
int ReportFailure(const std::string& command_line) {
  bool shown = false;
  gw::SetReportShower([&](const gw::Error& e, const std::string& report) {
    ShowReport(e, report);
    shown = true;
  });
  const gw::Error e =
      gw::ReportError(false, true, "gleanwright.Main(CommandLine)", gw::Args(command_line));
  if (!shown) {
    std::cerr << "gleanwright: error " << e.NumberText() << " (" << e.Source()
              << "): " << e.Description() << "\n";
    if (!e.Report().empty()) {
      std::cerr << "  (the full report is in " << (gw::LogDir() / gw::log_file::kErrors).string()
                << ")\n";
    }
  }
  return 1;
}

// What the desktop hosts did at start: the first-run tasks on a fresh machine, the start tasks
// at every other start. A failure here is reported and the command still runs (it then fails
// with its own error if it needs the rules store).
void StartUp(const std::string& command_line) {
  try {
    gw::CEnvConfig env;
    if (env.IsFirstRun()) {
      env.DoFirstRunConfigTasks();
    } else {
      env.DoStartTasks();
    }
  } catch (...) {
    ReportFailure(command_line);
  }
}

}  // namespace

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
  // So does error reporting (LogOnlyErrors, the log limits, the web report).
  gw::SetReportOptions([](const std::string& name) { return gw::Settings().GetOption(name); },
                       [](const std::string& name, const std::string& value) {
                         gw::Settings().PutOption(name, gw::Variant(value), gw::DataType::Str);
                       });
  gw::web::InstallWebErrorReporting();

  std::string command_line;
  for (int i = 1; i < argc; ++i) command_line += (i > 1 ? " " : "") + std::string(argv[i]);

  // --rules: the rules connection string for this invocation only (empty: the stored one).
  std::string rules_connection;
  app.add_option("--rules", rules_connection,
                 "Rules database connection string for this invocation only (default: the stored "
                 "one, else $GLEANWRIGHT_HOME/ZentrovoDB.sqlite)");

  // Before any command runs: --rules replaces the stored rules connection string for this run.
  // Then the start-up tasks, for every command but `log` (which must work whatever state the
  // rules store is in). The command's name is the report's "Active Form".
  app.parse_complete_callback([&] {
    gw::SetRulesConnectionOverride(rules_connection);
    const auto commands = app.get_subcommands();
    if (commands.empty()) return;
    gw::SetActiveForm(commands.front()->get_name());
    if (commands.front()->get_name() != "log") StartUp(command_line);
  });

  int exit_status = 0;
  gw::app::RegisterCommands(app, [&](int status) { exit_status = status; });

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e);
  } catch (...) {
    return ReportFailure(command_line);
  }
  if (argc == 1) {
    std::cout << app.help();
    return 0;
  }
  return exit_status;
}
