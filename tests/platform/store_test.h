// A fixture over one store, named by a connection string and made by the test's own statements.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>

#include "platform/db/connection.h"

namespace gw::db::test {

class StoreTest : public ::testing::Test {
 protected:
  // Names the store and runs `script` (statements separated by ";") on it.
  void MakeStore(std::string cn_str, std::string_view script) {
    cn_str_ = std::move(cn_str);
    Open()->ExecuteScript(script);
  }
  // A new connection to the store.
  ConnectionPtr Open() const {
    auto cn = Connection::Create();
    cn->Open(cn_str_);
    return cn;
  }

  std::string cn_str_;
};

}  // namespace gw::db::test
