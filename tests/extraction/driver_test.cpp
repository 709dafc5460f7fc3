// The datapage driver: events, cancellation, the order of root rows, the progress guard and the
// static columns.
#include <gtest/gtest.h>

#include <tuple>

#include "extraction/entity_internal.h"
#include "extraction_fixture.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

// Everything a datapage tells its host, in order.
struct HostLog {
  explicit HostLog(DataPage& page, bool cancel = false) {
    connections.emplace_back(page.OnExtractionBegin.Connect([this] { events.push_back("begin"); }));
    connections.emplace_back(
        page.OnStatusChange.Connect([this, cancel](const std::string& status, bool& flg_cancel) {
          events.push_back("status:" + status);
          if (cancel) flg_cancel = true;
        }));
    connections.emplace_back(page.OnProgressChange.Connect([this](long amount, long max) {
      events.push_back("progress:" + std::to_string(amount) + "/" + std::to_string(max));
    }));
    connections.emplace_back(
        page.OnExtractionComplete.Connect([this] { events.push_back("complete"); }));
    connections.emplace_back(page.OnParserAction.Connect(
        [this](std::string_view entity, std::string_view, TokenTypeEnum type, long,
               std::string_view, std::string_view, std::string_view) {
          if (type == TokenTypeEnum::EntityInit) rows.push_back(std::string(entity));
          ++parser_actions;
        }));
  }
  std::vector<std::string> events;
  std::vector<std::string> rows;
  int parser_actions = 0;
  std::vector<ScopedConnection> connections;
};

class Driver : public ExtractionTest {
 protected:
  void SetUp() override {
    Exec(
        "CREATE TABLE apples (v VARCHAR(10));"
        "CREATE TABLE pears (v VARCHAR(10));");
    apples_ = AddRoot("Apples", "<a>", "apples");
    AddField(apples_, "v", "<a>", "</a>");
  }
  EntityPtr apples_;
};

TEST_F(Driver, APageWithoutOccurrencesRaisesBeginStatusAndCompleteOnly) {
  HostLog log(*page_);
  std::string text = "<p>nothing to see</p>";
  page_->Extract(text, false);
  EXPECT_EQ(log.events,
            (std::vector<std::string>{"begin", "status:Extracting http://example.test/list.html",
                                      "complete"}));
  EXPECT_EQ(text, "<p>nothing to see</p>");
  EXPECT_TRUE(Rows("SELECT * FROM apples").empty());
  EXPECT_FALSE(doc_->Metadata()->ExtractionStart().IsEmpty());
  EXPECT_FALSE(doc_->Metadata()->ExtractionComplete().IsEmpty());
  EXPECT_EQ(doc_->Metadata()->GetMetaEntities().Count(), 1);
}

TEST_F(Driver, CancelAtTheFirstStatusStopsBeforeAnythingIsDone) {
  HostLog log(*page_, /*cancel=*/true);
  std::string text = "<a>1</a><a>2</a>";
  page_->Extract(text, false);
  EXPECT_EQ(log.events,
            (std::vector<std::string>{"begin", "status:Extracting http://example.test/list.html"}));
  EXPECT_EQ(text, "<a>1</a><a>2</a>");
  EXPECT_TRUE(Rows("SELECT * FROM apples").empty());
  EXPECT_TRUE(doc_->Metadata()->ExtractionStart().IsEmpty());
  EXPECT_EQ(doc_->Metadata()->GetMetaEntities().Count(), 0);
}

TEST_F(Driver, WithoutADocumentTheStatusNamesTheDatapage) {
  page_->SetDoc(nullptr);
  HostLog log(*page_, /*cancel=*/true);
  std::string text = "<a>1</a>";
  page_->Extract(text, false);
  EXPECT_EQ(log.events, (std::vector<std::string>{"begin", "status:Extracting Listing"}));
}

