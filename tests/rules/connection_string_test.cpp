#include "rules/connection_string.h"

#include <gtest/gtest.h>

#include "infra/c_crypto.h"
#include "infra/c_registry.h"
#include "platform/db/connection_string.h"
#include "rules_fixture.h"

namespace gw {
namespace {

using namespace modConnectionString;
using testing::FailureNumber;

TEST(GetParameter, ReadsTheValueBetweenEqualsAndDelimiter) {
  struct Case {
    const char* param;
    const char* cn;
    const char* delim;
    const char* value;
  } cases[] = {
      {"Provider", "Provider=SQLOLEDB.1;Data Source=x", ";", "SQLOLEDB.1"},
      {"Data Source", "Provider=SQLOLEDB.1;Data Source=x", ";", "x"},  // no final ";"
      {"Data Source", "Data Source =  my server  ;x=1", ";", "my server"},
      {"x", "", ";", ""},
      {"", "a=b", ";", ""},
      {"a", "a=b", "", ""},
      {"Missing", "a=b;c=d", ";", ""},
      {"provider", "Provider=x", ";", ""},  // a binary comparison
      {"Initial Catalog", "Initial Catalog=;x=1", ";", ""},
      // The name is found anywhere, also inside another name or value.
      {"Source", "Data Source=srv;Source=other", ";", "srv"},
      // Without an "=" after the name the value runs from the start of the string.
      {"Flag", "Flag;x", ";", "Flag"},
      {"Extended Properties", "Provider=MSDASQL;Extended Properties=\"DSN=a;Database=b\";", "\";",
       "\"DSN=a;Database=b"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.param) + " in " + c.cn);
    EXPECT_EQ(GetParameter(c.param, c.cn, c.delim), c.value);
  }
}

TEST(GetParameter, PositionsAreSixteenBit) {
  const std::string long_cn = "a=b;" + std::string(40000, 'x') + ";Data Source=z";
  const Error e = testing::CaughtError([&] { GetParameter("Data Source", long_cn, ";"); });
  EXPECT_EQ(e.Number(), errnum::kOverflow);
  ASSERT_FALSE(e.CallStack().empty());
  EXPECT_EQ(e.CallStack().front(),
            "modConnectionString.GetParameter(sParam,sConnectString,sEndDelimiter)");
  EXPECT_EQ(GetParameter("a", long_cn, ";"), "b");
}

TEST(SetParameter, ReplacesOnlyAValueThatIsThere) {
  struct Case {
    const char* param;
    const char* value;
    const char* cn;
    const char* result;
  } cases[] = {
      {"Data Source", "new", "Provider=p;Data Source=old;X=1", "Provider=p;Data Source=new;X=1"},
      {"Data Source", "new", "Provider=p;Data Source=old", "Provider=p;Data Source=new"},
      {"Data Source", "", "Data Source= old ;X", "Data Source=;X"},
      {"Missing", "v", "Provider=p", "Provider=p"},                           // not added
      {"Initial Catalog", "db", "Initial Catalog=;x", "Initial Catalog=;x"},  // empty: not filled
      {"", "v", "a=b", "a=b"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.param) + " in " + c.cn);
    EXPECT_EQ(SetParameter(c.param, c.value, c.cn, ";"), c.result);
  }
}

TEST(ReformatMySQLCnStr, LeavesEveryOtherProviderAlone) {
  for (const char* cn : {"Provider=SQLOLEDB;Data Source=MySQL;Initial Catalog=MySQLdb",
                         "Provider=MySQLProv;Data Source=db;Initial Catalog=x",
                         "Driver={MySQL ODBC 3.51 Driver};Database=x;Option=3"}) {
    SCOPED_TRACE(cn);
    std::string s = cn;
    EXPECT_EQ(ReformatMySQLCnStr(s), cn);
    EXPECT_EQ(ReformatMySQLCnStr(s, true), cn);
    EXPECT_EQ(s, cn);
  }
}

TEST(ReformatMySQLCnStr, MovesTheCatalogIntoTheOdbcString) {
  struct Case {
    const char* in;
    bool flag;
    const char* out;
  } cases[] = {
      // A table in the database: the catalogue becomes Database, Option is added.
      {"Provider=MSDASQL.1;Initial Catalog=shop;Extended Properties=\"DRIVER={MySQL};SERVER=h\";",
       false,
       "Provider=MSDASQL.1;Initial Catalog=;Extended Properties=\"DRIVER={MySQL};SERVER=h;"
       "Database=shop;;Option=18475;\";"},
      // An empty Database= cannot be filled (SetParameter leaves empty values alone).
      {"Provider=MSDASQL;Initial Catalog=shop;Extended Properties=\"DSN=x;Database=;Option=3\";",
       false,
       "Provider=MSDASQL;Initial Catalog=;Extended Properties=\"DSN=x;Database=;Option=18475\";"},
      // The server itself: every "Database=" goes, in any case.
      {"Provider=MSDASQL;Initial Catalog=shop;Extended Properties=\"DSN=x;database=;\";", true,
       "Provider=MSDASQL;Initial Catalog=;Extended Properties=\"DSN=x;;;Option=18475;\";"},
      {"Provider=MSDASQL;Extended Properties=\"DSN=x;Database=shop;Option=3\";", true,
       "Provider=MSDASQL;Extended Properties=\"DSN=x;;Option=18475\";"},
      // Database given and no flag: nothing but the option word.
      {"Provider=MSDASQL;Extended Properties=\"DSN=x;Database=shop\";", false,
       "Provider=MSDASQL;Extended Properties=\"DSN=x;Database=shop;Option=18475;\";"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.in);
    std::string s = c.in;
    EXPECT_EQ(ReformatMySQLCnStr(s, c.flag), c.out);
    EXPECT_EQ(s, c.out) << "the string is changed in place";
  }
}

