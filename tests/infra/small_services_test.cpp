#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <regex>
#include <set>
#include <thread>
#include <vector>

#include "infra/c_guid_gen.h"
#include "infra/computer_name.h"
#include "platform/text.h"

namespace gw {
namespace {

// Ids are version 4 in upper case, cut from random bytes drawn in bulk: a forked child and other
// threads must never hand out the same ones.
TEST(CGUIDGen, AForkedChildAndOtherThreadsMakeDistinctVersion4Ids) {
  std::set<std::string> seen{CGUIDGen::NewGUID()};  // the parent has bytes drawn and unused
  int pipe_fds[2];
  ASSERT_EQ(::pipe(pipe_fds), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(pipe_fds[0]);
    std::string ids;
    for (int k = 0; k < 20; ++k) ids += CGUIDGen::NewGUID() + "\n";
    const bool written =
        ::write(pipe_fds[1], ids.data(), ids.size()) == static_cast<ssize_t>(ids.size());
    ::_exit(written ? 0 : 1);
  }
  ::close(pipe_fds[1]);
  std::vector<std::vector<std::string>> drawn(3);
  {
    std::vector<std::thread> threads;
    for (std::size_t t = 1; t < drawn.size(); ++t) {
      threads.emplace_back([&drawn, t] {
        for (int k = 0; k < 300; ++k) drawn[t].push_back(CGUIDGen::NewGUID());
      });
    }
    for (int k = 0; k < 300; ++k) drawn[0].push_back(CGUIDGen::NewGUID());
    for (auto& thread : threads) thread.join();
  }
  std::string from_child;
  char buffer[4096];
  for (ssize_t n; (n = ::read(pipe_fds[0], buffer, sizeof buffer)) > 0;) {
    from_child.append(buffer, static_cast<std::size_t>(n));
  }
  ::close(pipe_fds[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  std::size_t total = seen.size();
  for (std::size_t start = 0, end; (end = from_child.find('\n', start)) != std::string::npos;
       start = end + 1) {
    seen.insert(from_child.substr(start, end - start));
    ++total;
  }
  for (const auto& ids : drawn) {
    seen.insert(ids.begin(), ids.end());
    total += ids.size();
  }
  EXPECT_EQ(total, 1u + 20u + 900u);
  EXPECT_EQ(seen.size(), total) << "an id was handed out twice";
  const std::regex form("^[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}$");
  for (const std::string& id : seen) EXPECT_TRUE(std::regex_match(id, form)) << id;
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
