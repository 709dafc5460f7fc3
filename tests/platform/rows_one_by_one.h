// What every store's `Connection::ExecuteEach` must do, checked the same way on each.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "platform/db/connection.h"
#include "support/test_support.h"

namespace gw::db::test {

// `cn` holds a table "numbers" of the numbers 1 to 3000 (stored in any order); `query` gives each
// n and "p" followed by n, by n. The rows come in the query's order, each once; the reading stops
// where its visitor says or throws, after which `usable(what)` checks that the store takes its
// next statement; parameters are bound; a statement without rows runs and says so (it leaves
// 2990 numbers).
inline void CheckRowsHandedOnOneByOne(Connection& cn, const std::string& query,
                                      const std::function<void(const char*)>& usable) {
  std::vector<long> seen;
  EXPECT_TRUE(cn.ExecuteEach(query, {}, [&](Row& row) {
    seen.push_back(row[0].ToLong());
    EXPECT_EQ(row[1].ToText(), "p" + std::to_string(row[0].ToLong()));
    return true;
  }));
  ASSERT_EQ(seen.size(), 3000u);
  for (std::size_t k = 0; k < seen.size(); ++k) ASSERT_EQ(seen[k], static_cast<long>(k + 1));

  int calls = 0;
  EXPECT_TRUE(cn.ExecuteEach(query, {}, [&](Row&) { return ++calls < 10; }));
  EXPECT_EQ(calls, 10);
  usable("stopped");
  calls = 0;
  const Error thrown = gw::testing::CaughtError([&] {
    cn.ExecuteEach(query, {}, [&](Row&) -> bool {
      if (++calls == 5) throw Error(dberr::kBadArgument, "test", "the visitor gave up");
      return true;
    });
  });
  EXPECT_EQ(thrown.Description(), "the visitor gave up");
  EXPECT_EQ(calls, 5);
  usable("thrown");

  calls = 0;
  EXPECT_TRUE(cn.ExecuteEach("SELECT n FROM numbers WHERE n > ?",
                             std::vector<Variant>{Variant(2990)},
                             [&](Row&) { return ++calls > 0; }));
  EXPECT_EQ(calls, 10);
  EXPECT_FALSE(cn.ExecuteEach("DELETE FROM numbers WHERE n > 2990", {}, [&](Row&) {
    ADD_FAILURE() << "no rows expected";
    return true;
  }));
  EXPECT_EQ((*cn.Execute("SELECT COUNT(*) FROM numbers"))[0L].Value().ToLong(), 2990);
}

}  // namespace gw::db::test
