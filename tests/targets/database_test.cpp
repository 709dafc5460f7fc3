// Target databases: creation and dropping per provider, the default database, legal names.
#include "targets/database.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "platform/db/driver.h"
#include "rules/rules_fixture.h"
#include "support/mariadb_server.h"
#include "targets/database_internal.h"
#include "targets_fixture.h"

namespace gw::targets_test {
namespace {

using gw::testing::MariaDbServer;

std::string Jet(const std::filesystem::path& file) {
  return "Provider=Microsoft.Jet.OLEDB.4.0;Data Source=" + file.string();
}
std::string Excel(const std::filesystem::path& file) {
  return Jet(file) + ";Extended Properties=\"Excel 8.0;HDR=Yes\"";
}

bool DatabaseExists(const std::string& name) {
  auto cn = db::Connection::Create();
  cn->Open(MariaDbServer::Shared().ConnectionString());
  const std::vector<Variant> params{Variant(name)};
  return !cn->Execute("SELECT 1 FROM information_schema.SCHEMATA WHERE SCHEMA_NAME = ?", params)
              ->IsEOF();
}

// ---- MakeName: needs the providers of the rules store ---------------------------------------

class MakeNameTest : public gw::testing::RulesStoreTest {};

TEST_F(MakeNameTest, ReplacesEveryCharacterOfTheNameTableAndUpperCases) {
  const struct {
    const char* name;
    const char* expected;
  } cases[] = {
      {"a.b c", "_A_B_C"},
      {"100%", "_100_PCT_"},
      {"a#b", "_ANUM_B"},
      {"", "_"},
      {"_done", "_DONE"},
      {"x|y", "_X_OR_Y"},
      {"a<b>c", "_A_LT_B_GT_C"},
      {"me@home", "_ME_AT_HOME"},
      {"$5", "_DOL_5"},
      {"it's (big) [x] {y} ^`\"", "_ITS_BIG_X_Y_"},
      {"a/b\\c*d?e&f!g-h+i:j=k~l,m;n", "_A_B_C_D_E_F_G_H_I_J_K_L_M_N"},
      {"größe", "_GRÖßE"},  // ß has no upper case of its own length
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(Database::MakeName(c.name, "Provider=SQLite;Data Source=x.db"), c.expected);
  }
}

TEST_F(MakeNameTest, CutsToTheNameLengthOfTheProvider) {
  const std::string long_name(100, 'n');
  EXPECT_EQ(Database::MakeName(long_name, Jet("x.mdb")).size(), 64u);
  EXPECT_EQ(Database::MakeName(long_name, "Provider=SQLite;Data Source=x.db").size(), 100u + 1);
  Exec("INSERT INTO providers VALUES ('Narrow', 10, 10, 4)");
  // Characters, not bytes: a character is never split.
  EXPECT_EQ(Database::MakeName("éééééé", "Provider=Narrow;Data Source=x"), "_ÉÉÉ");
}

TEST_F(MakeNameTest, AProviderTheStoreDoesNotKnowTakesTheDefaultRow) {
  Exec("UPDATE providers SET max_name_length = 5 WHERE provider_id = 'Default'");
  EXPECT_EQ(Database::MakeName("abcdefgh", "Provider=NoSuchProvider;Data Source=x"), "_ABCD");
  // The provider is looked up as written: a lower-case key is not found, so neither is it.
  EXPECT_EQ(Database::MakeName("abcdefgh", "provider=SQLite;Data Source=x"), "_ABCD");
  EXPECT_EQ(Database::MakeName("abcdefgh"), "_ABCD");
  // A quote in the provider is a value like any other.
  EXPECT_EQ(Database::MakeName("abcdefgh", "Provider=x' OR '1'='1;Data Source=x"), "_ABCD");
}

TEST_F(MakeNameTest, ProviderPropertiesAreTheRowOfTheProvider) {
  auto rs = targets_internal::GetProviderProperties("Microsoft.Jet.OLEDB.4.0");
  ASSERT_EQ(rs->RecordCount(), 1);
  EXPECT_EQ((*rs)["ProviderId"].Value().ToText(), "Microsoft.Jet.OLEDB.4.0");
  EXPECT_EQ((*rs)["PageLength"].Value().ToLong(), 4000);
  EXPECT_EQ((*rs)["MaxVarcharSize"].Value().ToLong(), 255);
  EXPECT_EQ((*rs)["MaxNameLength"].Value().ToLong(), 64);
  EXPECT_EQ(targets_internal::GetProviderProperties("Unknown")->RecordCount(), 0);
}

// ---- Create and Drop -------------------------------------------------------------------------

class DatabaseTest : public ::testing::Test {
 protected:
  gw::testing::TempDir dir_;
};

TEST_F(DatabaseTest, AnEmptyConnectionStringIsRefused) {
  for (const char* source : {"Database.Create", "Database.Drop"}) {
    SCOPED_TRACE(source);
    const Error e = CaughtError([&] {
      if (std::string_view(source) == "Database.Create") {
        Database::Create("");
      } else {
        Database::Drop("");
      }
    });
    EXPECT_EQ(e.Number(), targeterr::kNoConnectionString);
    EXPECT_EQ(e.Source(), source);
    EXPECT_EQ(e.Description(), "Connection string not specified, or invalid connection string");
    ASSERT_FALSE(e.CallStack().empty());
    EXPECT_EQ(e.CallStack().front(), std::string(source) + "(CnStr,DBName)");
  }
}

TEST_F(DatabaseTest, AnUnsupportedProviderIsRefusedWithItsName) {
  const Error e = CaughtError([] { Database::Create("Provider=Foo.1;Data Source=x"); });
  EXPECT_EQ(e.Number(), targeterr::kDatabaseNotSupported);
  EXPECT_EQ(e.Source(), "Database.Create");
  EXPECT_EQ(e.Description(),
            "The Database provider Foo.1 not supported for automatic creation.  You may still be "
            "able to extract to it, but you must create it yourself.");
  // Without a provider the string is ODBC's.
  EXPECT_NE(CaughtError([] { Database::Create("Data Source=x"); }).Description().find("MSDASQL.1"),
            std::string::npos);
  const Error drop = CaughtError([] { Database::Drop("Provider=Foo.1;Data Source=x"); });
  EXPECT_EQ(drop.Number(), targeterr::kDatabaseNotSupported);
  EXPECT_EQ(drop.Source(), "Database.Drop");
  // MySQL databases are made, but never dropped through Drop.
  EXPECT_EQ(CaughtError([] { Database::Drop("Provider=MySQLProv;Server=127.0.0.1"); }).Number(),
            targeterr::kDatabaseNotSupported);
}

TEST_F(DatabaseTest, SqlServerCannotBeReachedAndSaysSo) {
  for (const char* cn : {"Provider=SQLOLEDB.1;Data Source=db1;Initial Catalog=shop",
                         "Provider=SQLOLEDB;Data Source=db1"}) {
    SCOPED_TRACE(cn);
    const Error e = CaughtError([&] { Database::Create(cn, "shop"); });
    EXPECT_EQ(e.Number(), db::dberr::kProviderNotFound);
    EXPECT_NE(e.Description().find("SQL Server"), std::string::npos) << e.Description();
    EXPECT_NE(e.Description().find("cannot be reached from this platform"), std::string::npos);
    EXPECT_NE(e.Description().find("(Provider=SQLOLEDB"), std::string::npos);
  }
}

TEST_F(DatabaseTest, AnAccessTargetIsMadeOnceAndKeptWithItsRows) {
  const auto file = dir_ / "shop.mdb";
  const std::string made = Database::Create(Jet(file), "ignored");
  ASSERT_TRUE(std::filesystem::exists(file));
  EXPECT_EQ(db::ConnectionProperties::Parse(made).Get("Data Source"), file.string());
  Exec(made, "CREATE TABLE t (a TEXT); INSERT INTO t VALUES ('kept')");
  Database::Create(Jet(file));
  EXPECT_EQ(Rows(Jet(file), "t"), (std::vector<std::vector<std::string>>{{"kept"}}));
}

TEST_F(DatabaseTest, AnOlderJetTargetGetsAnEmptyFile) {
  const auto file = dir_ / "old.mdb";
  Database::Create("Provider=Microsoft.Jet.OLEDB.3.51;Data Source=" + file.string());
  EXPECT_TRUE(std::filesystem::exists(file));
}

TEST_F(DatabaseTest, AJetTargetInAMissingFolderFails) {
  const Error e = CaughtError([&] { Database::Create(Jet(dir_ / "no" / "such" / "x.mdb")); });
  EXPECT_EQ(e.Number(), errnum::kPathNotFound);
}

TEST_F(DatabaseTest, WorkbooksAndSqliteFilesAreMadeWhenFirstUsed) {
  const auto book = dir_ / "out.xlsx";
  Database::Create(Excel(book));
  EXPECT_FALSE(std::filesystem::exists(book));
  const auto file = dir_ / "t.db";
  const std::string made = Database::Create("Provider=SQLite;Data Source=" + file.string());
  EXPECT_FALSE(std::filesystem::exists(file));
  EXPECT_EQ(db::ConnectionProperties::Parse(made).Get("Data Source"), file.string());
}

TEST_F(DatabaseTest, DropDeletesTheFileOfAFileTarget) {
  const auto access = dir_ / "a.mdb";
  Database::Create(Jet(access));
  Database::Drop(Jet(access));
  EXPECT_FALSE(std::filesystem::exists(access));
  // The database name names the file.
  const auto other = dir_ / "other.mdb";
  Database::Create(Jet(other));
  Database::Drop(Jet(dir_ / "unused.mdb"), other.string());
  EXPECT_FALSE(std::filesystem::exists(other));
  // A file that is not there cannot be deleted.
  EXPECT_EQ(CaughtError([&] { Database::Drop(Jet(access)); }).Number(), errnum::kFileNotFound);

  const std::string sqlite = "Provider=SQLite;Data Source=" + (dir_ / "s.db").string();
  Exec(sqlite, "CREATE TABLE t (a TEXT)");
  Database::Drop(sqlite);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "s.db"));
}

