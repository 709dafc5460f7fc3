// The row loop of a dataset, written into a real SQLite file.
#include <gtest/gtest.h>

#include "extraction/entity_internal.h"
#include "extraction_fixture.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

class RowLoop : public ExtractionTest {
 protected:
  void SetUp() override {
    Exec("CREATE TABLE prods (name VARCHAR(20), price VARCHAR(10))");
    prods_ = AddRoot("Products", "<tr>", "prods");
    name_ = AddField(prods_, "name", "<td class=n>", "</td>");
    price_ = AddField(prods_, "price", "<td class=p>", "</td>");
  }
  EntityPtr prods_;
  AttribPtr name_;
  AttribPtr price_;
};

TEST_F(RowLoop, EachCallCutsOneRowThatEndsWhereTheNextOccurrenceBegins) {
  // The first row has no price: the second row's price must not be taken for it.
  std::string text =
      "<table><tr><td class=n>Nut</td></tr>"
      "<tr><td class=n>Bolt</td><td class=p>2</td></tr>"
      "<TR><td class=n>Gear</td><td class=p>3</td>";
  long after = 0;
  prods_->Extract(text, false, {}, {}, 0, &after);
  EXPECT_EQ(after, static_cast<long>(std::string("<tr><td class=n>Nut</td></tr>").size() +
                                     std::string("<tr><td class=n>Bolt</td><td class=p>2</td></tr>"
                                                 "<TR><td class=n>Gear</td><td class=p>3</td>")
                                         .size()));
  // What the row left of its text (from the last end tag on) comes back in front of the rest.
  EXPECT_EQ(text.rfind("</td></tr><tr>", 0), 0u);
  EXPECT_EQ(prods_->PendingFailure().Number(), exerr::kStartTagMissing);
  prods_->Extract(text, false);
  EXPECT_EQ(prods_->PendingFailure().Number(), 0u);
  prods_->Extract(text, false);
  // The last row runs to the end of the text.
  EXPECT_EQ(text, "</td>");
  EXPECT_EQ(Rows("SELECT name, price FROM prods"),
            (RowList{{"Nut", ""}, {"Bolt", "2"}, {"Gear", "3"}}));
  EXPECT_EQ(prods_->Metadata()->ExtractCount(), 3);
  EXPECT_EQ(prods_->Metadata()->TotalErrorCount(), 1);
  EXPECT_EQ(page_->GetEntityPageOrder(prods_->Id()), 3);
  ASSERT_NE(prods_->Extraction(), nullptr);
  EXPECT_EQ((*prods_->Extraction())["name"].Value().ToText(), "Gear");
}

TEST_F(RowLoop, ARowIsWrittenEvenIfEveryFieldFailed) {
  std::string text = "<tr>no cells here";
  prods_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT name, price FROM prods"), (RowList{{"", ""}}));
  EXPECT_EQ(prods_->Metadata()->TotalErrorCount(), 2);
  EXPECT_EQ(prods_->Metadata()->ExtractCount(), 1);
  EXPECT_EQ(text, "<tr>no cells here");
}

TEST_F(RowLoop, AnUnknownColumnLosesTheRowAndStillClosesTheConnection) {
  auto sink = std::make_shared<RecordingSink>();
  page_->SetRowSink(sink);
  price_->SetColumnName("cost");
  std::string text = "<tr><td class=n>Nut</td><td class=p>1</td></tr><tr>next";
  prods_->Extract(text, false);
  EXPECT_EQ(prods_->PendingFailure().Number(), exerr::kColumnMismatch);
  EXPECT_NE(prods_->PendingFailure().Description().find("column name is: cost"), std::string::npos);
  EXPECT_TRUE(Rows("SELECT * FROM prods").empty());
  EXPECT_EQ(prods_->Extraction(), nullptr);
  // The row's text is gone with the row.
  EXPECT_EQ(text, "<tr>next");
  EXPECT_EQ(sink->opened, 1);
  EXPECT_EQ(sink->closed, 1);
  EXPECT_EQ(prods_->Metadata()->ExtractCount(), 0);
  EXPECT_EQ(prods_->Metadata()->TotalErrorCount(), 1);
}

