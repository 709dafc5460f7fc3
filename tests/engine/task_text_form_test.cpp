// The text form in which a task keeps its settings.
#include <gtest/gtest.h>

#include "acquire/crawler.h"
#include "engine/run_fixture.h"
#include "rules/package_data_access.h"

namespace gw::engine_test {
namespace {

class TaskTextFormTest : public RunTest {};

TEST_F(TaskTextFormTest, FourFramedPiecesWithTheTaskXmlFirst) {
  auto job = NewJob("Form");
  auto task = AddTask(job, "Fetch", 3, TaskTypes::DownloadOnly);
  task->SetDescription("a < b & c");
  task->SetMethod(" post ");
  task->SetDoValidation(0);
  task->SetDocCleanseMethod("REPLACE");
  task->SetDocCleanseParams("x,y");
  const std::string text = task->Serialize();

  ASSERT_EQ(text.rfind("[!TSK!]<Task Object=\"True\">", 0), 0u) << text;
  const std::size_t end = text.find("[iTSKi]");
  ASSERT_NE(end, std::string::npos);
  // The crawler, the client and the saver write their own texts.
  EXPECT_EQ(text.substr(end), "[iTSKi][!CRL!]" + Crawler::Create()->Serialize() + "[iCRLi][!HTP!]" +
                                  web::HttpClient::Create()->Serialize() + "[iHTPi][!FIL!]" +
                                  FileSaver::Create()->Serialize() + "[iFILi]");
  const std::string xml = text.substr(0, end);
  for (const char* element :
       {"<InheritHttpClient>True</InheritHttpClient>", "<Method>POST</Method>",
        "<TaskType>1</TaskType>", "<DoValidation>0</DoValidation>",
        "<DocCleanseMethod>REPLACE</DocCleanseMethod>", "<DocCleanseParams>x,y</DocCleanseParams>",
        "<Description>a %3C b %26 c</Description>", "<DisplaySrcType>0</DisplaySrcType>"}) {
    EXPECT_NE(xml.find(element), std::string::npos) << element << "\n" << xml;
  }
  // What has a column of its own, and the run's values, stay out.
  for (const char* left_out : {"<TaskName", "<TaskId", "<Step", "<IsInstance", "<IsDirty",
                               "<StartTime", "<CompleteTime", "<CompleteCode"}) {
    EXPECT_EQ(xml.find(left_out), std::string::npos) << left_out;
  }
}

// The name, step, pause and source display are compared through a whole package in
// package_persistence_test.
TEST_F(TaskTextFormTest, EverySettingComesBackThroughTheStore) {
  auto job = NewJob("Form");
  auto task = AddTask(job, "Fetch", 3, TaskTypes::CmdLine);
  task->SetDescription("007");
  task->SetMethod("post");
  task->SetInheritHttpClient(false);
  task->SetClearTableBeforeExtraction(true);
  task->SetClearRootFolderBeforeDownload(true);
  task->SetIsDisabled(true);
  task->SetSaveErrorPages(true);
  task->SetDisableLocalFileCopy(true);
  task->SetDoValidation(-3);
  task->SetDocCleanseMethod("OBJECTS");
  task->SetDocCleanseParams("a,b");
  task->SetDocCleanseMethod2("PRETAGS");
  task->SetDocCleanseParams2("c");
  job->SaveAll();

  auto loaded = Task::Create();
  loaded->Load(task->TaskId());
  EXPECT_EQ(loaded->TaskType(), TaskTypes::CmdLine);
  // The reader types a value by its text: "007" arrives as the number 7.
  EXPECT_EQ(loaded->Description(), "7");
  EXPECT_EQ(loaded->Method(), "POST");
  EXPECT_FALSE(loaded->InheritHttpClient());
  EXPECT_TRUE(loaded->ClearTableBeforeExtraction());
  EXPECT_TRUE(loaded->ClearRootFolderBeforeDownload());
  EXPECT_TRUE(loaded->IsDisabled());
  EXPECT_TRUE(loaded->SaveErrorPages());
  EXPECT_TRUE(loaded->DisableLocalFileCopy());
  EXPECT_EQ(loaded->DoValidation(), -1);
  EXPECT_EQ(loaded->DocCleanseMethod(), "OBJECTS");
  EXPECT_EQ(loaded->DocCleanseParams(), "a,b");
  EXPECT_EQ(loaded->DocCleanseMethod2(), "PRETAGS");
  EXPECT_EQ(loaded->DocCleanseParams2(), "c");
  EXPECT_FALSE(loaded->IsDirty());
}

TEST_F(TaskTextFormTest, PiecesComeOutInAnyOrderAndUnknownOnesAreKept) {
  auto job = NewJob("Form");
  auto task = AddTask(job, "T", 1, TaskTypes::DownloadOnly);
  // A stored text whose saver and client pieces came first, and whose crawler piece is not empty.
  auto crawler = Crawler::Create();
  crawler->SetMaxDepth(4);
  const std::string crawler_text = crawler->Serialize();
  auto client = web::HttpClient::Create();
  client->SetUserAgent("Agent/7");
  const std::string client_text = client->Serialize();
  task->Deserialize(
      "[!FIL!]<FileSaver><RootFolder value=\"/data\"/></FileSaver>[iFILi]"
      "[!HTP!]" +
      client_text +
      "[iHTPi]"
      "[!TSK!]<Task Object=\"True\"><IsDisabled>True</IsDisabled><TaskType>4</TaskType></Task>"
      "[iTSKi][!CRL!]" +
      crawler_text + "[iCRLi]");
  EXPECT_TRUE(task->IsDisabled());
  EXPECT_EQ(task->TaskType(), TaskTypes::CmdLine);
  EXPECT_EQ(task->SaveAsTemplate()->RootFolder(), "/data");
  EXPECT_EQ(task->TemplateHttpClient()->UserAgent(), "Agent/7");
  const std::string text = task->Serialize();
  EXPECT_NE(text.find("[!CRL!]" + crawler_text + "[iCRLi][!HTP!]" + client_text +
                      "[iHTPi][!FIL!]<FileSaver><DocFolder value=\"\"/><FileName value=\"\"/>"
                      "<JobFolder value=\"\"/><RootFolder value=\"/data\"/><TaskFolder "
                      "value=\"\"/></FileSaver>[iFILi]"),
            std::string::npos)
      << text;

  // Nothing to read changes nothing.
  task->Deserialize("");
  task->Deserialize("no markers here");
  EXPECT_TRUE(task->IsDisabled());
  EXPECT_EQ(task->Serialize(), text);
}

TEST_F(TaskTextFormTest, CopyMakesASavedTwinWithItsOwnSources) {
  auto job = NewJob("Form");
  auto first = AddTask(job, "Fetch", 4, TaskTypes::DownloadOnly);
  AddTask(job, "Other", 9, TaskTypes::DownloadOnly);
  first->SetDocCleanseMethod("NONE");
  first->SetDoValidation(0);
  first->SetIsDisabled(true);
  AddSource(first, "/data/in");
  AddSource(first, "SELECT 1", SrcType::sql, "Provider=SQLite;Data Source=:memory:");
  job->SaveAll();

  auto copy = first->Copy();
  EXPECT_EQ(copy->TaskName(), "Copy of Fetch");
  EXPECT_EQ(copy->Step(), 10);
  EXPECT_NE(copy->TaskId(), first->TaskId());
  EXPECT_EQ(copy->DocCleanseMethod(), "NONE");
  // Not copied: they are back at their defaults.
  EXPECT_EQ(copy->DoValidation(), 1);
  EXPECT_FALSE(copy->IsDisabled());
  ASSERT_EQ(copy->GetDocSources().Count(), 2);
  EXPECT_NE(copy->GetDocSources().Item(1)->DocSrcId(), first->GetDocSources().Item(1)->DocSrcId());
  EXPECT_EQ(copy->GetDocSources().Item(2)->ConnStr(), "Provider=SQLite;Data Source=:memory:");
  EXPECT_EQ(job->GetTasks().Count(), 3);
  EXPECT_EQ(job->GetTasks().Item(3), copy);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks"), 3);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM doc_locations"), 4);
}

}  // namespace
}  // namespace gw::engine_test
