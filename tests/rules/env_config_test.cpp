#include "rules/env_config.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "infra/c_registry.h"
#include "infra/log_files.h"
#include "platform/db/recordset.h"
#include "platform/paths.h"
#include "rules/connection_string.h"
#include "rules/failures.h"
#include "rules/settings.h"
#include "support/test_support.h"

namespace gw {
namespace {

constexpr const char* kKey = "SOFTWARE\\Tallowmere\\Zentrovo";

Variant RegistryValue(const char* name) {
  Variant v;
  C_Registry().QueryValueEx(C_Registry::KeyHandle(C_Registry::HKEY_LOCAL_MACHINE, kKey), name, v);
  return v;
}

// Every row of every table of the store but those of `skipped`, as text.
std::string Snapshot(const std::filesystem::path& file,
                     const std::vector<std::string>& skipped = {}) {
  auto cn = db::Connection::Create();
  cn->Open("Provider=SQLite;Data Source=" + file.string());
  std::string out;
  auto tables = cn->Execute("SELECT name FROM sqlite_master WHERE type = 'table' ORDER BY name");
  std::vector<std::string> names;
  for (; !tables->IsEOF(); tables->MoveNext()) names.push_back((*tables)[0L].Value().ToText());
  for (const std::string& name : names) {
    out += "table " + name + "\n";
    if (std::find(skipped.begin(), skipped.end(), name) != skipped.end()) continue;
    auto rows = cn->Execute("SELECT * FROM \"" + name + "\" ORDER BY 1");
    for (; !rows->IsEOF(); rows->MoveNext()) {
      for (long i = 0; i < rows->GetFields().Count(); ++i) {
        out += (*rows)[i].Value().IsNull() ? "NULL" : (*rows)[i].Value().ToText();
        out += "|";
      }
      out += "\n";
    }
  }
  return out;
}

class EnvConfigTest : public ::testing::Test {
 protected:
  EnvConfigTest() { modConnectionString::ClearCachedCnStr(); }
  ~EnvConfigTest() override { modConnectionString::ClearCachedCnStr(); }
  std::filesystem::path Store() const { return home_.Path() / "ZentrovoDB.sqlite"; }
  testing::ScopedHome home_;
};

TEST_F(EnvConfigTest, AFirstRunCreatesEverythingAndASecondStartChangesNothing) {
  CEnvConfig env;
  ASSERT_TRUE(env.IsFirstRun());
  ASSERT_TRUE(env.DoFirstRunConfigTasks());

  EXPECT_EQ(RegistryValue(env_value::kIsFirstRun).ToLong(), 0);
  EXPECT_FALSE(RegistryValue("CnStr").ToText().empty());
  ASSERT_TRUE(std::filesystem::exists(Store()));
  Settings settings;
  EXPECT_EQ(settings.GetOption("DefaultDownloadPath").ToText(),
            (home_.Path() / "downloads").string() + "/");
  EXPECT_EQ(settings.GetOption("TemplatePath").ToText(),
            (home_.Path() / "templates").string() + "/");
  EXPECT_EQ(settings.GetOption("PkgExecPath").ToText(), (ProgramDir() / "gleanwright").string());
  EXPECT_TRUE(std::filesystem::is_directory(home_.Path() / "strings"));
  const std::string trace = testing::ReadFile(LogDir() / log_file::kTrace);
  std::size_t at = 0;
  for (const char* step :
       {"[FirstRun] After Configure Proxy", "[FirstRun] After BuildCnStr",
        "[FirstRun] Calling StartSQL(", "[FirstRun] After StartSQL",
        "[FirstRun] After LoadDBSchema", "[FirstRun] After Base Data Load",
        "[Startup] SQL Started Successfully", "[Startup] After AlterDBTasks",
        "[Startup] After DisableScriptDebugging", "[FirstRun] After Normal Start Tasks",
        "[FirstRun] After BuildShapeCnStr", "[FirstRun] After AppPathSettings",
        "[FirstRun] IsFirstRun Set to False"}) {
    SCOPED_TRACE(step);
    at = trace.find(step, at);
    ASSERT_NE(at, std::string::npos) << trace;
  }

  const std::string store = Snapshot(Store());
  EXPECT_NE(store.find("table settings\n"), std::string::npos);
  const std::string registry = testing::ReadFile(home_.Path() / "registry.txt");
  CEnvConfig again;
  EXPECT_FALSE(again.IsFirstRun());
  EXPECT_TRUE(again.DoStartTasks());
  EXPECT_EQ(Snapshot(Store()), store);
  EXPECT_EQ(testing::ReadFile(home_.Path() / "registry.txt"), registry);
}

TEST_F(EnvConfigTest, PurgingDocumentsKeepsTheRunsAndEverythingElse) {
  CEnvConfig env;
  ASSERT_TRUE(env.DoFirstRunConfigTasks());
  {
    auto cn = db::Connection::Create();
    cn->Open("Provider=SQLite;Data Source=" + Store().string());
    for (const char* sql : {
             "INSERT INTO jobs (job_id, job_name) VALUES ('j1', 'books')",
             "INSERT INTO tasks (task_id, job_id, task_name, step) VALUES ('t1', 'j1', 'fetch', 1)",
             "INSERT INTO job_instances VALUES ('j1', '2026-01-02 03:04:05', NULL, 1)",
             "INSERT INTO job_instances VALUES ('j1', '2026-02-03 04:05:06', NULL, 2)",
             "INSERT INTO task_instances VALUES ('t1', 'j1', '2026-01-02 03:04:05', "
             "'2026-01-02 03:04:06', NULL, 1)",
             "INSERT INTO task_instance_docs (doc_id, task_id, job_id, job_start_time, uri) "
             "VALUES ('d1', 't1', 'j1', '2026-01-02 03:04:05', 'file:///a.html'), "
             "('d2', 't1', 'j1', '2026-01-02 03:04:05', 'file:///b.html')",
             "INSERT INTO task_inst_doc_results_by_ent (doc_id, entity_id, ent_occur_count) "
             "VALUES ('d1', 'e1', 3), ('d2', 'e1', 0)",
         }) {
      cn->ExecuteNonQuery(sql);
    }
  }
  const std::vector<std::string> purged = {"task_inst_doc_results_by_ent", "task_instance_docs"};
  const std::string kept = Snapshot(Store(), purged);
  ASSERT_NE(Snapshot(Store()), kept);  // there is something to purge

  env.PurgeDocDB();

  // The documents and their results are gone; the runs and every other table are as they were.
  EXPECT_EQ(Snapshot(Store()), kept);
  EXPECT_NE(kept.find("table job_instances\nj1|"), std::string::npos) << kept;
  EXPECT_NE(kept.find("table task_instances\nt1|"), std::string::npos) << kept;
  env.PurgeDocDB();  // nothing left to purge is no failure
  EXPECT_EQ(Snapshot(Store()), kept);
}

TEST_F(EnvConfigTest, AStaleFlagIsClearedWhenTheStoreIsAlreadyLoaded) {
  CEnvConfig env;
  env.DoFirstRunConfigTasks();
  C_Registry().SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kKey, env_value::kIsFirstRun, Variant(1),
                           C_Registry::REG_DWORD);
  EXPECT_FALSE(env.IsFirstRun());
  EXPECT_EQ(RegistryValue(env_value::kIsFirstRun).ToLong(), 0);
}

TEST_F(EnvConfigTest, TheSystemsProxyIsTakenOnlyWhenNoneIsSet) {
  ::setenv("https_proxy", "http://proxy.test:3128", 1);
  ::setenv("no_proxy", "localhost,.corp", 1);
  CEnvConfig env;
  bool ask = true;
  env.ConfigureWinHTTPProxy(ask);  // asked, no one to answer: No
  EXPECT_TRUE(RegistryValue("HttpProxy").IsEmpty());
  ask = false;
  env.ConfigureWinHTTPProxy(ask);
  EXPECT_EQ(RegistryValue("HttpProxy").ToText(), "http://proxy.test:3128");
  EXPECT_EQ(RegistryValue("HttpProxyBypass").ToText(), "localhost;.corp");
  ::setenv("https_proxy", "http://other.test:1", 1);
  env.ConfigureWinHTTPProxy(ask);
  EXPECT_EQ(RegistryValue("HttpProxy").ToText(), "http://proxy.test:3128");
  ::unsetenv("https_proxy");
  ::unsetenv("no_proxy");
}

TEST_F(EnvConfigTest, AStoreThatCannotOpenFailsAndDoStartSqlZeroSkipsTheCheck) {
  CEnvConfig env;
  const std::string bad =
      "Provider=SQLite;Data Source=" + (home_.Path() / "no/such/dir/x.sqlite").string();
  EXPECT_EQ(testing::FailureNumber([&] { env.StartSQL(bad); }), ruleserr::kStoreDoesNotAnswer);
  C_Registry().SetKeyValue(C_Registry::HKEY_LOCAL_MACHINE, kKey, env_value::kDoStartSQL, Variant(0),
                           C_Registry::REG_DWORD);
  EXPECT_EQ(env.StartSQL(bad), nullptr);
}

}  // namespace
}  // namespace gw
