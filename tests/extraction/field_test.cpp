// Cutting one field: tags, what is consumed, soft failures, events, and the field collection.
#include <gtest/gtest.h>

#include "extraction/attrib.h"
#include "extraction/entity.h"
#include "extraction/failures.h"
#include "extraction_fixture.h"

namespace gw::extraction_test {
namespace {

AttribPtr Field(const std::string& start, const std::string& end, const std::string& column = "c") {
  auto a = Attrib::Create();
  a->SetColumnName(column);
  a->SetStartTag(start);
  a->SetEndTag(end);
  return a;
}

struct Recorded {
  TokenTypeEnum type;
  long start;
  std::string value;
  std::string source;
  std::string message;
};

TEST(AttribExtract, TagsMatchInAnyCaseAndTheEndTagStaysInTheText) {
  auto a = Field("<TD class=\"name\">", "</td>");
  std::string text = "<tr><td CLASS=\"NAME\">Widget</TD><td>9</td>";
  Status status;
  EXPECT_EQ(a->Extract(text, status), "Widget");
  EXPECT_TRUE(status.Ok());
  EXPECT_EQ(text, "</TD><td>9</td>");
  EXPECT_EQ(a->Extraction(), "Widget");
}

TEST(AttribExtract, AnEndTagCanBeTheNextFieldsStartTag) {
  auto first = Field("<b>", "<i>");
  auto second = Field("<i>", "</i>");
  std::string text = "<b>1<i>2</i>";
  Status status;
  EXPECT_EQ(first->Extract(text, status), "1");
  EXPECT_EQ(second->Extract(text, status), "2");
  EXPECT_TRUE(status.Ok());
  EXPECT_EQ(text, "</i>");
}

TEST(AttribExtract, AnEmptyValueIsASuccess) {
  auto a = Field("<b>", "</b>");
  std::string earlier = "<b>old</b>";
  Status status(1, "s", "stale");
  a->Extract(earlier, status);
  std::string text = "x<b></b>y";
  status = Status(1, "s", "stale");
  EXPECT_EQ(a->Extract(text, status), "");
  EXPECT_EQ(status.Number(), 0u);
  EXPECT_EQ(a->Extraction(), "");
  EXPECT_EQ(text, "</b>y");
}

TEST(AttribExtract, AMissingTagIsASoftFailureThatLeavesTheTextAlone) {
  struct Case {
    const char* what;
    const char* text;
    ErrorNumber number;
    const char* description;
  };
  const Case cases[] = {
      {"no start tag", "<i>1</i>", exerr::kStartTagMissing,
       "Start Tag <b> Does not exist in SrcHTML."},
      {"no end tag after the start tag", "</b><b>1", exerr::kEndTagMissing,
       "End Tag </b> Does not exist in SrcHTML."},
      {"empty text", "", exerr::kStartTagMissing, "Start Tag <b> Does not exist in SrcHTML."},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    auto a = Field("<b>", "</b>");
    std::string earlier = "<b>previous</b>";
    Status status;
    ASSERT_EQ(a->Extract(earlier, status), "previous");
    std::string text = c.text;
    EXPECT_EQ(a->Extract(text, status), "");
    EXPECT_EQ(status.Number(), c.number);
    EXPECT_EQ(status.Source(), "Attrib.Extract");
    EXPECT_EQ(status.Description(), c.description);
    EXPECT_EQ(text, c.text);
    EXPECT_EQ(a->Extraction(), "previous");
  }
}

TEST(AttribExtract, EventsReportEachStepWithPositionsInTheTextOfTheMoment) {
  auto a = Field("<b>", "</b>", "price");
  std::vector<Recorded> seen;
  a->OnParserAction.Connect([&](std::string_view name, TokenTypeEnum type, long start,
                                std::string_view value, std::string_view source,
                                std::string_view message) {
    EXPECT_EQ(name, "price");
    seen.push_back({type, start, std::string(value), std::string(source), std::string(message)});
  });
  std::string text = "ab<B>42</B>";
  Status status;
  a->Extract(text, status);
  ASSERT_EQ(seen.size(), 4u);
  EXPECT_EQ(seen[0].type, TokenTypeEnum::FieldStartTag);
  EXPECT_EQ(seen[0].start, 3);
  EXPECT_EQ(seen[0].source, "ab<B>42</B>");
  EXPECT_EQ(seen[0].message, "Found field start tag.");
  EXPECT_EQ(seen[1].type, TokenTypeEnum::FieldEndTag);
  EXPECT_EQ(seen[1].start, 8);
  EXPECT_EQ(seen[1].value, "</b>");
  EXPECT_EQ(seen[2].type, TokenTypeEnum::FieldValue);
  EXPECT_EQ(seen[2].start, 6);
  EXPECT_EQ(seen[2].value, "42");
  EXPECT_EQ(seen[3].type, TokenTypeEnum::FilteredFieldValue);
  EXPECT_EQ(seen[3].value, "42");

  seen.clear();
  std::string none = "nothing";
  a->Extract(none, status);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].type, TokenTypeEnum::FieldStartTagNotFound);
  EXPECT_EQ(seen[0].start, -1);
  EXPECT_EQ(seen[0].value, "<b>");
  EXPECT_EQ(seen[0].source, "");
  EXPECT_EQ(seen[0].message, "Could not find the field start tag.");
}

