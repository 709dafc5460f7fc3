// Document sources expanded into address lists and queued documents.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "engine/doc_source.h"
#include "engine/run_fixture.h"
#include "engine/running_instance.h"
#include "platform/db/connection.h"
#include "rules/package_data_access.h"

namespace gw::engine_test {
namespace {

using testing::CaughtError;
using testing::WriteFile;
namespace fs = std::filesystem;

class DocSourceTest : public RunTest {
 protected:
  // A path source of a task in a saved package.
  DocSourcePtr PathSource(const std::string& path, bool subfolders = false) {
    auto source = AddSource(task_, path);
    source->SetIncludeSubFolders(subfolders);
    return source;
  }
  static std::vector<std::string> Uris(const db::RecordsetPtr& list) {
    std::vector<std::string> uris;
    if (list->RecordCount() > 0) list->MoveFirst();
    for (; !list->IsEOF(); list->MoveNext()) {
      const Variant& v = list->GetFields()[0L].Value();
      uris.push_back(v.IsNull() ? "NULL" : v.ToText());
    }
    return uris;
  }
  std::string Doc(const std::string& name) { return (docs_ / name).string(); }
  // A table "pages" of 3000 addresses in the target store, and a query of them, by n, that fails
  // at row `row` (`overflow_`) after handing on the rows before it.
  std::string QueryFailingAtRow(int row) {
    auto cn = db::Connection::Create();
    cn->Open(target_cn_);
    cn->ExecuteScript(
        "CREATE TABLE pages (uri TEXT, n INTEGER PRIMARY KEY);"
        "WITH RECURSIVE k(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM k WHERE n < 3000) "
        "INSERT INTO pages SELECT 'http://a.test/' || n, n FROM k");
    overflow_ = CaughtError([&] { cn->Execute("SELECT abs(-9223372036854775807 - 1)"); });
    return "SELECT CASE WHEN n < " + std::to_string(row) +
           " THEN uri ELSE abs(n - n - 9223372036854775807 - 1) END FROM pages ORDER BY n";
  }
  void StartInstance() { testing::StartInstance(*job_, *task_); }
  // Queues the task's documents in the running instance.
  void Queue() {
    task_->GetDocSources().CreateDocList(job_->JobId(), task_->TaskId(), job_->StartTime());
  }

