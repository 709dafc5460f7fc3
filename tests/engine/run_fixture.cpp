#include "engine/run_fixture.h"

#include "acquire/components.h"
#include "design/components.h"
#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/stored_fields.h"
#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "rules/settings.h"

namespace gw::engine_test {

namespace {

std::vector<std::string> RowsOf(db::Recordset& rs) {
  std::vector<std::string> rows;
  for (; !rs.IsEOF(); rs.MoveNext()) {
    std::string row;
    for (long k = 0; k < rs.GetFields().Count(); ++k) {
      if (k > 0) row += "|";
      const Variant& v = rs.GetFields()[k].Value();
      row += v.IsNull() ? "NULL" : v.ToText();
    }
    rows.push_back(row);
  }
  return rows;
}

}  // namespace

long EventLog::Count(const std::string& event) const {
  long n = 0;
  for (const auto& e : events) n += e == event;
  return n;
}

RunTest::RunTest()
    : target_(home_.Path() / "target.sqlite"),
      target_cn_("Provider=SQLite;Data Source=" + target_.string()) {
  RegisterDesignComponents();
  RegisterAcquireComponents();
  Settings settings;
  settings.PutOption("DefaultDownloadPath", Variant((home_.Path() / "downloads").string() + "/"),
                     DataType::Str);
  std::filesystem::create_directories(home_.Path() / "strings");
  settings.PutOption("StringFileCreatePath", Variant((home_.Path() / "strings").string() + "/"),
                     DataType::Str);
}

std::string RunTest::SaveListingPage() {
  auto page = DataPage::Create();
  page->SetDisplayName("Listing");
  auto items =
      testing::Dataset(page->RootEntities(), "items", "items", "<li class=item>", target_cn_);
  items->SetOnPageOrder(1);
  testing::Field(items, "name", 1, "<b>", "</b>")->SetColumnSize(100);
  auto note = testing::Field(items, "note", 2, "<i>", "</i>");
  note->SetColumnSize(100);
  note->SetIsOptional(true);
  auto tags = testing::Dataset(items->ChildrenOnPage(), "tags", "tags", "<span>", target_cn_);
  tags->SetOnPageOrder(1);
  testing::Field(tags, "tag", 1, "<span>", "</span>")->SetColumnSize(100);
  page->Save();
  for (const auto& e : {items, tags}) {
    e->Save();
    for (const auto& a : e->GetAttributes()) a->Save();
  }
  return page->Id();
}

JobPtr RunTest::NewJob(const std::string& name) {
  auto job = Job::Create();
  job->SetJobName(name);
  job->Save();
  return job;
}

TaskPtr RunTest::AddTask(const JobPtr& job, const std::string& name, std::int32_t step,
                         TaskTypes type, const std::string& page_id) {
  auto task = Task::Create();
  task->SetTaskName(name);
  task->SetStep(step);
  task->SetTaskType(type);
  task->SetDataPageId(page_id);
  job->GetTasks().Add(task);
  return task;
}

DocSourcePtr RunTest::AddSource(const TaskPtr& task, const std::string& source, SrcType type,
                                const std::string& cn_str) {
  auto s = DocSource::Create();
  s->SetSourceType(type);
  s->SetSource(source);
  s->SetConnStr(cn_str);
  task->GetDocSources().Add(s, s->DocSrcId());
  return s;
}

std::string RunTest::ListingHtml(const std::vector<Item>& items) {
  std::string html = "<html><body><ul>\n";
  for (const auto& item : items) {
    html += "<li class=item><b>" + item.name + "</b>";
    if (!item.note.empty()) html += "<i>" + item.note + "</i>";
    for (const auto& tag : item.tags) html += "<span>" + tag + "</span>";
    html += "</li>\n";
  }
  return html + "</ul></body></html>\n";
}

void RunTest::TargetScript(const std::string& script) {
  auto cn = db::Connection::Create();
  cn->Open(target_cn_);
  cn->ExecuteScript(script);
}

std::vector<std::string> RunTest::TargetRows(const std::string& sql) {
  auto cn = db::Connection::Create();
  cn->Open(target_cn_);
  return RowsOf(*cn->Execute(sql));
}

std::vector<std::string> RunTest::RulesRows(const std::string& sql,
                                            const std::vector<Variant>& params) {
  return RowsOf(*Open()->Execute(sql, params));
}

namespace {

// The events a package and a task both raise; the three of a task's extraction and end are
// named differently on each.
template <typename Source>
void ListenToCommonEvents(Source& source, EventLog& log, Signal<>& extraction_begin,
                          Signal<>& extraction_complete, Signal<>& execute_complete) {
  auto& c = log.connections;
  auto* events = &log.events;
  c.emplace_back(source.OnStatusChange.Connect(
      [events](const std::string& s, bool&) { events->push_back("status:" + s); }));
  c.emplace_back(source.OnMajorProgressChange.Connect([events](long change, long max) {
    events->push_back("major:" + std::to_string(change) + "/" + std::to_string(max));
  }));
  c.emplace_back(source.OnAllDownloadsBegin.Connect([events] { events->push_back("downloads"); }));
  c.emplace_back(
      source.OnAllDownloadsComplete.Connect([events] { events->push_back("downloaded"); }));
  c.emplace_back(
      source.OnDatapageExtractBegin.Connect([events] { events->push_back("page begin"); }));
  c.emplace_back(
      source.OnDatapageExtractComplete.Connect([events] { events->push_back("page complete"); }));
  c.emplace_back(extraction_begin.Connect([events] { events->push_back("extraction begin"); }));
  c.emplace_back(
      extraction_complete.Connect([events] { events->push_back("extraction complete"); }));
  c.emplace_back(execute_complete.Connect([events] { events->push_back("task complete"); }));
}

}  // namespace

void RunTest::Listen(Job& job, EventLog& log) {
  ListenToCommonEvents(job, log, job.OnTaskExtractionBegin, job.OnTaskExtractionComplete,
                       job.OnTaskExecuteComplete);
  auto* events = &log.events;
  log.connections.emplace_back(job.OnJobExecuteBegin.Connect(
      [events](const std::string&, const DateTime&) { events->push_back("job begin"); }));
  log.connections.emplace_back(job.OnJobExecuteComplete.Connect(
      [events](const std::string&, const DateTime&) { events->push_back("job complete"); }));
}

void RunTest::Listen(Task& task, EventLog& log) {
  ListenToCommonEvents(task, log, task.OnExtractionBegin, task.OnExtractionComplete,
                       task.OnExecuteComplete);
}

}  // namespace gw::engine_test