TEST(ColumnType, NamesCompareWithoutCaseAndUnknownWordsAreRaw) {
  EXPECT_EQ(filters::ColumnFilterOf("textonly"), filters::ColumnFilter::TextOnly);
  EXPECT_EQ(filters::ColumnFilterOf("RxMatch"), filters::ColumnFilter::RxMatch);
  EXPECT_EQ(filters::ColumnFilterOf("url"), filters::ColumnFilter::Url);
  EXPECT_EQ(filters::ColumnFilterOf(""), filters::ColumnFilter::Raw);
  EXPECT_EQ(filters::ColumnFilterOf("shiny"), filters::ColumnFilter::Raw);
}

TEST(ColumnType, StoredFormSplitsAtTheFirstCommaOnly) {
  const ColumnTypeParts rx = SplitColumnType("RXMATCH , a,b");
  EXPECT_EQ(rx.column_type, "RXMATCH");
  EXPECT_EQ(rx.parameter, "a,b");
  const ColumnTypeParts raw = SplitColumnType("  RAW  ");
  EXPECT_EQ(raw.column_type, "RAW");
  EXPECT_FALSE(raw.parameter.has_value());
  EXPECT_EQ(JoinColumnType("URL", ""), "URL , ");
  const ColumnTypeParts back = SplitColumnType(JoinColumnType("URL", "http://a/"));
  EXPECT_EQ(back.column_type, "URL");
  EXPECT_EQ(back.parameter, "http://a/");
}

std::vector<std::string> Columns(const Attributes& attributes) {
  std::vector<std::string> names;
  for (const AttribPtr& a : attributes) names.push_back(a->ColumnName());
  return names;
}

TEST(Attributes, IndexDecidesWhereAFieldGoes) {
  auto entity = Entity::Create();
  Attributes& fields = entity->GetAttributes();
  fields.Add(Field("a", "a", "first"), {}, 5);   // empty: appended whatever the index
  fields.Add(Field("b", "b", "second"));         // no index: appended
  fields.Add(Field("c", "c", "third"), {}, 2);   // 2 is not below the count: after the last
  fields.Add(Field("d", "d", "front"), {}, 0);   // 1 or below: before the first
  fields.Add(Field("e", "e", "inside"), {}, 3);  // above 1, below the count: after position 2
  EXPECT_EQ(Columns(fields),
            (std::vector<std::string>{"front", "first", "inside", "second", "third"}));
  for (const AttribPtr& a : fields) EXPECT_EQ(a->EntityId(), entity->Id());
  EXPECT_EQ(fields.Item(1)->GetEntity(), entity);
}

TEST(Attributes, RemoveFallsBackToTheIdAndItemYieldsNullForUnknownKeys) {
  auto entity = Entity::Create();
  Attributes& fields = entity->GetAttributes();
  auto keyed = fields.Add(Field("a", "a", "keyed"), "k1");
  auto unkeyed = fields.Add(Field("b", "b", "unkeyed"));
  EXPECT_EQ(fields.Item("K1"), keyed);
  EXPECT_EQ(fields.Item("nope"), nullptr);
  EXPECT_EQ(fields.Item(7), nullptr);
  fields.Remove(unkeyed->Id());  // not a key: found by walking the fields
  EXPECT_EQ(Columns(fields), std::vector<std::string>{"keyed"});
  fields.Remove("no such id");
  EXPECT_EQ(fields.Count(), 1);
  fields.Remove("k1");
  EXPECT_EQ(fields.Count(), 0);
}

TEST(Attributes, ARealKeyFieldDisplacesTheOldKeyAndASurrogate) {
  auto entity = Entity::Create();
  auto a = entity->GetAttributes().Add(Field("a", "a", "sku"));
  auto b = entity->GetAttributes().Add(Field("b", "b", "code"));
  a->SetIsPK(true);
  EXPECT_EQ(entity->PKAttribute(), a);
  EXPECT_EQ(entity->PKColumn(), "sku");
  entity->SetIsPKSurrogate(true);
  EXPECT_FALSE(a->IsPK());
  EXPECT_EQ(entity->PKAttribute(), nullptr);
  b->SetIsPK(true);
  EXPECT_FALSE(entity->IsPKSurrogate());
  EXPECT_EQ(entity->PKColumn(), "code");
  a->SetIsPK(true);
  EXPECT_FALSE(b->IsPK());
  EXPECT_EQ(entity->PKAttribute(), a);
}

}  // namespace
}  // namespace gw::extraction_test