TEST_F(Driver, InterleavedRootsTakeTheirRowsInPageOrder) {
  auto pears = AddRoot("Pears", "<p>", "pears");
  AddField(pears, "v", "<p>", "</p>");
  HostLog log(*page_);
  std::string text = "<a>a1</a><P>p1</p><a>a2</a><p>p2</p><p>p3</p>";
  page_->Extract(text, false);
  EXPECT_EQ(log.rows, (std::vector<std::string>{"Apples", "Pears", "Apples", "Pears", "Pears"}));
  EXPECT_EQ(Rows("SELECT v FROM apples"), (RowList{{"a1"}, {"a2"}}));
  EXPECT_EQ(Rows("SELECT v FROM pears"), (RowList{{"p1"}, {"p2"}, {"p3"}}));
  const std::vector<std::string> progress(log.events.begin() + 2, log.events.end() - 1);
  EXPECT_EQ(progress, std::vector<std::string>(5, "progress:1/5"));
  EXPECT_EQ(log.events.back(), "complete");
  // The roots' field events reach the host too: 5 rows, 1 init and 4 field events each.
  EXPECT_EQ(log.parser_actions, 25);
  EXPECT_EQ(apples_->Metadata()->OccurCount(), 2);
  EXPECT_EQ(pears->Metadata()->OccurCount(), 3);
  EXPECT_EQ(pears->Metadata()->ExtractCount(), 3);
  EXPECT_EQ(text, "</p>");
}

TEST_F(Driver, TheProgressGuardDropsOneCharacterOfAnOccurrenceThatConsumedNothing) {
  // Every row is refused (a required column no field feeds) and no field matches, so no row
  // consumes anything.
  Exec("CREATE TABLE strict (v VARCHAR(10), must VARCHAR(5) NOT NULL)");
  auto stuck = AddRoot("Stuck", "\xC3\xA9", "strict");
  AddField(stuck, "v", "<never>", "</never>");
  page_->RootEntities().Remove(apples_->Id());
  HostLog log(*page_);
  std::string text =
      "\xC3\xA9"
      "a"
      "\xC3\xA9"
      "b";
  page_->Extract(text, false);
  // Pass 1 drops the whole first character; pass 2 drops the "a" before its occurrence (the row
  // took that much); pass 3 drops the last occurrence's character.
  EXPECT_EQ(text, "b");
  EXPECT_EQ(std::count(log.events.begin(), log.events.end(), "progress:1/2"), 3);
  EXPECT_TRUE(Rows("SELECT * FROM strict").empty());
  EXPECT_EQ(stuck->PendingFailure().Number(), exerr::kUpdateRefused);
}

TEST_F(Driver, AnOccurrenceWhoseFieldsConsumeNothingIsReadAgainOnceTheTextBeforeItIsCut) {
  // The guard fires only on a pass that left the text as long as it was. A pass whose occurrence
  // follows other text cuts that text away, so the guard stays quiet and the occurrence, now at
  // the start, is read once more; only that pass loses its first character. A row is written
  // even when every field failed, so such an occurrence gets two rows, and the first one none:
  // it starts the text, and an occurrence of a root before the children keeps them for it.
  Exec(
      "CREATE TABLE items (v VARCHAR(10));"
      "CREATE TABLE lis (v VARCHAR(10));");
  page_->RootEntities().Remove(apples_->Id());
  auto item = AddRoot("Item", "<div class=item>", "items");
  const AttribPtr title = AddField(item, "v", "", "</h2>");
  AddField(AddChild(item, "Li", "<li>", "lis"), "v", "<li>", "</li>");
  const std::string page =
      "<div class=item><h2>One</h2><ul><li>a</li><li>b</li></ul></div>"
      "<div class=item><h2>Two</h2></div>";
  struct Case {
    const char* start;
    RowList items;
    RowList lis;
    const char* rest;
  };
  for (const Case& c :
       std::vector<Case>{{"<h1>", {{""}, {""}, {""}}, {}, "div class=item><h2>Two</h2></div>"},
                         {"<h2>", {{"One"}, {"Two"}}, {{"a"}, {"b"}}, "</h2></div>"}}) {
    SCOPED_TRACE(c.start);
    Exec("DELETE FROM items; DELETE FROM lis;");
    title->SetStartTag(c.start);
    std::string text = page;
    page_->Extract(text, false);
    EXPECT_EQ(Rows("SELECT v FROM items"), c.items);
    EXPECT_EQ(Rows("SELECT v FROM lis"), c.lis);
    EXPECT_EQ(text, c.rest);
  }
}

