// Run metadata: the percentages and the values custom columns take from the run.
#include <gtest/gtest.h>

#include "engine/meta/meta_doc.h"
#include "engine/meta/meta_entity.h"

namespace gw {
namespace {

MetaEntityPtr Counted(long occurrences, long extractions) {
  auto e = MetaEntity::Create("E1");
  e->SetOccurCount(occurrences);
  for (long k = 0; k < extractions; ++k) e->IncrementExtractCount();
  return e;
}

TEST(MetaEntity, ExtractionPctIsHeldAtAHundred) {
  EXPECT_EQ(Counted(0, 3)->ExtractionPct(), 100.0f);
  EXPECT_EQ(Counted(2, 5)->ExtractionPct(), 100.0f);
  EXPECT_FLOAT_EQ(Counted(4, 1)->ExtractionPct(), 25.0f);
  auto e = Counted(4, 2);
  e->IncrementErrorCount();
  e->IncrementSuccessCoeffSum(3.0);
  EXPECT_FLOAT_EQ(e->AvgErrorsPerExtraction(), 0.5f);
  EXPECT_FLOAT_EQ(e->AvgSuccessCoefficient(), 1.5f);
  EXPECT_EQ(Counted(4, 0)->AvgErrorsPerExtraction(), 0.0f);
}

TEST(MetaDoc, ADocumentWithoutDatasetsScoresZero) {
  auto doc = MetaDoc::Create();
  EXPECT_EQ(doc->AvgExtractionPct(), 0.0f);
  doc->GetMetaEntities().Add(Counted(4, 1), doc);
  auto other = Counted(0, 0);
  other->SetEntityId("E2");
  doc->GetMetaEntities().Add(other, doc);
  EXPECT_FLOAT_EQ(doc->AvgExtractionPct(), 62.5f);
  EXPECT_EQ(other->GetMetaDoc(), doc);
  try {
    doc->GetMetaEntities().Add(MetaEntity::Create("e2"), doc);
    FAIL() << "a second dataset of one id was accepted";
  } catch (const Error& e) {
    EXPECT_EQ(e.Number(), errnum::kDuplicateKey);
  }
}

TEST(MetaEntity, FieldValuesComeFromTheRunOrFallBackToTheirDefault) {
  struct Case {
    const char* member;
    bool with_doc;
    Variant expected;
  };
  const Case cases[] = {
      {"MetaDoc.DocId", false, Variant("dflt")},
      {"MetaDoc.DocId", true, Variant("D7")},
      {"MetaDoc.SourceUri", true, Variant("http://a/")},
      {"MetaJob.JobName", true, Variant("dflt")},
      {"MetaEntity.EntityId", false, Variant("E1")},
      {"MetaEntity.OnPageOrder", false, Variant(2)},
      {"MetaEntity.ParentOnPageOrder", false, Variant(5)},
      {"MetaDoc.Unheard", true, Variant("untouched")},
      {"Nothing.AtAll", false, Variant("untouched")},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.member) + (c.with_doc ? " with a document" : ""));
    auto e = MetaEntity::Create("E1");
    e->IncrementOnPageOrder();
    e->IncrementOnPageOrder();
    e->SetParentOnPageOrder(5);
    auto doc = MetaDoc::Create();
    doc->SetDocId("D7");
    doc->SetSourceUri("http://a/");
    if (c.with_doc) doc->GetMetaEntities().Add(e, doc);
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
