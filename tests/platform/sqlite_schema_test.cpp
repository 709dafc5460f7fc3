// Reading SQLite's CREATE TABLE statements for the table rebuild.
#include "platform/db/sqlite_schema.h"

#include <gtest/gtest.h>

#include "support/test_support.h"

namespace gw::db {
namespace {

using testing::CaughtError;

TEST(CreateTableText, SplitsAtTopLevelCommasOnly) {
  const CreateTableParts parts = SplitCreateTable(
      "CREATE TABLE \"a(b\" ( \"x, y\" VARCHAR(10, 2) NOT NULL, -- a comment, with a comma\n"
      "  [z w] TEXT DEFAULT 'p,q' /* another, */ , CONSTRAINT k CHECK (x IN (1, 2)) ) "
      "WITHOUT ROWID");
  EXPECT_EQ(parts.definitions,
            (std::vector<std::string>{
                "\"x, y\" VARCHAR(10, 2) NOT NULL",
                "-- a comment, with a comma\n  [z w] TEXT DEFAULT 'p,q' /* another, */",
                "CONSTRAINT k CHECK (x IN (1, 2))"}));
  EXPECT_EQ(parts.tail, " WITHOUT ROWID");
  EXPECT_FALSE(IsTableConstraint(parts.definitions[0]));
  EXPECT_TRUE(IsTableConstraint(parts.definitions[2]));
  EXPECT_EQ(DefinitionColumnName(parts.definitions[0]), "x, y");
  EXPECT_EQ(DefinitionColumnName(parts.definitions[1]), "z w");
}

TEST(CreateTableText, ReplacesOnlyTheDeclaredType) {
  const struct {
    const char* definition;
    const char* expected;
  } cases[] = {
      {"name VARCHAR(4) NULL", "name VARCHAR(9) NULL"},
      {"\"name\" VARCHAR (4)", "\"name\" VARCHAR(9)"},
      {"name", "name VARCHAR(9)"},
      {"name NATIONAL CHARACTER VARYING(4) NOT NULL DEFAULT 'a'",
       "name VARCHAR(9) NOT NULL DEFAULT 'a'"},
      {"name TEXT COLLATE NOCASE", "name VARCHAR(9) COLLATE NOCASE"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.definition);
    EXPECT_EQ(ReplaceDeclaredType(c.definition, "VARCHAR(9)"), c.expected);
  }
}

TEST(CreateTableText, TextWithoutAColumnListIsRefused) {
  EXPECT_EQ(CaughtError([] { SplitCreateTable("CREATE TABLE t AS SELECT 1"); }).Number(),
            errnum::kSyntaxError);
  EXPECT_EQ(CaughtError([] { SplitCreateTable("CREATE TABLE t (a 'x"); }).Number(),
            errnum::kSyntaxError);
}

}  // namespace
}  // namespace gw::db
