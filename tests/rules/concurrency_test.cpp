// Two processes running packages against one rules store at once.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "rules_fixture.h"

extern char** environ;

namespace gw {
namespace {

using testing::RulesStoreTest;

constexpr int kRunsPerWriter = 150;

pid_t StartWriter(const std::string& cn_str, const std::string& job, const std::string& log) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  const std::string count = std::to_string(kRunsPerWriter);
  std::vector<char*> argv{const_cast<char*>(GW_RULES_WRITER), const_cast<char*>(cn_str.c_str()),
                          const_cast<char*>(job.c_str()), const_cast<char*>(count.c_str()),
                          nullptr};
  pid_t pid = -1;
  const int rc = posix_spawn(&pid, GW_RULES_WRITER, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  EXPECT_EQ(rc, 0) << "cannot start " << GW_RULES_WRITER;
  return pid;
}

int WaitForExit(pid_t pid) {
  int status = 0;
  if (waitpid(pid, &status, 0) != pid) return -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void RunTwoWriters(RulesStoreTest& t, const std::string& cn_str, const std::filesystem::path& dir) {
  const std::string log_a = (dir / "a.log").string(), log_b = (dir / "b.log").string();
  const pid_t a = StartWriter(cn_str, "ja", log_a);
  const pid_t b = StartWriter(cn_str, "jb", log_b);
  ASSERT_GT(a, 0);
  ASSERT_GT(b, 0);
  EXPECT_EQ(WaitForExit(a), 0) << gw::testing::ReadFile(log_a);
  EXPECT_EQ(WaitForExit(b), 0) << gw::testing::ReadFile(log_b);
  (void)t;
}

class TwoProcessesTest : public RulesStoreTest {
 protected:
  void ExpectEveryRowWritten() {
    for (const char* job : {"ja", "jb"}) {
      SCOPED_TRACE(job);
      const std::vector<Variant> id{Variant(job)};
      EXPECT_EQ(
          Count("SELECT COUNT(*) FROM job_instances WHERE job_id = ? AND completion_code = 5", id),
          kRunsPerWriter);
      EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instances WHERE job_id = ? AND "
                      "task_completion_time IS NOT NULL",
                      id),
                kRunsPerWriter);
      EXPECT_EQ(Count("SELECT COUNT(*) FROM task_instance_docs WHERE job_id = ? AND "
                      "copy_completion_code = 'Success'",
                      id),
                kRunsPerWriter);
    }
    EXPECT_EQ(Count("SELECT COUNT(*) FROM task_inst_doc_results_by_ent"), 2 * kRunsPerWriter);
  }
};

TEST_F(TwoProcessesTest, TwoWritersOfRunRowsNeverFailWithALock) {
  Open();  // the store exists before the runs start
  RunTwoWriters(*this, cn_str_, home_.Path());
  ExpectEveryRowWritten();
}

TEST_F(TwoProcessesTest, TwoProcessesMayCreateTheStoreAtOnce) {
  ASSERT_FALSE(std::filesystem::exists(path_));
  RunTwoWriters(*this, cn_str_, home_.Path());
  ExpectEveryRowWritten();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM providers WHERE provider_id = 'Default'"), 1);
}

}  // namespace
}  // namespace gw
