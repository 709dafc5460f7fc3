#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "platform/error.h"
#include "support/test_support.h"

namespace gw {
namespace {

// A type that counts how often a report asked for its value.
struct Counted {
  int* formatted;
};
ReportValue ReportValueOf(const Counted& c) {
  ++*c.formatted;
  return report_value::Text("counted");
}

struct Shape : Object {
  std::string TypeName() const override { return "Shape"; }
};

TEST(ReportValue, EachTypeIsWrittenAsReportsShowIt) {
  const std::vector<int> list{1, 2};
  const std::shared_ptr<Shape> none;
  const auto shape = std::make_shared<Shape>();
  const std::optional<int> unset;
  const struct {
    const char* what;
    ReportValue got;
    const char* text;
    bool markup;
  } cases[] = {
      {"text", ToReportValue(std::string("a'b")), "'a'b'", false},
      {"empty text", ToReportValue(std::string()), "''", false},
      {"literal", ToReportValue("lit"), "'lit'", false},
      {"bool", ToReportValue(true), "True", false},
      {"long", ToReportValue(-42L), "-42", false},
      {"unsigned", ToReportValue(7u), "7", false},
      {"double", ToReportValue(2.5), "2.5", false},
      {"variant empty", ToReportValue(Variant()), "{Empty}", false},
      {"variant null", ToReportValue(Variant(kNull)), "{Null}", false},
      {"variant text", ToReportValue(Variant("x")), "'x'", false},
      {"variant long", ToReportValue(Variant(12)), "12", false},
      {"variant object", ToReportValue(Variant(ObjectPtr(shape))), "{Shape}", false},
      {"date", ToReportValue(DateTime::FromParts(2024, 3, 5, 7, 8, 9)), "03-05-2024 07:08:09",
       false},
      {"list", ToReportValue(list), "{Array}", false},
      {"null object", ToReportValue(none), "{Nothing}", false},
      {"object", ToReportValue(shape), "{Shape}", false},
      {"unset optional", ToReportValue(unset), "{Empty}", false},
      {"markup text", ToReportValue(std::string("<a>1</a>")), "{Text}", true},
      {"marked as xml", ToReportValue(AsXml(std::string("x"))), "{Text}", true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(c.got.text, c.text);
    EXPECT_EQ(c.got.is_markup, c.markup);
  }
  EXPECT_EQ(ToReportValue(std::string("<a>1</a>")).markup, "<a>1</a>");
}

TEST(ReportValue, ALongTextIsCutAndSaysHowLongItWas) {
  const std::string big(kMaxReportValueChars + 10, 'x');
  const ReportValue v = ToReportValue(big);
  EXPECT_EQ(v.text.size(),
            kMaxReportValueChars + 2 + std::string("... (2010 bytes in all)").size());
  EXPECT_NE(v.text.find("(2010 bytes in all)"), std::string::npos);
}

int Deepest(const std::string& name, int count) {
  return ReportAs("Tests.Deepest(Name,Count)", Args(name, count), [&]() -> int {
    throw Error(0x800A0035, "Tests.Deepest", "File not found: " + name);
  });
}
int Middle(const std::string& name) {
  return ReportAs("Tests.Middle(Name)", Args(name), [&] { return Deepest(name + "!", 3); });
}
int Top() {
  return ReportAs("Tests.Top", [&] { return Middle("doc"); });
}

TEST(ReportAs, FramesKeepTheNumberAndEachLevelsValuesInnermostFirst) {
  const Error e = testing::CaughtError([&] { Top(); });
  EXPECT_EQ(e.Number(), 0x800A0035u);
  EXPECT_EQ(e.Description(), "File not found: doc!");
  ASSERT_EQ(e.Frames().size(), 3u);
  EXPECT_EQ(e.Frames()[0].method, "Tests.Deepest(Name,Count)");
  ASSERT_EQ(e.Frames()[0].values.size(), 2u);
  EXPECT_EQ(e.Frames()[0].values[0].text, "'doc!'");
  EXPECT_EQ(e.Frames()[0].values[1].text, "3");
  EXPECT_EQ(e.Frames()[1].values.at(0).text, "'doc'");
  EXPECT_TRUE(e.Frames()[2].values.empty());
  EXPECT_EQ(e.CallStack(), (std::vector<std::string>{"Tests.Deepest(Name,Count)",
                                                     "Tests.Middle(Name)", "Tests.Top"}));
  EXPECT_FALSE(e.FirstSeen().IsEmpty());
}

TEST(ReportAs, ValuesAreFormattedOnlyWhenAnErrorPasses) {
  int formatted = 0;
  const Counted arg{&formatted};
  for (int i = 0; i < 3; ++i) ReportAs("Tests.Fine(Arg)", Args(arg), [] { return 1; });
  EXPECT_EQ(formatted, 0);
  EXPECT_THROW(ReportAs("Tests.Fails(Arg)", Args(arg), [] { throw Error(5, "s", "d"); }), Error);
  EXPECT_EQ(formatted, 1);
}

TEST(ReportAs, AnApplicationErrorCarriesNoValuesAndOtherFailuresBecomeErrors) {
  const std::string secret = "value";
  const Error planned = testing::CaughtError([&] {
    ReportAs("Tests.Planned(Arg)", Args(secret),
             [] { throw Error(errnum::kAppRangeFirst + 1, "s", "Name already taken"); });
  });
  ASSERT_EQ(planned.Frames().size(), 1u);
  EXPECT_TRUE(planned.Frames()[0].values.empty());
  EXPECT_EQ(planned.Description(), "Name already taken");
  const Error other = testing::CaughtError(
      [&] { ReportAs("Tests.Std(Arg)", Args(secret), [] { throw std::runtime_error("boom"); }); });
  EXPECT_EQ(other.Number(), errnum::kProviderError);
  EXPECT_EQ(other.Source(), "Tests.Std(Arg)");
  EXPECT_EQ(other.Frames().at(0).values.at(0).text, "'value'");
}

// A connection's block (masked string, state, errors, the rollback) is checked in the report
// that shows it: ErrorReport.TheDatabaseBlockShowsTheMaskedStringStateErrorsAndRelease.
TEST(ReportAs, ARecordsetsConnectionIsClosedWhenAsked) {
  testing::TempDir dir;
  auto cn = db::Connection::Create();
  cn->Open("Provider=SQLite;Data Source=" + (dir / "r.sqlite").string());
  cn->Execute("CREATE TABLE t (a INTEGER)");
  auto rs = db::Recordset::Create();
  rs->Open("SELECT * FROM t", cn, db::CursorType::Keyset, db::LockType::Optimistic);
  const Error e = testing::CaughtError([&] {
    ReportAs("Tests.Read", Args().Db(rs, true),
             [] { throw Error(3021, "s", "No current record"); });
  });
  const ErrorFrame& f = e.Frames().at(0);
  ASSERT_TRUE(f.db.has_value());
  EXPECT_TRUE(f.db->connection_taken);
  EXPECT_NE(std::find(f.released.begin(), f.released.end(),
                      "    Connection: Attempt to call Close succeeded"),
            f.released.end());
  EXPECT_FALSE(cn->IsOpen());
}

}  // namespace
}  // namespace gw