TEST_F(RowLoop, TheColumnWidthCutsAValueUnlessTheFieldSizeIsNegative) {
  Exec("CREATE TABLE tags (label VARCHAR(5))");
  auto tags = AddRoot("Tags", "<li>", "tags");
  auto label = AddField(tags, "label", "<li>", "</li>");
  std::string text = "<li>\xC3\xA9t\xC3\xA9s chauds</li>";

  label->SetColumnSize(0);
  std::string copy = text;
  tags->Extract(copy, false);
  EXPECT_EQ(Rows("SELECT label FROM tags"), (RowList{{"\xC3\xA9t\xC3\xA9s "}}));

  label->SetColumnSize(-1);
  copy = text;
  tags->Extract(copy, false);
  EXPECT_EQ(tags->PendingFailure().Number(), exerr::kUpdateRefused);
  EXPECT_EQ(Rows("SELECT count(*) FROM tags"), (RowList{{"1"}}));
  EXPECT_EQ(tags->Metadata()->ExtractCount(), 1);
  // A refused Update keeps what the fields left, so the driver moves on.
  EXPECT_EQ(copy, "</li>");
}

TEST_F(RowLoop, ARefusedValueEndsTheFieldLoopButNotTheRow) {
  Exec("CREATE TABLE stock (qty INT, name VARCHAR(20))");
  auto stock = AddRoot("Stock", "<tr>", "stock");
  AddField(stock, "qty", "<q>", "</q>");
  AddField(stock, "name", "<n>", "</n>");
  std::string text = "<tr><q>many</q><n>Nut</n>";
  stock->Extract(text, false);
  EXPECT_EQ(stock->PendingFailure().Number(), exerr::kColumnRefused);
  EXPECT_EQ(Rows("SELECT qty, name FROM stock"), (RowList{{"NULL", "NULL"}}));
  // The second field never ran: its tags are still in the text.
  EXPECT_EQ(text, "</q><n>Nut</n>");
}

TEST_F(RowLoop, AnAbsentInitializationStringStillRaisesTheEventAndCutsTheWholeText) {
  std::vector<long> positions;
  prods_->OnParserAction.Connect([&](std::string_view entity, std::string_view field,
                                     TokenTypeEnum type, long start, std::string_view value,
                                     std::string_view, std::string_view) {
    if (type == TokenTypeEnum::EntityInit) {
      EXPECT_EQ(entity, "Products");
      EXPECT_EQ(field, "");
      EXPECT_EQ(value, "<tr>");
      positions.push_back(start);
    }
  });
  std::string text = "<td class=n>Loose</td>";
  prods_->Extract(text, false);
  EXPECT_EQ(positions, std::vector<long>{0});
  EXPECT_EQ(Rows("SELECT name FROM prods"), (RowList{{"Loose"}}));
  EXPECT_EQ(text, "</td>");
}

TEST_F(RowLoop, FieldEventsAreReRaisedWithTheDatasetName) {
  std::vector<std::pair<std::string, TokenTypeEnum>> seen;
  prods_->OnParserAction.Connect([&](std::string_view entity, std::string_view field,
                                     TokenTypeEnum type, long, std::string_view, std::string_view,
                                     std::string_view) {
    EXPECT_EQ(entity, "Products");
    seen.emplace_back(std::string(field), type);
  });
  std::string text = "<tr><td class=n>Nut</td>";
  prods_->Extract(text, false);
  // Trials of the skip-map search are silent: each field reports once.
  const std::vector<std::pair<std::string, TokenTypeEnum>> expected = {
      {"", TokenTypeEnum::EntityInit},
      {"name", TokenTypeEnum::FieldStartTag},
      {"name", TokenTypeEnum::FieldEndTag},
      {"name", TokenTypeEnum::FieldValue},
      {"name", TokenTypeEnum::FilteredFieldValue},
      {"price", TokenTypeEnum::FieldStartTagNotFound},
  };
  EXPECT_EQ(seen, expected);
}

TEST_F(RowLoop, FaultsOutsideTheFieldLoopUnwindWithTheLogName) {
  const std::string log_name = "Entity.Extract(SrcHTML,UseTmpTbls,OverrideConnStr,UniqueTblPrefix)";
  prods_->SetDBConnStr("");
  std::string text = "<tr><td class=n>Nut</td>";
  Error e = CaughtError([&] { prods_->Extract(text, false); });
  EXPECT_EQ(e.Number(), exerr::kNoConnectionString);
  EXPECT_EQ(e.Description(), "Connection string not specified, or invalid connection string");
  EXPECT_EQ(e.CallStack(), std::vector<std::string>{log_name});
  // The text had not been taken yet.
  EXPECT_EQ(text, "");

  prods_->SetDBConnStr(cn_str_);
  prods_->SetTableName("missing");
  text = "ab<tr><td class=n>Nut</td>";
  e = CaughtError([&] { prods_->Extract(text, false); });
  EXPECT_NE(e.Number(), 0u);
  EXPECT_EQ(e.CallStack(), std::vector<std::string>{log_name});
  EXPECT_EQ(text, "<tr><td class=n>Nut</td>");
}

