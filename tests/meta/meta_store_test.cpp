// Run metadata on a real rules store: success codes per level and what each save writes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>

#include "meta/meta_doc.h"
#include "meta/meta_entity.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/rules_fixture.h"
#include "rules/rules_transaction.h"

namespace gw {
namespace {

namespace fs = std::filesystem;
using testing::FailureNumber;
using testing::RulesStoreTest;
using testing::TempDir;

const DateTime kRun = DateTime::FromParts(2026, 3, 4, 5, 6, 7);

MetaEntityPtr Counted(const std::string& id, long occurrences, long extractions) {
  auto e = MetaEntity::Create(id);
  e->SetOccurCount(occurrences);
  for (long k = 0; k < extractions; ++k) e->IncrementExtractCount();
  return e;
}

MetaDocPtr Doc(const std::string& id, std::initializer_list<MetaEntityPtr> entities) {
  auto doc = MetaDoc::Create();
  doc->SetDocId(id);
  for (const auto& e : entities) doc->GetMetaEntities().Add(e, doc);
  return doc;
}

class MetaStoreTest : public RulesStoreTest {
 protected:
  // The text of one column of the only row a query gives ("NULL" for a null).
  std::string Value(const std::string& sql, const std::vector<Variant>& params = {}) {
    auto rs = Open()->Execute(sql, params);
    if (rs->IsEOF()) return "no row";
    const Variant& v = rs->GetFields().Item(0L).Value();
    return v.IsNull() ? "NULL" : v.ToText();
  }
};

TEST_F(MetaStoreTest, EachLevelAsksTheStoreForTheCodeOfItsDeterminant) {
  auto job_with_tasks = MetaJob::Create();
  for (const char* id : {"t1", "t2"}) {
    auto t = MetaTask::Create();
    t->SetTaskId(id);
    job_with_tasks->GetMetaTasks().Add(t, job_with_tasks);
  }
  auto task_with_docs = MetaTask::Create();
  task_with_docs->GetMetaDocs().Add(Doc("d1", {Counted("e1", 4, 1)}), task_with_docs);
  task_with_docs->GetMetaDocs().Add(Doc("d2", {Counted("e1", 2, 2)}), task_with_docs);

  // The determinant and the code of any level.
  struct Probe {
    std::function<float()> determinant;
    std::function<std::string()> code;
    std::function<int()> code_id;
  };
  auto of = [](auto level) {
    return Probe{[level] {
                   if constexpr (std::is_same_v<decltype(level), MetaEntityPtr>) {
                     return level->ExtractionPct();
                   } else {
                     return level->AvgExtractionPct();
                   }
                 },
                 [level] { return level->SuccessCode(); },
                 [level] { return static_cast<int>(level->SuccessCodeId()); }};
  };
  struct Case {
    const char* what;
    Probe probe;
    float expected_determinant;
    const char* expected_code;
    int expected_id;
  };
  const Case cases[] = {
      {"no occurrence, rows anyway", of(Counted("e", 0, 3)), 100, "Success", 5},
      {"more rows than occurrences", of(Counted("e", 2, 5)), 100, "Success", 5},
      {"a quarter", of(Counted("e", 4, 1)), 25, "Poor", 2},
      {"nothing found", of(Counted("e", 4, 0)), 0, "Failure", 1},
      {"a document without datasets", of(Doc("d", {})), 0, "Failure", 1},
      {"a document's mean", of(Doc("d", {Counted("a", 4, 3), Counted("b", 0, 0)})), 87.5f,
       "Mostly Successful", 4},
      {"a step without documents", of(MetaTask::Create()), 100, "Success", 5},
      {"a step's mean", of(task_with_docs), 62.5f, "Partial Success", 3},
      {"a package without steps", of(MetaJob::Create()), 0, "Failure", 1},
      {"two steps that extracted nothing", of(job_with_tasks), 100, "Success", 5},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_FLOAT_EQ(c.probe.determinant(), c.expected_determinant);
    EXPECT_EQ(c.probe.code(), c.expected_code);
    EXPECT_EQ(c.probe.code_id(), c.expected_id);
  }
}

TEST_F(MetaStoreTest, CodesAreReadAnewAtEveryCall) {
  auto e = Counted("e", 1, 1);
  EXPECT_EQ(e->SuccessCode(), "Success");
  Exec("UPDATE entity_success_codes SET display_name = 'Perfect' WHERE entity_success_code_id = 5");
  EXPECT_EQ(e->SuccessCode(), "Perfect");
  // A store whose bands leave the determinant out fails from the read, with no row to give.
  Exec("DELETE FROM entity_success_codes WHERE entity_success_code_id = 5");
  EXPECT_EQ(FailureNumber([&] { e->SuccessCodeId(); }), errnum::kNoCurrentRecord);
}

TEST_F(MetaStoreTest, SavesWriteTheRowsOfTheirLevel) {
  // The run as the package engine leaves it before the end: the package's and the step's rows,
  // and a downloaded document.
  DJob().SaveInstance("j1", kRun, Variant(kRun.AddSeconds(60)), Variant(std::int16_t{1}));
  DTask().SaveInstance("t1", "j1", kRun, kRun);
  D_Doc().SaveDocument("d1", "t1", "j1", kRun, "http://x/1", "/tmp/1.html", "Success");

  auto job = MetaJob::Create();
  job->SetJobId("j1");
  job->SetJobStartTime(kRun);
  auto task = MetaTask::Create();
  task->SetTaskId("t1");
  task->SetMetaJob(job);
  task->SetStartTime(kRun.AddSeconds(1));
  task->SetCompleteTime(kRun.AddSeconds(30));
  auto doc = MetaDoc::Create();
  doc->SetDocId("d1");
  doc->SetSourceUri("http://x/1");
  doc->SetLocalPath("/tmp/1.html");
  doc->SetExtractionStart(kRun.AddSeconds(2));
  doc->SetExtractionComplete(kRun.AddSeconds(3));
  task->GetMetaDocs().Add(doc, task);
  auto found = doc->GetMetaEntities().Add(Counted("e1", 4, 3), doc);
  found->IncrementErrorCount();
  found->IncrementErrorCount();
  found->IncrementSuccessCoeffSum(1.5);

  EXPECT_TRUE(doc->SaveToMetabase());
  // Three rows of four occurrences: 75, the band of 50 to 80.
  EXPECT_EQ(Value("SELECT extraction_completion_code FROM task_instance_docs"), "3");
  EXPECT_EQ(Value("SELECT doc_start_time FROM task_instance_docs"), "03-04-2026 05:06:09");
  EXPECT_EQ(Value("SELECT doc_completion_time FROM task_instance_docs"), "03-04-2026 05:06:10");
  EXPECT_EQ(Value("SELECT copy_completion_code || task_id FROM task_instance_docs"), "Successt1")
      << "columns the save does not name keep their values";
  EXPECT_EQ(Value("SELECT COUNT(*) FROM task_inst_doc_results_by_ent"), "0");

  EXPECT_TRUE(task->SaveToMetabase());
  EXPECT_EQ(Value("SELECT task_completion_time FROM task_instances"), "03-04-2026 05:06:37");
  EXPECT_EQ(Value("SELECT completion_code FROM task_instances"), "3");

  task->GetMetaDocs().SaveAll();
  EXPECT_EQ(Value("SELECT ent_occur_count || '/' || ent_extract_count || '/' || error_count || "
                  "'/' || success_code FROM task_inst_doc_results_by_ent WHERE doc_id = 'd1' AND "
                  "entity_id = 'e1'"),
            "4/3/2/3");
  EXPECT_EQ(Value("SELECT avg_success_coeff FROM task_inst_doc_results_by_ent"), "0.5");
  EXPECT_NEAR(std::stod(Value("SELECT avg_error_count FROM task_inst_doc_results_by_ent")), 2.0 / 3,
              1e-6);

  // The package's code: one step registered (without documents of its own) gives 100; the
  // completion time stays as the package wrote it.
  auto registered = MetaTask::Create();
  registered->SetTaskId("t1");
  job->GetMetaTasks().Add(registered, job);
  job->SaveToMetabase();
  EXPECT_EQ(Value("SELECT completion_code FROM job_instances"), "5");
  EXPECT_EQ(Value("SELECT job_completion_time FROM job_instances"), "03-04-2026 05:07:07");

  // SaveAll goes down the tree: the registered step has no start, so its row loses the start.
  Exec("DELETE FROM task_inst_doc_results_by_ent");
  registered->GetMetaDocs().Add(doc, registered);
  job->SaveAll();
  EXPECT_EQ(Value("SELECT COUNT(*) FROM task_inst_doc_results_by_ent"), "1");
  EXPECT_EQ(Value("SELECT task_start_time FROM task_instances"), "NULL");
}

// Documents settled one by one during a run write, at the end, exactly what their objects would
// have written, and weigh in the step's mean as they did: a few (kept in memory), many (kept in a
// temporary file), and many when the temporary folder is missing (kept in memory after all).
TEST_F(MetaStoreTest, SettledDocumentsSaveWhatTheirObjectsWould) {
  DJob().SaveInstance("j1", kRun, Variant(kRun.AddSeconds(60)), Variant(std::int16_t{1}));
  DTask().SaveInstance("t1", "j1", kRun, kRun);
  // Documents unlike each other: datasets found in part, a refusal on one dataset, a child
  // dataset registered twice, a document that could not be read, one never extracted; after
  // those, documents of every length and count.
  const auto make_docs = [](int count) {
    std::vector<MetaDocPtr> docs;
    for (int k = 1; k <= count; ++k) {
      auto doc = MetaDoc::Create();
      doc->SetDocId("d" + std::to_string(k));
      doc->SetSourceUri("http://x/" + std::to_string(k) + std::string(k % 37, 'q'));
      doc->SetLocalPath("/tmp/copy " + std::to_string(k) + ".html");
      if (k != 4) {
        doc->SetExtractionStart(kRun.AddSeconds(k));
        doc->SetExtractionComplete(kRun.AddSeconds(k + 1));
      }
      if (k > 4) {
        auto books = doc->GetMetaEntities().Add(Counted("books", k % 5, k % 3), doc);
        if (k % 7 == 0) books->IncrementErrorCount();
        if (k % 11 == 0) books->RecordRefusal("refused on " + std::to_string(k));
      }
      docs.push_back(doc);
    }
    auto books = docs[0]->GetMetaEntities().Add(Counted("books", 4, 3), docs[0]);
    books->IncrementErrorCount();
    books->IncrementSuccessCoeffSum(2.25);
    auto reviews = docs[0]->GetMetaEntities().Add(Counted("reviews", 5, 5), docs[0]);
    reviews->RecordRefusal("UNIQUE constraint failed: reviews.id");
    reviews->RecordRefusal("a second reason");
    docs[1]->GetMetaEntities().Add(Counted("books", 2, 0), docs[1]);
    docs[1]->GetMetaEntities().Add(Counted("reviews", 1, 1), docs[1]);
    docs[1]->GetMetaEntities().TryRemove("reviews");
    docs[1]->GetMetaEntities().Add(Counted("reviews", 3, 2), docs[1]);
    docs[2]->SetFailure("The document /tmp/copy 3.html is empty: there is nothing to extract.");
    return docs;
  };
  // The history, then the documents' rows as the download left them.
  const auto saved_history = [&](int count) {
    std::string rows;
    auto rs = Open()->Execute(
        "SELECT d.doc_id, d.uri, d.temp_uri, d.doc_start_time, d.doc_completion_time, "
        "d.extraction_completion_code, d.rows_written, d.rows_refused, d.refusal, r.entity_id, "
        "r.ent_occur_count, r.ent_extract_count, r.avg_success_coeff, r.success_code, "
        "r.error_count, r.avg_error_count, r.rows_refused, r.refusal FROM task_instance_docs d "
        "LEFT JOIN task_inst_doc_results_by_ent r ON r.doc_id = d.doc_id ORDER BY 1, 10");
    for (; !rs->IsEOF(); rs->MoveNext()) {
      for (long c = 0; c < rs->GetFields().Count(); ++c) {
        const Variant& v = rs->GetFields().Item(c).Value();
        rows += (v.IsNull() ? "NULL" : v.ToText()) + "|";
      }
      rows += "\n";
    }
    Exec("DELETE FROM task_inst_doc_results_by_ent");
    Exec("DELETE FROM task_instance_docs");
    RulesTransaction reset(modConnectionString::GetCnStr());
    for (int k = 1; k <= count; ++k) {
      D_Doc().SaveDocument("d" + std::to_string(k), "t1", "j1", kRun, "", "", "Success");
    }
    reset.Commit();
    return rows;
  };
  // The unnamed files this process has open in `dir`.
  const auto files_in = [](const fs::path& dir) {
    int n = 0;
    for (const auto& fd : fs::directory_iterator("/proc/self/fd")) {
      std::error_code ec;
      if (fs::read_symlink(fd.path(), ec).string().starts_with(dir.string() + "/")) ++n;
    }
    return n;
  };

  struct Case {
    int docs;
    bool folder;  // whether the temporary folder is there
    int files;    // unnamed files open before SaveAll
  };
  for (const Case& c : {Case{4, true, 0}, Case{1500, true, 1}, Case{1500, false, 0}}) {
    SCOPED_TRACE(::testing::Message() << c.docs << " documents, folder " << c.folder);
    TempDir tmp;
    const fs::path folder = c.folder ? tmp.Path() : tmp / "missing";
    const std::string old_tmpdir = std::getenv("TMPDIR") ? std::getenv("TMPDIR") : "";
    ::setenv("TMPDIR", folder.c_str(), 1);

    saved_history(c.docs);
    auto as_objects = MetaTask::Create();
    for (const auto& doc : make_docs(c.docs)) as_objects->GetMetaDocs().Add(doc, as_objects);
    as_objects->GetMetaDocs().SaveAll();
    const std::string expected = saved_history(c.docs);
    ASSERT_NE(expected.find("UNIQUE constraint failed"), std::string::npos);

    // Settled after each document, as a run does; the last stays an object.
    auto settled = MetaTask::Create();
    {
      auto docs = make_docs(c.docs);
      for (int k = 1; k < c.docs; ++k) {
        settled->GetMetaDocs().Add(docs[k - 1], settled);
        const std::weak_ptr<MetaDoc> object = docs[k - 1];
        docs[k - 1].reset();
        settled->GetMetaDocs().SettleAll();
        ASSERT_EQ(settled->GetMetaDocs().SettledCount(), k);
        ASSERT_TRUE(object.expired()) << "a settled document's object is let go";
      }
      settled->GetMetaDocs().Add(docs.back(), settled);
    }
    EXPECT_EQ(settled->GetMetaDocs().Count(), 1);
    EXPECT_EQ(files_in(folder), c.files);
    EXPECT_FLOAT_EQ(settled->AvgExtractionPct(), as_objects->AvgExtractionPct());
    EXPECT_EQ(settled->SuccessCodeId(), as_objects->SuccessCodeId());
    settled->GetMetaDocs().SaveAll();
    EXPECT_EQ(saved_history(c.docs), expected);
    settled.reset();
    EXPECT_EQ(files_in(folder), 0);

    if (old_tmpdir.empty()) {
      ::unsetenv("TMPDIR");
    } else {
      ::setenv("TMPDIR", old_tmpdir.c_str(), 1);
    }
  }
}

TEST_F(MetaStoreTest, SavingWithoutAnOwnerFailsWith91) {
  EXPECT_EQ(FailureNumber([] { MetaEntity::Create("e")->SaveToMetabase(); }),
            errnum::kObjectNotSet);
  EXPECT_EQ(FailureNumber([] { MetaTask::Create()->SaveToMetabase(); }), errnum::kObjectNotSet);
  // The back references do not keep their owners alive.
  auto task = MetaTask::Create();
  {
    auto job = MetaJob::Create();
    job->GetMetaTasks().Add(task, job);
    EXPECT_EQ(task->GetMetaJob(), job);
  }
  EXPECT_EQ(task->GetMetaJob(), nullptr);
}

}  // namespace
}  // namespace gw