TEST_F(Driver, StaticColumnsAreSetOnEveryRowOfTheirDatasetAndNotWritten) {
  auto pears = AddRoot("Pears", "<p>", "pears");
  AddField(pears, "v", "<p>", "</p>");
  auto statics = db::Recordset::Create();
  statics->AppendField("EntityId", db::DataType::VarWChar, 36);
  statics->AppendField("ColumnName", db::DataType::VarWChar, 50);
  statics->AppendField("Value", db::DataType::VarWChar, 50);
  statics->OpenFabricated();
  // The apples' rows are not the last ones, and one names a column the table lacks: that one is
  // a failure that does not unwind.
  for (const auto& [entity, column, value] :
       std::vector<std::tuple<std::string, std::string, std::string>>{
           {apples_->Id(), "v", "fixed-a"},
           {apples_->Id(), "nope", "x"},
           {pears->Id(), "v", "fixed-p"}}) {
    statics->AddNew();
    (*statics)["EntityId"] = Variant(entity);
    (*statics)["ColumnName"] = Variant(column);
    (*statics)["Value"] = Variant(value);
    statics->Update();
  }
  // What each dataset's last row holds after every row of the page.
  std::vector<std::string> seen;
  const auto value_of = [](const EntityPtr& e) {
    return e->Extraction() ? (*e->Extraction())["v"].Value().ToText() : std::string("-");
  };
  ScopedConnection progress(page_->OnProgressChange.Connect(
      [&](long, long) { seen.push_back(value_of(apples_) + "/" + value_of(pears)); }));

  std::string text = "<a>1</a><p>2</p><a>3</a><p>4</p>";
  page_->Extract(text, false, statics);
  EXPECT_EQ(seen, (std::vector<std::string>{"fixed-a/-", "fixed-a/fixed-p", "fixed-a/fixed-p",
                                            "fixed-a/fixed-p"}));
  EXPECT_EQ(apples_->Extraction()->ActiveConnection(), nullptr);
  // The values are set on the written rows only.
  EXPECT_EQ(Rows("SELECT v FROM apples"), (RowList{{"1"}, {"3"}}));
  EXPECT_EQ(Rows("SELECT v FROM pears"), (RowList{{"2"}, {"4"}}));
}

TEST_F(Driver, ARowFaultEndsThePageWithBothLogNames) {
  apples_->SetTableName("no_such_table");
  std::string text = "xx<a>1</a>";
  const Error e = CaughtError([&] { page_->Extract(text, false); });
  EXPECT_NE(e.Number(), 0u);
  EXPECT_EQ(e.CallStack(),
            (std::vector<std::string>{
                "Entity.Extract(SrcHTML,UseTmpTbls,OverrideConnStr,UniqueTblPrefix)",
                "DataPage.Extract(SrcHTML,UseTmpTbls,StaticColumns,OverrideDBConnStr,"
                "UniqueTblPrefix)"}));
  EXPECT_EQ(text, "<a>1</a>");
}

TEST_F(Driver, RowNumberingRestartsWithEveryDocument) {
  std::string first = "<a>1</a><a>2</a>";
  page_->Extract(first, false);
  EXPECT_EQ(page_->GetEntityPageOrder(apples_->Id()), 2);
  std::string second = "<a>3</a>";
  page_->Extract(second, false);
  EXPECT_EQ(page_->GetEntityPageOrder(apples_->Id()), 1);
}

// Which root takes a row: of two with one initialization string, the earlier takes every row.
TEST(Entities, FirstInStrPrefersTheEarliestOccurrenceAndTheEarlierEntityOnATie) {
  auto page = DataPage::Create();
  Entities& roots = page->RootEntities();
  auto make = [&](const char* init) {
    auto e = Entity::Create();
    e->SetInitString(init);
    roots.Add(e);
    return e;
  };
  auto far = make("<z>");
  auto tie_first = make("<b");
  auto tie_second = make("<B>");
  long position = -1;
  EXPECT_EQ(FirstInStr(roots, "..<b>..<z>", position, nullptr), tie_first);
  EXPECT_EQ(position, 3);
  EXPECT_EQ(FirstInStr(roots, "..<z>", position, nullptr), far);
  EXPECT_EQ(position, 3);
  EXPECT_EQ(FirstInStr(roots, "nothing", position, nullptr), nullptr);
  EXPECT_EQ(position, 0);
  EXPECT_EQ(tie_second->GetDataPage(), page);
}

}  // namespace
}  // namespace gw::extraction_test
