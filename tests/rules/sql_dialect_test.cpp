#include "rules/sql_dialect.h"

#include <gtest/gtest.h>

#include "rules/procedures.h"
#include "rules_fixture.h"

namespace gw {
namespace {

using testing::FailureNumber;

TEST(TranslateSql, RewritesWhatSqlServerWritesAndNothingElse) {
  struct Case {
    const char* in;
    const char* sqlite;
  } cases[] = {
      {"SELECT [attribute_id] as A_Id FROM [attributes] WHERE [attribute_id] = ?",
       "SELECT \"attribute_id\" as A_Id FROM \"attributes\" WHERE \"attribute_id\" = ?"},
      {"SELECT TOP 1 * FROM [Settings]", "SELECT * FROM \"Settings\" LIMIT 1"},
      {"select distinct top (5) name from t order by name;",
       "select distinct name from t order by name LIMIT 5"},
      {"UPDATE t SET d='01-31-2026 14:05:09' WHERE x = 'a'",
       "UPDATE t SET d='2026-01-31 14:05:09' WHERE x = 'a'"},
      {"SELECT * FROM t WHERE d > '2/3/2026'", "SELECT * FROM t WHERE d > '2026-02-03 00:00:00'"},
      // Not dates: an alias in quotes, a 13th month, text around a date.
      {"SELECT date_created as 'Create Date' FROM jobs",
       "SELECT date_created as 'Create Date' FROM jobs"},
      {"SELECT '13-01-2026', 'on 01-02-2026'", "SELECT '13-01-2026', 'on 01-02-2026'"},
      // Brackets inside literals, quoted identifiers and comments stay.
      {"SELECT '[x]', \"[y]\" -- [z]\nFROM [a]]b]", "SELECT '[x]', \"[y]\" -- [z]\nFROM \"a]b\""},
      {"SELECT 'it''s [not] TOP 3'", "SELECT 'it''s [not] TOP 3'"},
      {"SELECT [a\"b] FROM t", "SELECT \"a\"\"b\" FROM t"},
      {"SET DATEFORMAT mdy", ""},
      {"  set  dateformat dmy ", ""},
      {"SELECT topic FROM t", "SELECT topic FROM t"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    EXPECT_EQ(TranslateSql(c.in, "sqlite"), c.sqlite);
    EXPECT_EQ(TranslateSql(c.in, "mssql"), c.in);
  }
  EXPECT_EQ(TranslateSql("SELECT [a] FROM [b]", "mysql"), "SELECT `a` FROM `b`");
}

TEST(TranslateSql, TranslatedStatementsRunOnSqlite) {
  auto cn = db::Connection::Create();
  cn->Open("Provider=SQLite;Data Source=:memory:");
  cn->ExecuteScript(
      "CREATE TABLE [t] (d DATETIME, n VARCHAR(10));"
      "INSERT INTO t VALUES ('2026-01-31 14:05:09', 'b'), ('2025-12-01 00:00:00', 'a');");
  auto rs = cn->Execute(TranslateSql(
      "SELECT TOP 1 [n] FROM [t] WHERE [d] > '12-31-2025 23:59:59' ORDER BY [n]", "sqlite"));
  ASSERT_EQ(rs->RecordCount(), 1);
  EXPECT_EQ((*rs)["n"].Value().ToString(), "b");
}

TEST(UsDateLiteralToIso, AcceptsOnlyWholeUsDates) {
  EXPECT_EQ(UsDateLiteralToIso("12-31-2025 23:59:59"), "2025-12-31 23:59:59");
  EXPECT_EQ(UsDateLiteralToIso("1/2/2026 3:04"), "2026-01-02 03:04:00");
  for (const char* no : {"", "2026-01-02", "12-31-25", "12-31-2025 ", "02-30-2026", "1-2/2026",
                         "12-31-2025 23:59:5", "x12-31-2025"}) {
    SCOPED_TRACE(no);
    EXPECT_FALSE(UsDateLiteralToIso(no).has_value());
  }
}

TEST(ParseExecStatement, ReadsNamesAndArguments) {
  auto call = ParseExecStatement("Exec usp_CustCol_InsForEnt 'e''1', 24");
  ASSERT_TRUE(call);
  EXPECT_EQ(call->procedure, "usp_CustCol_InsForEnt");
  ASSERT_EQ(call->arguments.size(), 2u);
  EXPECT_EQ(call->arguments[0].value.ToString(), "e'1");
  EXPECT_EQ(call->arguments[1].value.ToLong(), 24);

  call = ParseExecStatement("  EXECUTE dbo.[usp_GetTasks] ? ;");
  ASSERT_TRUE(call);
  EXPECT_EQ(call->procedure, "usp_GetTasks");
  ASSERT_EQ(call->arguments.size(), 1u);
  EXPECT_TRUE(call->arguments[0].placeholder);

  call = ParseExecStatement("Exec usp_GetAllDPages ");
  ASSERT_TRUE(call);
  EXPECT_TRUE(call->arguments.empty());

  call = ParseExecStatement("exec usp_X 55.5, -3, NULL, N'x', '01-02-2026 03:04:05'");
  ASSERT_TRUE(call);
  ASSERT_EQ(call->arguments.size(), 5u);
  EXPECT_DOUBLE_EQ(call->arguments[0].value.ToDouble(), 55.5);
  EXPECT_EQ(call->arguments[1].value.ToLong(), -3);
  EXPECT_TRUE(call->arguments[2].value.IsNull());
  EXPECT_EQ(call->arguments[3].value.ToString(), "x");
  EXPECT_EQ(call->arguments[4].value.ToString(), "2026-01-02 03:04:05");

  EXPECT_FALSE(ParseExecStatement("SELECT 1"));
  EXPECT_FALSE(ParseExecStatement("Executive summary"));
}

TEST(ParseExecStatement, MalformedCallsFailAsSyntaxErrors) {
  for (const char* bad : {"Exec usp_X 'open", "Exec usp_X a b", "Exec usp_X 1,", "Exec usp_X 1 2",
                          "Exec ", "Exec usp_X 1; DROP TABLE jobs", "Exec usp_X(1)"}) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(FailureNumber([&] { ParseExecStatement(bad); }), 0x80040E14u);
  }
}

TEST(IsRowStatement, TellsReadsFromWrites) {
  for (const char* rows : {"SELECT 1", " (select 1)", "-- c\nSELECT 1",
                           "WITH a AS (SELECT 1) "
                           "SELECT * FROM a",
                           "PRAGMA table_info(x)"}) {
    EXPECT_TRUE(IsRowStatement(rows)) << rows;
  }
  for (const char* none : {"UPDATE t SET a = 1", "INSERT INTO t VALUES (1)", "DELETE FROM t",
                           "PRAGMA foreign_keys = ON", ""}) {
    EXPECT_FALSE(IsRowStatement(none)) << none;
  }
}

// That each procedure the data-access classes call exists is checked by their own tests, which
// call them all on a real store.
TEST(StoredProcedures, NamesAreFoundWithoutRegardToCase) {
  ASSERT_NE(FindStoredProcedure("sqlite", "usp_GetTasks"), nullptr);
  EXPECT_EQ(FindStoredProcedure("SQLITE", "USP_GETTASKS"),
            FindStoredProcedure("sqlite", "usp_GetTasks"));
}

TEST(BindProcedureCall, PairsPlaceholdersWithParameters) {
  ExecCall call{"usp_GetNonDownLoadedDocs", {{true, {}}, {false, Variant("t1")}, {true, {}}}};
  const std::vector<Variant> params{Variant("j1"), Variant("2026-01-01 00:00:00")};
  const BoundStatement b = BindProcedureCall("sqlite", call, params);
  ASSERT_EQ(b.params.size(), 3u);
  EXPECT_EQ(b.params[0].ToString(), "j1");
  EXPECT_EQ(b.params[1].ToString(), "t1");
  EXPECT_EQ(b.params[2].ToString(), "2026-01-01 00:00:00");

  EXPECT_EQ(FailureNumber([&] {
              BindProcedureCall("sqlite", ExecCall{"usp_Nothing", {}}, {});
            }),
            0x80040E14u);
  EXPECT_EQ(FailureNumber([&] {
              BindProcedureCall("sqlite", ExecCall{"usp_GetTasks", {}}, {});
            }),
            db::dberr::kMissingParameter);
  EXPECT_EQ(FailureNumber([&] {
              BindProcedureCall(
                  "sqlite", ExecCall{"usp_GetTasks", {{false, Variant(1)}, {false, Variant(2)}}},
                  {});
            }),
            0x80040E14u);
  EXPECT_EQ(FailureNumber([&] {
              BindProcedureCall("sqlite", ExecCall{"usp_GetTasks", {{true, {}}}}, {});
            }),
            3001u);
  EXPECT_EQ(FailureNumber([&] {
              const std::vector<Variant> two{Variant(1), Variant(2)};
              BindProcedureCall("sqlite", ExecCall{"usp_GetTasks", {{true, {}}}}, two);
            }),
            3001u);
}

}  // namespace
}  // namespace gw
