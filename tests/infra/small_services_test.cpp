#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>

#include "infra/c_guid_gen.h"
#include "infra/computer_name.h"
#include "platform/text.h"

namespace gw {
namespace {

TEST(CGUIDGen, MakesDistinctVersion4IdsInUpperCase) {
  const std::regex form("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$");
  std::set<std::string> seen;
  for (int k = 0; k < 2000; ++k) {
    const std::string id = CGUIDGen::NewGUID();
    ASSERT_TRUE(std::regex_match(id, form)) << id;
    seen.insert(id);
  }
  EXPECT_EQ(seen.size(), 2000u);
}

TEST(ComputerName, IsTheKernelsHostName) {
  std::ifstream in("/proc/sys/kernel/hostname");
  std::string expected;
  std::getline(in, expected);
  EXPECT_FALSE(expected.empty());
  EXPECT_EQ(ComputerName::Get_ComputerName(), expected);
}

}  // namespace
}  // namespace gw
