#include "infra/error_report.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "infra/computer_name.h"
#include "infra/log_files.h"
#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "platform/db/report_capture.h"
#include "platform/document_file.h"
#include "platform/report_connection_string.h"
#include "platform/stream.h"
#include "support/test_support.h"

namespace gw {
namespace {

// Options in memory, installed as the host's reader and writer for one test; captures what is
// shown and sent.
class ReportHarness {
 public:
  ReportHarness() {
    SetReportOptions(
        [this](const std::string& name) -> Variant {
          auto it = options.find(name);
          return it == options.end() ? Variant() : Variant(it->second);
        },
        [this](const std::string& name, const std::string& value) { options[name] = value; });
    SetReportShower([this](const Error&, const std::string& report) { shown.push_back(report); });
    SetWebReportSender([this](const WebReport& r) { sent.push_back(r); });
    SetActiveForm("run");
    SetLogLimits(LogLimits{});
  }
  ~ReportHarness() {
    SetReportOptions(nullptr, nullptr);
    SetReportShower(nullptr);
    SetWebReportSender(nullptr);
    SetActiveForm("");
    ReloadLogLimits();
  }
  std::string LogFile() const {
    const auto path = LogDir() / log_file::kErrors;
    return std::filesystem::exists(path) ? testing::ReadFile(path) : std::string();
  }