TEST_F(RowLoop, AnOverrideConnectionStringAndAPrefixChooseTheTable) {
  gw::testing::TempDir other;
  const std::string other_cn = "Provider=SQLite;Data Source=" + (other / "o.db").string();
  {
    auto cn = db::Connection::Create();
    cn->Open(other_cn);
    cn->ExecuteScript("CREATE TABLE t1_prods (name VARCHAR(20), price VARCHAR(10))");
  }
  std::string text = "<tr><td class=n>Nut</td>";
  prods_->Extract(text, false, other_cn, "t1_");
  auto cn = db::Connection::Create();
  cn->Open(other_cn);
  EXPECT_EQ(cn->Execute("SELECT name FROM t1_prods")->GetFields().Item(0L).Value().ToText(), "Nut");
  EXPECT_TRUE(Rows("SELECT * FROM prods").empty());
}

TEST_F(RowLoop, MetadataColumnsAreFilledWhereTheTableHasThem) {
  Exec("ALTER TABLE prods ADD COLUMN page_order VARCHAR(3)");
  // "source_uri" is not in the table: passed over.
  prods_->SetSelectedMetaFields(
      MetaColumns({{"page_order", "MetaEntity.OnPageOrder"}, {"source_uri", "MetaDoc.SourceUri"}}));
  std::string text = "<tr><td class=n>A</td><tr><td class=n>B</td>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT name, page_order FROM prods"), (RowList{{"A", "1"}, {"B", "2"}}));
}

TEST_F(RowLoop, WithoutADocumentTheRowIsWrittenAndThenTheChildStepFails) {
  page_->SetDoc(nullptr);
  std::string text = "<tr><td class=n>Nut</td><tr><td class=n>Bolt</td>";
  const Error e = CaughtError([&] { page_->Extract(text, false); });
  EXPECT_EQ(e.Number(), errnum::kObjectNotSet);
  EXPECT_EQ(Rows("SELECT name FROM prods"), (RowList{{"Nut"}}));
}

TEST(FieldFailures, EachFailureNumberDecidesWhatHappensToTheRow) {
  struct Case {
    Status failure;
    FieldFailureAction action;
    ErrorNumber pending;
    std::vector<std::string> text_parts;  // what the pending text must name
  };
  const Case cases[] = {
      {Status(), FieldFailureAction::None, 0, {}},
      {Status(exerr::kStartTagMissing, "Attrib.Extract", "Start Tag <b> Does not exist"),
       FieldFailureAction::Count,
       exerr::kStartTagMissing,
       {"Start Tag <b>"}},
      {Status(exerr::kEndTagMissing, "Attrib.Extract", "End Tag </b> Does not exist"),
       FieldFailureAction::Count,
       exerr::kEndTagMissing,
       {"End Tag </b>"}},
      {Status(errnum::kItemNotFound, "Recordset", "Item cannot be found"),
       FieldFailureAction::LoseRow,
       exerr::kColumnMismatch,
       {"column name is: price ", "in the table prods "}},
      {Status(0x80040E21, "Recordset", "Multiple-step operation", "help.chm", 7),
       FieldFailureAction::EndFields,
       exerr::kColumnRefused,
       {"to the column price an error"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.failure.Number());
    const FieldFailure verdict = ClassifyFieldFailure(c.failure, "price", "prods");
    EXPECT_EQ(verdict.action, c.action);
    EXPECT_EQ(verdict.pending.Number(), c.pending);
    for (const std::string& part : c.text_parts) {
      EXPECT_NE(verdict.pending.Description().find(part), std::string::npos) << part;
    }
  }
  // A refused value keeps the help of the fault that refused it.
  const FieldFailure refused = ClassifyFieldFailure(cases[4].failure, "price", "prods");
  EXPECT_EQ(refused.pending.HelpFile(), "help.chm");
  EXPECT_EQ(refused.pending.HelpContext(), 7);
  EXPECT_EQ(refused.pending.Source(), "Entity.Extract");
}

}  // namespace
}  // namespace gw::extraction_test
