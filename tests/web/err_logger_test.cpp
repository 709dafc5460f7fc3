#include "web/err_logger.h"

#include <gtest/gtest.h>

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "infra/log_files.h"
#include "support/http_server.h"
#include "support/test_support.h"

namespace gw::web {
namespace {

// A loopback error log server that keeps the fields of every report posted to it.
class WebReportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    server_.Http().Post(kErrorReportPath,
                        [this](const httplib::Request& req, httplib::Response& res) {
                          std::lock_guard lock(mutex_);
                          std::map<std::string, std::string> fields;
                          for (const auto& [name, value] : req.params) fields[name] = value;
                          posted_.push_back(fields);
                          res.set_content("thanks", "text/plain");
                        });
    server_.Start(2);
    SetReportOptions(
        [this](const std::string& name) -> Variant {
          auto it = options_.find(name);
          return it == options_.end() ? Variant() : Variant(it->second);
        },
        [this](const std::string& name, const std::string& value) { options_[name] = value; });
    SetActiveForm("run");
    InstallWebErrorReporting();
  }
  void TearDown() override {
    SetWebReportSender(nullptr);
    SetReportOptions(nullptr, nullptr);
    SetActiveForm("");
  }
  std::vector<std::map<std::string, std::string>> Posted() {
    std::lock_guard lock(mutex_);
    return posted_;
  }
  // A failure with `value` as the failing call's argument, reported at the host's top level.
  Error Fail(const std::string& value = "it's <b>=1</b>",
             const std::string& description = "The server name could not be resolved",
             const std::string& position = "main") {
    try {
      ReportAs("Task.Execute(Name)", Args(value),
               [&] { throw Error(0x80072EE7, "HttpTransport.Send", description); });
    } catch (...) {
      return ReportError(false, false, "Host.Main(Command)", Args(std::string("run")), position);
    }
    ADD_FAILURE() << "no failure";
    return Error(0, "", "");
  }

  gw::testing::ScopedHome home_;
  gw::testing::LoopbackHttpServer server_;
  std::mutex mutex_;
  std::vector<std::map<std::string, std::string>> posted_;
  std::map<std::string, std::string> options_;
};

TEST_F(WebReportTest, NothingIsPostedUntilTheUserTurnsItOnAndNamesAServer) {
  options_[report_option::kErrorLogServer] = server_.Url("");
  Fail();  // the option is unset: off
  options_[report_option::kEnableWebErrorReporting] = "False";
  Fail();
  options_[report_option::kEnableWebErrorReporting] = "True";
  options_.erase(report_option::kErrorLogServer);
  Fail();  // on, but no server named
  EXPECT_TRUE(Posted().empty());
  EXPECT_FALSE(std::filesystem::exists(LogDir() / log_file::kWebSink));
}

TEST_F(WebReportTest, TheFormReachesTheServerWithEveryField) {
  options_[report_option::kEnableWebErrorReporting] = "True";
  options_[report_option::kErrorLogServer] = server_.Url("/");
  const Error e = Fail();
  const auto posted = Posted();
  ASSERT_EQ(posted.size(), 1u);
  const auto& f = posted[0];
  EXPECT_EQ(f.at("appName"), "Gleanwright");
  EXPECT_EQ(f.at("version"), ApplicationVersion());
  EXPECT_EQ(f.at("activeForm"), "run");
  EXPECT_EQ(f.at("errNumber"), "-2147012889");
  EXPECT_EQ(f.at("errSource"), "HttpTransport.Send");
  EXPECT_EQ(f.at("position"), "main");
  EXPECT_EQ(f.at("errDescription"), "The server name could not be resolved");
  EXPECT_EQ(f.at("userInfo"), "");
  EXPECT_EQ(f.at("platformInfo"), PlatformInfo());
  // The report arrives whole: quotes, markup and "=" included.
  EXPECT_EQ(f.at("otherInfo"), e.Report());
  EXPECT_NE(e.Report().find("    Value Of Name:'it's <b>=1</b>'\n"), std::string::npos);
  EXPECT_EQ(f.size(), 10u);

  const std::string sink = gw::testing::ReadFile(LogDir() / log_file::kWebSink);
  EXPECT_NE(sink.find("\"-2147012889\", \"HttpTransport.Send\""), std::string::npos) << sink;
  EXPECT_NE(sink.find("\"sent\"\n"), std::string::npos) << sink;
}

TEST_F(WebReportTest, ValuesWithEscapesAndSpacesArriveUnchanged) {
  options_[report_option::kEnableWebErrorReporting] = "True";
  options_[report_option::kErrorLogServer] = server_.Url("/");
  // Texts that a form encoding could alter: an escape-like "%41", a lone "%", "&", "+", "=",
  // non-ASCII letters and spaces at the ends.
  const std::string description = "  Disk 100% full & rising: a+b=c, %41 caf\xC3\xA9 \xE2\x82\xAC ";
  const std::string value = " 50% off + more=less & x ";
  const Error e = Fail(value, description, "%POS%");
  const auto posted = Posted();
  ASSERT_EQ(posted.size(), 1u);
  const auto& f = posted[0];
  EXPECT_EQ(f.at("errDescription"), description);
  EXPECT_EQ(f.at("position"), "%POS%");
  EXPECT_EQ(f.at("otherInfo"), e.Report());
  EXPECT_NE(e.Report().find("    Value Of Name:'" + value + "'\n"), std::string::npos)
      << e.Report();
  EXPECT_NE(e.Report().find(description), std::string::npos);
  EXPECT_EQ(f.size(), 10u);
}

TEST_F(WebReportTest, AServerThatIsDownChangesNothingForTheFailure) {
  options_[report_option::kEnableWebErrorReporting] = "True";
  options_[report_option::kErrorLogServer] =
      "http://127.0.0.1:" + std::to_string(gw::testing::UnusedLoopbackPort());
  const Error e = Fail();
  EXPECT_EQ(e.Number(), 0x80072EE7u);
  EXPECT_NE(gw::testing::ReadFile(LogDir() / log_file::kErrors).find(e.Report()),
            std::string::npos);
  EXPECT_NE(gw::testing::ReadFile(LogDir() / log_file::kWebSink).find("\"not sent\""),
            std::string::npos);
}

}  // namespace
}  // namespace gw::web