  testing::ScopedHome home;
  std::map<std::string, std::string> options;
  std::vector<std::string> shown;
  std::vector<WebReport> sent;
};

void LoadRow(const std::string& table, long row) {
  ReportAs("D_Rows.LoadRow(Table,Row)", Args(table, row), [&] {
    Error e(0x80040E37, "SQLite", "no such table: " + table);
    e.SetSystemError(ENOENT);
    throw e;
  });
}
void LoadPage(const std::string& page) {
  ReportAs("DataPage.Load(Page,Xml)", Args(page, std::string("<dp><e a='1'/></dp>")),
           [&] { LoadRow("pages", 7); });
}

// The host's top level, as the command line has it.
Error RunHost(const std::function<void()>& body) {
  try {
    body();
  } catch (...) {
    return ReportError(false, true, "Host.Main(Command)", Args(std::string("run x")));
  }
  ADD_FAILURE() << "no failure";
  return Error(0, "", "");
}

TEST(ErrorReport, AFailureThreeLevelsDeepGivesOneReportLaidOutInFull) {
  ReportHarness h;
  const Error e = RunHost([] { LoadPage("p1"); });
  EXPECT_EQ(e.Number(), 0x80040E37u);
  EXPECT_EQ(e.Description(), "no such table: pages");

  const std::string t = e.Report();
  const DateTime w = e.FirstSeen();
  char time[32];
  std::snprintf(time, sizeof time, "%02d/%02d/%02d %02d:%02d:%02d", w.Month(), w.Day(),
                w.Year() % 100, w.Hour(), w.Minute(), w.Second());
  const std::string dashes(100, '-');
  const std::string expected =
      "no such table: pages \n"
      "  Time='" +
      std::string(time) + "' App='Gleanwright:" + ApplicationVersion() + "' ADO-version='" +
      db::DatabaseLayerVersion() + "' Computer='" + ComputerName::Get_ComputerName() +
      "' \n"
      "  PlatformInfo='" +
      PlatformInfo() +
      "' \n"
      "  Active Form='run' \n"
      "  Method: D_Rows.LoadRow \n"
      "  Number: -2147217865 = &H80040E37 = vbObjectError + 3639 = ERRMAP_APP_FIRST - 1559 \n"
      "  Source: SQLite \n"
      "  Description: no such table: pages\n"
      "   Additional Info:  \n"
      "  API Error: (2) No such file or directory\n"
      "  Call Stack: \n"
      "    D_Rows.LoadRow(Table,Row)\n"
      "    Value Of Table:'pages'\n"
      "    Value Of Row:7\n" +
      dashes +
      "\n"
      "    DataPage.Load(Page,Xml)\n"
      "    Value Of Page:'p1'\n"
      "    Value Of Xml:{Text}\n"
      "      <Xml>\n"
      "        <dp>\n"
      "        <e a='1'/>\n"
      "        </dp>\n"
      "      </Xml>\n" +
      dashes +
      "\n"
      "    Host.Main(Command)\n"
      "    Value Of Command:'run x'\n" +
      dashes + "\n";
  EXPECT_EQ(t, expected);

  // Shown (not a log-only number), logged once with two line ends, not sent (off by default).
  ASSERT_EQ(h.shown.size(), 1u);
  EXPECT_EQ(h.shown[0], t);
  EXPECT_EQ(h.LogFile(), t + "\n\n");
  EXPECT_TRUE(h.sent.empty());
}

TEST(ErrorReport, APercentInAValueIsNeverReadAsAPlaceholder) {
  EXPECT_EQ(FillReportTemplate("%Descr% at %Time%%nl%",
                               {{"Descr", "100% of %Time% and %nl%"}, {"Time", "9:00"}}),
            "100% of %Time% and %nl% at 9:00\n");
  ReportHarness h;
  const Error e = RunHost([] { throw Error(0x80004005, "x", "50% done, %Comp%"); });
  EXPECT_EQ(e.Report().rfind("50% done, %Comp% \n", 0), 0u) << e.Report();
}

TEST(ErrorReport, NumbersAreWrittenRelativeToBothBases) {
  const struct {
    ErrorNumber n;
    const char* line;
  } cases[] = {
      {5, "  Number: 5 = &H5 = vbObjectError + 2147221509 = ERRMAP_APP_FIRST + 2147216311 \n"},
      {errnum::kErrGeneral,
       "  Number: -2147216306 = &H8004144E = vbObjectError + 5198 = ERRMAP_APP_FIRST + 0 = "
       "ERR_GENERAL\n"},
      {0x80004005,
       "  Number: -2147467259 = &H80004005 = vbObjectError - 245755 = ERRMAP_APP_FIRST - "
       "250953 \n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.n);
    Error e(c.n, "s", "d");
    e.AddCallStackLine("A.B");
    EXPECT_NE(BuildErrorReport(e).find(c.line), std::string::npos) << BuildErrorReport(e);
  }
}

TEST(ErrorReport, AnApplicationErrorBuildsNoReportAndIsNotLogged) {
  ReportHarness h;
  const ErrorNumber planned = errnum::kAppRangeFirst + 10;
  const Error e = RunHost([&] {
    ReportAs("Job.Save(Name)", Args(std::string("n")),
             [&] { throw Error(planned, "Job.Save", "A package of that name exists."); });
  });
  EXPECT_EQ(e.Number(), planned);
  EXPECT_EQ(e.Description(), "A package of that name exists.");
  EXPECT_EQ(e.Report(), "");
  EXPECT_EQ(h.LogFile(), "");
  ASSERT_EQ(h.shown.size(), 1u);
  EXPECT_EQ(h.shown[0], "");
}

TEST(ErrorReport, ALogOnlyErrorIsLoggedAndSentButNotShown) {
  ReportHarness h;
  h.options[report_option::kEnableWebErrorReporting] = "True";
  const Error e = RunHost([] { throw Error(errnum::kInvalidProcedureCall, "x", "Invalid call"); });
  EXPECT_TRUE(h.shown.empty());
  EXPECT_NE(h.LogFile().find("Invalid call"), std::string::npos);
  ASSERT_EQ(h.sent.size(), 1u);
  EXPECT_EQ(h.sent[0].err_number, "5");
  EXPECT_EQ(h.sent[0].other_info, e.Report());
  // The first failure stored the default list.
  EXPECT_EQ(h.options[report_option::kLogOnlyErrors], kDefaultLogOnlyErrors);

  // A list of the user's own replaces it, compared as Long decimal text.
  h.options[report_option::kLogOnlyErrors] = "53|-2147467259";
  EXPECT_TRUE(IsLogOnlyError(0x80004005));
  EXPECT_TRUE(IsLogOnlyError(53));
  EXPECT_FALSE(IsLogOnlyError(5));
}

TEST(ErrorReport, RaisingAgainWritesNothingAndKeepsTheNumber) {
  ReportHarness h;
  h.options[report_option::kEnableWebErrorReporting] = "True";
  const Error e = testing::CaughtError([] {
    try {
      throw Error(0x800A0035, "x", "gone");
    } catch (...) {
      ReportError(true, false, "Doc.Open(Path)", Args(std::string("/a")));
    }
  });
  EXPECT_EQ(e.Number(), 0x800A0035u);
  ASSERT_EQ(e.Frames().size(), 1u);
  EXPECT_NE(e.Report().find("    Value Of Path:'/a'\n"), std::string::npos);
  EXPECT_EQ(h.LogFile(), "");
  EXPECT_TRUE(h.sent.empty());
  EXPECT_TRUE(h.shown.empty());
}

TEST(ErrorReport, AHandlerThatLostTheErrorReportsErrGeneral) {
  ReportHarness h;
  const Error e = ErrorIn("Task.Run", Args(), report_flag::kBuildReport);
  EXPECT_EQ(e.Number(), errnum::kErrGeneral);
  EXPECT_EQ(e.Description(), kLostErrorText);
  EXPECT_NE(e.Report().find("= ERR_GENERAL\n"), std::string::npos);
  EXPECT_EQ(PreservedError(), nullptr);
}

TEST(ErrorReport, APreservedErrorSurvivesCodeThatClearsTheCurrentOne) {
  ReportHarness h;
  try {
    throw Error(0x80070005, "x", "Access is denied");
  } catch (...) {
    ErrPreserve();
  }
  ASSERT_NE(PreservedError(), nullptr);
  // Outside the catch block: the preserved error is the one reported.
  const Error e = ErrorIn("Task.Run", Args(), report_flag::kBuildReport);
  EXPECT_EQ(e.Number(), 0x80070005u);
  EXPECT_EQ(PreservedError(), nullptr);
}

TEST(ErrorReport, AReceivedReportIsKeptAndTheFramesGoBelowIt) {
  Error e(0x80004005, kReportMarkerSource, "earlier report\n  Call Stack: \n    Child.Run\n");
  e.AddCallStackLine("Parent.Run");
  EXPECT_EQ(BuildErrorReport(e),
            "earlier report\n  Call Stack: \n    Child.Run\n"
            "  Call Stack: \n    Parent.Run\n" +
                std::string(100, '-') + "\n");
}

TEST(ErrorReport, TheDatabaseBlockShowsTheMaskedStringStateErrorsAndRelease) {
  ReportHarness h;
  const std::string cs = "Provider=SQLite;Data Source=" + (h.home.Path() / "r.sqlite").string() +
                         ";Password=topsecret";
  auto cn = db::Connection::Create();
  cn->Open(cs);
  cn->Execute("CREATE TABLE t (a INTEGER)");
  cn->BeginTrans();
  cn->Execute("INSERT INTO t VALUES (1)");
  const Error e = RunHost([&] {
    ReportAs("D_Job.Save(Sql)", Args(std::string("INSERT")).Db(cn),
             [&] { cn->Execute("INSERT INTO missing VALUES (1)"); });
  });
  const std::string& r = e.Report();
  EXPECT_EQ(r.find("topsecret"), std::string::npos);
  EXPECT_NE(r.find("  ADO Info: \n    ADO Version:   " + db::DatabaseLayerVersion() +
                   "\n    DbObject:      Connection\n    Conn. String: '" +
                   db::MaskPasswords(cn->ConnectionString()) +
                   "'\n    Conn. State:   adStateOpen\n    Error:         "),
            std::string::npos)
      << r;
  EXPECT_NE(r.find("missing"), std::string::npos);
  EXPECT_NE(r.find("    Transaction: Attempt to call RollbackTrans succeeded\n"),
            std::string::npos);
  EXPECT_FALSE(cn->InTransaction());
  EXPECT_EQ((*cn->Execute("SELECT COUNT(*) FROM t"))[0L].Value().ToLong(), 0);
}

TEST(ErrorReport, AFailedSystemCallGivesTheApiErrorLine) {
  ReportHarness h;
  // A path below a regular file fails with ENOTDIR whoever runs the test.
  const auto file = h.home.Path() / "plain.txt";
  { std::ofstream(file) << "x"; }
  const std::string below = (file / "doc.html").string();
  const std::pair<const char*, std::function<void()>> calls[] = {
      {"saving a stream",
       [&] {
         Stream s;
         s.Open();
         s.Write("<p>page</p>");
         ReportAs("Tests.Save(Path)", Args(below), [&] { s.SaveToFile(below); });
       }},
      {"reading a document",
       [&] {
         ReportAs("Tests.Read(Path)", Args(below), [&] { ReadFileBytes(below, "Tests.Read"); });
       }},
  };
  for (const auto& [what, call] : calls) {
    SCOPED_TRACE(what);
    const Error e = RunHost(call);
    EXPECT_EQ(e.SystemError(), ENOTDIR);
    const std::string line =
        "  API Error: (" + std::to_string(ENOTDIR) + ") " + std::strerror(ENOTDIR) + "\n";
    // Beneath the header, before the call stack.
    const std::size_t at = e.Report().find(line);
    ASSERT_NE(at, std::string::npos) << e.Report();
    EXPECT_LT(e.Report().find("  Additional Info: "), at);
    EXPECT_GT(e.Report().find("  Call Stack: "), at);
    EXPECT_NE(e.Report().find("    Value Of Path:'" + below + "'\n"), std::string::npos);
  }
  // A failure that is no system call's has no such line.
  const Error plain = RunHost([] { throw Error(0x80040E14, "Tests", "bad statement"); });
  EXPECT_EQ(plain.Report().find("  API Error: "), std::string::npos);
}

TEST(ErrorReport, AConnectionStringArgumentIsShownWithoutItsPassword) {
  ReportHarness h;
  const std::string cs = "Provider=MariaDB;Server=127.0.0.1;User ID=gw;Password=topsecret";
  const Variant as_variant(std::string("Provider=SQLite;PWD='more secret';Data Source=x"));
  const Error e = RunHost([&] {
    ReportAs("Tests.Open(CnStr,Other)",
             Args(AsConnectionString(cs), AsConnectionString(as_variant)),
             [] { throw Error(0x80004005, "Tests", "cannot open"); });
  });
  const std::string& r = e.Report();
  EXPECT_EQ(r.find("topsecret"), std::string::npos) << r;
  EXPECT_EQ(r.find("more secret"), std::string::npos) << r;
  EXPECT_NE(r.find("    Value Of CnStr:'" + db::MaskPasswords(cs) + "'\n"), std::string::npos) << r;
  EXPECT_NE(r.find("    Value Of Other:'Provider=SQLite;PWD="), std::string::npos) << r;
  EXPECT_NE(r.find("Server=127.0.0.1;User ID=gw"), std::string::npos) << r;
}

TEST(LogFiles, TheLogRotatesBySizeAndKeepsOnlyTheNewestFiles) {
  testing::ScopedHome home;
  const auto file = LogDir() / log_file::kErrors;
  const LogLimits limits{100, 2};
  for (int i = 0; i < 12; ++i) {
    AppendToLog(file, "entry " + std::to_string(i) + std::string(30, '.') + "\n", limits);
  }
  // 38 bytes per entry: two per file, so 0..5 were rotated away and 6..11 remain in three files.
  EXPECT_TRUE(std::filesystem::exists(file.string() + ".1"));
  EXPECT_TRUE(std::filesystem::exists(file.string() + ".2"));
  EXPECT_FALSE(std::filesystem::exists(file.string() + ".3"));
  for (const std::string& name : {file.string(), file.string() + ".1", file.string() + ".2"}) {
    EXPECT_LE(std::filesystem::file_size(name), 100u) << name;
  }
  EXPECT_EQ(testing::ReadFile(file).substr(0, 8), "entry 10");
  const std::vector<std::string> tail = TailLines(file, 5);
  ASSERT_EQ(tail.size(), 5u);
  EXPECT_EQ(tail.front().substr(0, 7), "entry 7");
  EXPECT_EQ(tail.back().substr(0, 8), "entry 11");
  EXPECT_EQ(TailLines(file, 100).size(), 6u);
}

TEST(LogFiles, LimitsComeFromTheOptionsAndBadValuesKeepTheDefaults) {
  ReportHarness h;
  h.options[log_option::kMaxKB] = "2";
  h.options[log_option::kKept] = "1";
  ReloadLogLimits();
  EXPECT_EQ(CurrentLogLimits().max_bytes, 2048u);
  EXPECT_EQ(CurrentLogLimits().kept, 1);
  h.options[log_option::kMaxKB] = "lots";
  h.options[log_option::kKept] = "-3";
  ReloadLogLimits();
  EXPECT_EQ(CurrentLogLimits().max_bytes, LogLimits{}.max_bytes);
  EXPECT_EQ(CurrentLogLimits().kept, LogLimits{}.kept);
}

TEST(LogFiles, TraceAndWebSinkLinesHaveTheirForms) {
  testing::ScopedHome home;
  Trace("FirstRun", "After BuildCnStr");
  const std::string trace = testing::ReadFile(LogDir() / log_file::kTrace);
  ASSERT_EQ(trace.size(), std::string("mm/dd/yyyy hh:nn:ss [FirstRun] After BuildCnStr\n").size());
  EXPECT_EQ(trace.substr(19), " [FirstRun] After BuildCnStr\n");
  EXPECT_EQ(trace[2], '/');
  EXPECT_TRUE(AppendLogLine(home.Path() / "sink", {"a", "b", "c", "d", "e", "f", "g", "h"}));
  const std::string line = testing::ReadFile(home.Path() / "sink" / log_file::kWebSink);
  EXPECT_EQ(line.substr(19), ", \"a\", \"b\", \"c\", \"d\", \"e\", \"f\", \"g\", \"h\"\n");
}

TEST(LogFiles, AFailedWriteCarriesTheSystemsError) {
  testing::ScopedHome home;
  testing::PermissionsBind bind;
  const auto dir = home.Path() / "ro";
  std::filesystem::create_directories(dir);
  std::filesystem::permissions(
      dir, std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
  const Error e = testing::CaughtError([&] { AppendToLog(dir / "x.txt", "x", LogLimits{}); });
  EXPECT_EQ(e.Number(), errnum::kDeviceIOError);
  EXPECT_EQ(e.SystemError(), EACCES);
  EXPECT_FALSE(AppendReportToLogFile(""));
  std::filesystem::permissions(dir, std::filesystem::perms::owner_all);
}

}  // namespace
}  // namespace gw