TEST_F(DatabaseTest, ADroppedWorkbookStaysDeletedWithRowsPending) {
  const auto book = dir_ / "b.xlsx";
  Exec(Excel(book), "CREATE TABLE t (a TEXT)");
  {
    auto cn = db::Connection::Create();
    cn->Open(Excel(book));
    const std::vector<Variant> params{Variant("pending")};
    cn->Execute("INSERT INTO t (a) VALUES (?)", params);
  }
  Database::Drop(Excel(book));
  db::FlushBufferedStores();
  EXPECT_FALSE(std::filesystem::exists(book));
}

TEST_F(DatabaseTest, TheDefaultDatabaseIsTheCatalogOfServers) {
  const struct {
    const char* cn;
    const char* expected;  // "" when the string stays as it is
  } cases[] = {
      {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=x.mdb", ""},
      {"Provider=Microsoft.Jet.OLEDB.4.0;Data Source=x.xls;Extended Properties=\"Excel 8.0\"", ""},
      {"Provider=SQLite;Data Source=x.db", ""},
      {"Provider=SQLOLEDB.1;Data Source=srv;Initial Catalog=old", "shop"},
      {"Provider=SQLOLEDB;Data Source=srv", "shop"},
      {"Provider=MySQLProv;Server=h;Initial Catalog=old", "shop"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.cn);
    const std::string out = Database::ChangeDefaultDB(c.cn, "shop");
    if (*c.expected == '\0') {
      EXPECT_EQ(out, c.cn);
    } else {
      EXPECT_EQ(db::ConnectionProperties::Parse(out).Get("Initial Catalog"), c.expected);
    }
  }
}

// ---- MySQL, on a private server ---------------------------------------------------------------

TEST(MySqlDatabase, MySqlProvMakesTheNamedDatabaseAndAddressesIt) {
  auto& server = MariaDbServer::Shared();
  const std::string name = "gwmade_" + std::to_string(::getpid());
  const std::string made = Database::Create(server.ConnectionString(), name);
  EXPECT_TRUE(DatabaseExists(name));
  EXPECT_EQ(db::ConnectionProperties::Parse(made).Get("Initial Catalog"), name);
  // It exists now: made again without complaint, and reachable through the string returned.
  Database::Create(made);
  Exec(made, "CREATE TABLE t (a INT)");
  targets_internal::DropMySQL(made);
  EXPECT_FALSE(DatabaseExists(name));
}

TEST(MySqlDatabase, AnOdbcStringForMySqlMakesItsDatabase) {
  auto& server = MariaDbServer::Shared();
  const std::string name = "gwodbc_" + std::to_string(::getpid());
  const std::string odbc =
      "Provider=MSDASQL;Initial Catalog=" + name +
      ";Extended Properties=\"DRIVER={MySQL ODBC 3.51 Driver};SERVER=127.0.0.1;PORT=" +
      std::to_string(server.Port()) + ";UID=root;PWD=;\"";
  Database::Create(odbc);
  EXPECT_TRUE(DatabaseExists(name));
}

TEST(MySqlDatabase, AStringWithoutDatabaseStillConnects) {
  // Nothing to make; the tables will tell whether a database is addressed.
  Database::Create(MariaDbServer::Shared().ConnectionString());
}

}  // namespace
}  // namespace gw::targets_test