class StoredCnStrTest : public ::testing::Test {
 protected:
  StoredCnStrTest() { ClearCachedCnStr(); }
  ~StoredCnStrTest() override {
    ClearCachedCnStr();
    SetRulesConnectionOverride({});
  }
  std::string RawStoredValue() {
    Variant v;
    C_Registry().QueryValueEx(
        C_Registry::KeyHandle(C_Registry::HKEY_LOCAL_MACHINE, "SOFTWARE\\Tallowmere\\Zentrovo"),
        "CnStr", v);
    return v.ToText();
  }
  void StoreRaw(const std::string& value) {
    C_Registry().SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, "SOFTWARE\\Tallowmere\\Zentrovo",
                             "CnStr", Variant(value), C_Registry::REG_SZ);
  }
  testing::ScopedHome home_;
};

TEST_F(StoredCnStrTest, WithNothingStoredTheEmbeddedStoreIsUsed) {
  const auto props = db::ConnectionProperties::Parse(GetCnStr());
  EXPECT_EQ(props.Get("Provider"), "SQLite");
  EXPECT_EQ(props.Get("Data Source"), (home_.Path() / "ZentrovoDB.sqlite").string());
  EXPECT_EQ(CConnectionString().GetCnStr(), GetCnStr());
}

TEST_F(StoredCnStrTest, SetCnStrStoresItEncipheredAndItReadsBack) {
  const std::string cn = "Provider=SQLite;Data Source=/srv/rules.sqlite";
  SetCnStr(cn);
  const std::string raw = RawStoredValue();
  EXPECT_FALSE(raw.empty());
  EXPECT_EQ(raw.find("rovider"), std::string::npos);
  EXPECT_EQ(CCrypto().DecryptText(raw), cn);
  ClearCachedCnStr();  // as a new process would
  EXPECT_EQ(GetCnStr(), cn);
  EXPECT_EQ(CConnectionString().GetCnStr(), cn);

  SetCnStr("");  // ignored
  EXPECT_EQ(RawStoredValue(), raw);
}

TEST_F(StoredCnStrTest, TheValueIsReadOnceAndCached) {
  SetCnStr("Provider=SQLite;Data Source=/a");
  StoreRaw("Provider=SQLite;Data Source=/b");
  EXPECT_EQ(GetCnStr(), "Provider=SQLite;Data Source=/a");
  ClearCachedCnStr();
  EXPECT_EQ(GetCnStr(), "Provider=SQLite;Data Source=/b");
}

TEST_F(StoredCnStrTest, ClearTextAndUndecipherableValuesStillLoad) {
  StoreRaw("Provider=SQLOLEDB;Data Source=(local)\\ZentrovoStd");
  EXPECT_EQ(GetCnStr(), "Provider=SQLOLEDB;Data Source=(local)\\ZentrovoStd");
  ClearCachedCnStr();
  StoreRaw("not a ciphertext");
  EXPECT_EQ(GetCnStr(), "not a ciphertext");
  ClearCachedCnStr();
  StoreRaw(CCrypto().EncryptText(""));  // deciphers to nothing: the stored text is taken
  EXPECT_EQ(GetCnStr(), RawStoredValue());
}

TEST_F(StoredCnStrTest, TheOverrideWinsAndIsNeverStored) {
  SetCnStr("Provider=SQLite;Data Source=/stored");
  SetRulesConnectionOverride("Provider=SQLite;Data Source=/override");
  EXPECT_EQ(GetCnStr(), "Provider=SQLite;Data Source=/override");
  EXPECT_EQ(CConnectionString().GetCnStr(), "Provider=SQLite;Data Source=/override");
  EXPECT_EQ(CCrypto().DecryptText(RawStoredValue()), "Provider=SQLite;Data Source=/stored");
  SetRulesConnectionOverride({});
  EXPECT_EQ(GetCnStr(), "Provider=SQLite;Data Source=/stored");
}

TEST_F(StoredCnStrTest, TheClassKeepsItsOwnCopy) {
  CConnectionString a;
  a.SetCnStr("Provider=SQLite;Data Source=/one");
  StoreRaw("Provider=SQLite;Data Source=/two");
  EXPECT_EQ(a.GetCnStr(), "Provider=SQLite;Data Source=/one");
  EXPECT_EQ(CConnectionString().GetCnStr(), "Provider=SQLite;Data Source=/two");
  EXPECT_NO_THROW(a.SetCnStr(""));
}

}  // namespace
}  // namespace gw