  JobPtr job_ = NewJob("Sources");
  Error overflow_{0, "", ""};
  TaskPtr task_ = AddTask(job_, "Read", 1, TaskTypes::DownloadOnly);
};

TEST_F(DocSourceTest, PathSourcesListFilesFoldersAndAddresses) {
  WriteFile(docs_ / "b.htm", "b");
  WriteFile(docs_ / "a.htm", "a");
  WriteFile(docs_ / "sub" / "z" / "deep.htm", "d");
  WriteFile(docs_ / "sub" / "c.htm", "c");
  fs::create_directories(docs_ / "empty");

  // Files by name, subfolders after the files, each walked the same way.
  EXPECT_EQ(Uris(PathSource(docs_.Path().string())->UriList()),
            (std::vector<std::string>{Doc("a.htm"), Doc("b.htm")}));
  EXPECT_EQ(Uris(PathSource(docs_.Path().string(), true)->UriList()),
            (std::vector<std::string>{Doc("a.htm"), Doc("b.htm"), Doc("sub/c.htm"),
                                      Doc("sub/z/deep.htm")}));
  EXPECT_TRUE(Uris(PathSource(Doc("empty"), true)->UriList()).empty());
  // A file by its full path, whatever path named it or its folder.
  const fs::path cwd = fs::current_path();
  fs::current_path(docs_.Path());
  EXPECT_EQ(Uris(PathSource("sub/../a.htm")->UriList()), (std::vector<std::string>{Doc("a.htm")}));
  for (const char* folder : {"sub/..", "./", "sub/z/../../"}) {
    EXPECT_EQ(Uris(PathSource(folder)->UriList()),
              (std::vector<std::string>{Doc("a.htm"), Doc("b.htm")}))
        << folder;
  }
  fs::current_path(cwd);
  // Neither a file nor a folder: an address, as it stands.
  EXPECT_EQ(Uris(PathSource(Doc("missing.htm"))->UriList()),
            (std::vector<std::string>{Doc("missing.htm")}));
  EXPECT_EQ(Uris(PathSource("http://example.test/a?b=1")->UriList()),
            (std::vector<std::string>{"http://example.test/a?b=1"}));
  // The list's one field.
  auto list = PathSource(Doc("a.htm"))->UriList();
  EXPECT_EQ(list->GetFields()[0L].Name(), "URI");
  EXPECT_EQ(list->GetFields()[0L].DefinedSize(), 6000);
}

TEST_F(DocSourceTest, FilesThatCannotBeReadAreListedSoThatTheirDocumentsSayWhy) {
  const gw::testing::PermissionsBind permissions_bind;
  WriteFile(docs_ / "a.htm", "a");
  WriteFile(docs_ / "secret.htm", "s");
  WriteFile(docs_ / "locked" / "x.htm", "x");
  fs::permissions(docs_ / "secret.htm", fs::perms::none);
  fs::permissions(docs_ / "locked", fs::perms::none);
  fs::create_symlink(docs_ / "nowhere.htm", docs_ / "dangling.htm");
  fs::create_symlink(docs_ / "loop2", docs_ / "loop1");
  fs::create_symlink(docs_ / "loop1", docs_ / "loop2");
  ASSERT_EQ(::mkfifo(Doc("pipe").c_str(), 0644), 0);
  // Nothing vanishes, and a link loop does not stop the walk.
  EXPECT_EQ(Uris(PathSource(docs_.Path().string(), true)->UriList()),
            (std::vector<std::string>{Doc("a.htm"), Doc("dangling.htm"), Doc("loop1"), Doc("loop2"),
                                      Doc("pipe"), Doc("secret.htm"), Doc("locked")}));
  // Named alone, each is one document too.
  EXPECT_EQ(Uris(PathSource(Doc("dangling.htm"))->UriList()),
            (std::vector<std::string>{Doc("dangling.htm")}));
  EXPECT_EQ(Uris(PathSource(Doc("loop1"))->UriList()), (std::vector<std::string>{Doc("loop1")}));
  fs::permissions(docs_ / "locked", fs::perms::owner_all);
}

TEST_F(DocSourceTest, IncludeSubFoldersIsNotStored) {
  auto source = PathSource(docs_.Path().string(), true);
  job_->SaveAll();
  auto loaded = DocSource::Create();
  loaded->Load(source->DocSrcId());
  EXPECT_FALSE(loaded->IncludeSubFolders());
}

TEST_F(DocSourceTest, SqlSourcesListTheRowsOfTheirQuery) {
  TargetScript(
      "CREATE TABLE pages (uri TEXT, n INT);"
      "INSERT INTO pages VALUES ('http://a.test/1', 1), (NULL, 2), ('', 3), ('http://a.test/1', "
      "4);");
  auto source = AddSource(task_, "SELECT uri FROM pages ORDER BY n", SrcType::sql, target_cn_);
  EXPECT_EQ(Uris(source->UriList()),
            (std::vector<std::string>{"http://a.test/1", "NULL", "", "http://a.test/1"}));

  source->SetConnStr("");
  EXPECT_EQ(CaughtError([&] { source->UriList(); }).Number(), engineerr::kNoConnectionString);
  source->SetConnStr(target_cn_);
  source->SetSource("");
  const Error e = CaughtError([&] { source->UriList(); });
  EXPECT_EQ(e.Number(), engineerr::kNoStatement);
  EXPECT_EQ(e.Description(),
            "No SQL statement was specified.  Please specify as valid SQL Select Statement.");
}

TEST_F(DocSourceTest, QueuingWritesOneQueuedRowPerAddress) {
  WriteFile(docs_ / "a.htm", "a");
  TargetScript(
      "CREATE TABLE pages (uri TEXT);"
      "INSERT INTO pages VALUES ('http://a.test/1'), (NULL), ('http://a.test/1');");
  PathSource(docs_.Path().string());
  AddSource(task_, "SELECT uri FROM pages", SrcType::sql, target_cn_);
  StartInstance();

  Queue();
  // Nulls are passed over; an address listed twice is queued twice.
  EXPECT_EQ(RulesRows("SELECT uri, temp_uri, copy_completion_code, copy_try_count FROM "
                      "task_instance_docs WHERE job_id = ? AND task_id = ? ORDER BY rowid",
                      {Variant(job_->JobId()), Variant(task_->TaskId())}),
            (std::vector<std::string>{Doc("a.htm") + "||Queued|0", "http://a.test/1||Queued|0",
                                      "http://a.test/1||Queued|0"}));
  EXPECT_EQ(RulesRows("SELECT COUNT(DISTINCT doc_id) FROM task_instance_docs"),
            (std::vector<std::string>{"3"}));
}

// Queuing reads a source's addresses as it writes their rows: thousands of them, from a query
// whose order is not the table's, each become one row, in the query's order.
TEST_F(DocSourceTest, AQueryOfThousandsOfAddressesQueuesEachOnceInItsOrder) {
  constexpr int kAddresses = 4000;
  TargetScript(
      "CREATE TABLE pages (uri TEXT, n INT);"
      "WITH RECURSIVE k(n) AS (SELECT 1 UNION ALL SELECT n + 1 FROM k WHERE n < 4000) "
      "INSERT INTO pages SELECT CASE WHEN n % 500 = 0 THEN NULL ELSE 'http://a.test/' || n END, "
      "n FROM k ORDER BY (n * 7919) % 4001");
  AddSource(task_, "SELECT uri FROM pages ORDER BY n DESC", SrcType::sql, target_cn_);
  StartInstance();

  Queue();
  std::vector<std::string> expected;
  for (int n = kAddresses; n >= 1; --n) {
    if (n % 500 != 0) expected.push_back("http://a.test/" + std::to_string(n) + "|Queued");
  }
  EXPECT_EQ(RulesRows("SELECT uri, copy_completion_code FROM task_instance_docs WHERE task_id = ? "
                      "ORDER BY rowid",
                      {Variant(task_->TaskId())}),
            expected);
  EXPECT_EQ(RulesRows("SELECT COUNT(DISTINCT doc_id) FROM task_instance_docs"),
            (std::vector<std::string>{std::to_string(expected.size())}));
}

// A source whose query fails part of the way, or runs but yields no rows, queues nothing.
TEST_F(DocSourceTest, ASourceThatCannotBeReadToTheEndQueuesNothing) {
  auto source = AddSource(task_, QueryFailingAtRow(2500), SrcType::sql, target_cn_);
  StartInstance();
  const auto queued = [&] {
    return RulesRows("SELECT COUNT(*) FROM task_instance_docs WHERE task_id = ?",
                     {Variant(task_->TaskId())});
  };
  EXPECT_EQ(CaughtError([&] { Queue(); }).Number(), overflow_.Number());
  EXPECT_EQ(queued(), (std::vector<std::string>{"0"}));

  // A statement without rows runs, and its list cannot be read.
  source->SetSource("UPDATE pages SET n = n + 10000");
  EXPECT_EQ(CaughtError([&] { Queue(); }).Number(), db::dberr::kObjectClosed);
  EXPECT_EQ(queued(), (std::vector<std::string>{"0"}));
  EXPECT_EQ(TargetRows("SELECT MIN(n) FROM pages"), (std::vector<std::string>{"10001"}));
  EXPECT_FALSE(source->UriList()->State() == db::ObjectState::Open);
}

// A query that fails only at a later row is as bad a source as one that does not run: validation
// reads it to the end and says so in the same words, with the store's message.
TEST_F(DocSourceTest, ValidationReadsASourcesQueryToItsEnd) {
  auto source = AddSource(task_, QueryFailingAtRow(2900), SrcType::sql, target_cn_);
  job_->SaveAll();
  const Error e = CaughtError([&] { task_->Validate(); });
  EXPECT_EQ(e.Number(), engineerr::kSqlSourceUnreachable);
  EXPECT_EQ(e.Description(),
            "There was an issue connecting to the database or file that you specified as the "
            "source of a file or url list for the task Read.  Ensure that the database and table "
            "or file exists and that the user name and password (if necessary) are correct.  A "
            "database that requires a password needs it in the connection string, which is "
            "stored enciphered.  The connection string that you are using is (passwords "
            "hidden): " +
                db::MaskPasswords(target_cn_) +
                " Additional Error Info: " + overflow_.Description());
  source->SetSource("SELECT uri FROM pages ORDER BY n");
  EXPECT_NO_THROW(task_->Validate());
}

// Reading a source one address at a time gives what its list holds, in the same order.
TEST_F(DocSourceTest, AddressesHandedOnOneByOneAreTheListsAddresses) {
  WriteFile(docs_ / "b.htm", "b");
  WriteFile(docs_ / "a.htm", "a");
  WriteFile(docs_ / "sub" / "c.htm", "c");
  WriteFile(docs_ / "sub" / "deeper" / "d.htm", "d");
  TargetScript(
      "CREATE TABLE pages (uri TEXT, n INT);"
      "INSERT INTO pages VALUES ('http://a.test/2', 2), (NULL, 3), ('', 4), ('http://a.test/1', "
      "1);");
  const auto each = [](DocSource& source) {
    std::vector<std::string> uris;
    source.ForEachUri([&](const Variant& v) { uris.push_back(v.IsNull() ? "NULL" : v.ToText()); });
    return uris;
  };
  const struct {
    const char* name;
    DocSourcePtr source;
  } cases[] = {
      {"folder", PathSource(docs_.Path().string())},
      {"folder and subfolders", PathSource(docs_.Path().string(), true)},
      {"file", PathSource(Doc("a.htm"))},
      {"address", PathSource("http://a.test/page")},
      {"query", AddSource(task_, "SELECT uri FROM pages ORDER BY n", SrcType::sql, target_cn_)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const std::vector<std::string> listed = Uris(c.source->UriList());
    EXPECT_FALSE(listed.empty());
    EXPECT_EQ(each(*c.source), listed);
  }
}

}  // namespace
}  // namespace gw::engine_test
