// A fresh rules database in a temporary folder for each test, made the rules store of the process
// through the connection override.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "platform/error.h"
#include "rules/connection_string.h"
#include "rules/rules_schema.h"
#include "support/test_support.h"

namespace gw::testing {

class RulesStoreTest : public ::testing::Test {
 protected:
  // In the constructor, so that data-access members of derived fixtures see the store.
  RulesStoreTest()
      : path_(home_.Path() / "rules.sqlite"),
        cn_str_("Provider=SQLite;Data Source=" + path_.string()) {
    SetRulesConnectionOverride(cn_str_);
  }
  ~RulesStoreTest() override { SetRulesConnectionOverride({}); }

  // A connection of the test's own to look at the store directly.
  db::ConnectionPtr Open() { return OpenRulesConnection(cn_str_); }
  long Count(const std::string& sql, const std::vector<Variant>& params = {}) {
    auto rs = Open()->Execute(sql, params);
    return rs->GetFields().Item(0L).Value().ToLong();
  }
  void Exec(const std::string& sql, const std::vector<Variant>& params = {}) {
    Open()->ExecuteNonQuery(sql, params);
  }

  ScopedHome home_;
  std::filesystem::path path_;
  std::string cn_str_;
};

}  // namespace gw::testing
