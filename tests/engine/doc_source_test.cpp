// Document sources expanded into address lists and queued documents.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "engine/doc_source.h"
#include "engine/run_fixture.h"
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

  JobPtr job_ = NewJob("Sources");
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
  // A file by its full path, whatever path named it.
  const fs::path cwd = fs::current_path();
  fs::current_path(docs_.Path());
  EXPECT_EQ(Uris(PathSource("sub/../a.htm")->UriList()), (std::vector<std::string>{Doc("a.htm")}));
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
  auto cn = db::Connection::Create();
  cn->Open(target_cn_);
  cn->ExecuteScript(
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
  auto cn = db::Connection::Create();
  cn->Open(target_cn_);
  cn->ExecuteScript(
      "CREATE TABLE pages (uri TEXT);"
      "INSERT INTO pages VALUES ('http://a.test/1'), (NULL), ('http://a.test/1');");
  PathSource(docs_.Path().string());
  AddSource(task_, "SELECT uri FROM pages", SrcType::sql, target_cn_);
  job_->SaveAll();
  job_->SetIsInstance(true);
  job_->SetStartTime(DateTime::Now());
  job_->Save();
  task_->SetIsInstance(true);
  task_->SetStartTime(job_->StartTime());
  task_->Save();

  task_->GetDocSources().CreateDocList(job_->JobId(), task_->TaskId(), job_->StartTime());
  // Nulls are passed over; an address listed twice is queued twice.
  EXPECT_EQ(RulesRows("SELECT uri, temp_uri, copy_completion_code, copy_try_count FROM "
                      "task_instance_docs WHERE job_id = ? AND task_id = ? ORDER BY rowid",
                      {Variant(job_->JobId()), Variant(task_->TaskId())}),
            (std::vector<std::string>{Doc("a.htm") + "||Queued|0", "http://a.test/1||Queued|0",
                                      "http://a.test/1||Queued|0"}));
  EXPECT_EQ(RulesRows("SELECT COUNT(DISTINCT doc_id) FROM task_instance_docs"),
            (std::vector<std::string>{"3"}));
}

}  // namespace
}  // namespace gw::engine_test
