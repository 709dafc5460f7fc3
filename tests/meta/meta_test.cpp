// Run metadata: the percentages and the values custom columns take from the run.
#include <gtest/gtest.h>

#include "meta/meta_doc.h"
#include "meta/meta_entity.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "support/test_support.h"

namespace gw {
namespace {

MetaEntityPtr Counted(long occurrences, long extractions) {
  auto e = MetaEntity::Create("E1");
  e->SetOccurCount(occurrences);
  for (long k = 0; k < extractions; ++k) e->IncrementExtractCount();
  return e;
}

// The extraction percentages of each level, and their codes, are checked in meta_store_test.
TEST(MetaEntity, AveragesPerExtraction) {
  auto e = Counted(4, 2);
  e->IncrementErrorCount();
  e->IncrementSuccessCoeffSum(3.0);
  EXPECT_FLOAT_EQ(e->AvgErrorsPerExtraction(), 0.5f);
  EXPECT_FLOAT_EQ(e->AvgSuccessCoefficient(), 1.5f);
  EXPECT_EQ(Counted(4, 0)->AvgErrorsPerExtraction(), 0.0f);
}

TEST(MetaDoc, TheMeanOfItsDatasetsAndOneDatasetPerId) {
  auto doc = MetaDoc::Create();
  doc->GetMetaEntities().Add(Counted(4, 1), doc);
  auto other = Counted(0, 0);
  other->SetEntityId("E2");
  doc->GetMetaEntities().Add(other, doc);
  EXPECT_FLOAT_EQ(doc->AvgExtractionPct(), 62.5f);
  EXPECT_EQ(other->GetMetaDoc(), doc);
  const Error e =
      testing::CaughtError([&] { doc->GetMetaEntities().Add(MetaEntity::Create("e2"), doc); });
  EXPECT_EQ(e.Number(), errnum::kDuplicateKey);
}

TEST(MetaEntity, FieldValuesComeFromTheRunOrFallBackToTheirDefault) {
  // How much of the tree above the dataset is there.
  enum Owners { kNone, kDoc, kDocAndTask, kAll };
  const DateTime start = DateTime::FromParts(2026, 1, 2, 3, 4, 5);
  struct Case {
    const char* member;
    Owners owners;
    Variant expected;
  };
  const Case cases[] = {
      {"MetaJob.JobId", kAll, Variant("J1")},
      {"MetaJob.JobName", kAll, Variant("Prices")},
      {"MetaJob.JobStartTime", kAll, Variant(start)},
      {"MetaJob.JobName", kDocAndTask, Variant("dflt")},
      {"MetaTask.TaskId", kDocAndTask, Variant("T1")},
      {"MetaTask.TaskId", kDoc, Variant("dflt")},
      {"MetaTask.TaskName", kAll, Variant("untouched")},  // not a member custom columns read
      {"MetaDoc.DocId", kNone, Variant("dflt")},
      {"MetaDoc.DocId", kDoc, Variant("D7")},
      {"MetaDoc.SourceUri", kDoc, Variant("http://a/")},
      {"MetaDoc.LocalPath", kDoc, Variant("/tmp/a")},
      {"MetaDoc.DataPageName", kDoc, Variant("Shop")},
      {"MetaDoc.DataPageId", kDoc, Variant("P1")},
      {"MetaDoc.DownloadComplete", kDoc, Variant(start.AddSeconds(1))},
      {"MetaDoc.ExtractionStart", kDoc, Variant(start.AddSeconds(2))},
      {"MetaDoc.ExtractionComplete", kDoc, Variant("untouched")},
      {"MetaEntity.EntityId", kNone, Variant("E1")},
      {"MetaEntity.OccurCount", kNone, Variant(9)},
      {"MetaEntity.OnPageOrder", kNone, Variant(2)},
      {"MetaEntity.ParentOnPageOrder", kNone, Variant(5)},
      {"metadoc.docid", kDoc, Variant("untouched")},  // names compare exactly
      {"MetaDoc.Unheard", kDoc, Variant("untouched")},
      {"Nothing.AtAll", kNone, Variant("untouched")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.member) + " with owners " + std::to_string(c.owners));
    auto e = MetaEntity::Create("E1");
    e->SetOccurCount(9);
    e->IncrementOnPageOrder();
    e->IncrementOnPageOrder();
    e->SetParentOnPageOrder(5);
    auto job = MetaJob::Create();
    job->SetJobId("J1");
    job->SetJobName("Prices");
    job->SetJobStartTime(start);
    auto task = MetaTask::Create();
    task->SetTaskId("T1");
    task->SetTaskName("Fetch");
    auto doc = MetaDoc::Create();
    doc->SetDocId("D7");
    doc->SetSourceUri("http://a/");
    doc->SetLocalPath("/tmp/a");
    doc->SetDatapageName("Shop");
    doc->SetDatapageId("P1");
    doc->SetDownloadComplete(start.AddSeconds(1));
    doc->SetExtractionStart(start.AddSeconds(2));
    doc->SetExtractionComplete(start.AddSeconds(3));
    if (c.owners >= kDoc) doc->GetMetaEntities().Add(e, doc);
    if (c.owners >= kDocAndTask) task->GetMetaDocs().Add(doc, task);
    if (c.owners >= kAll) task->SetMetaJob(job);
    MetaFields fields;
    auto f = MetaField::Create();
    f->SetMetadataClassMember(c.member);
    f->SetDefaultValue("dflt");
    f->SetValue(Variant("untouched"));
    fields.Add(f);
    e->GetMetaFieldValues(fields);
    EXPECT_EQ(f->Value(), c.expected);
  }
}

TEST(MetaFields, CustomColumnsRecordsetHasOneColumnPerField) {
  MetaFields fields;
  auto a = MetaField::Create();
  a->SetId(3);
  a->SetColumnName("src");
  a->SetColumnLength(200);
  fields.Add(a);
  auto rs = fields.GetCustomColsRecordset();
  ASSERT_EQ(rs->GetFields().Count(), 1);
  EXPECT_EQ(rs->GetFields().Item(0L).Name(), "src");
  EXPECT_EQ(rs->GetFields().Item(0L).DefinedSize(), 200);
  EXPECT_EQ(fields.Item("3"), a);
}

}  // namespace
}  // namespace gw
