// How rows reach their table inside documents: a table's columns, its INSERT texts and its
// connection serve many rows, so what one row or one document did must not reach the next.
#include <gtest/gtest.h>

#include "extraction_fixture.h"
#include "platform/db/write_batch.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

class RowWrites : public ExtractionTest {};

TEST_F(RowWrites, ATableWhoseColumnsChangeBetweenDocumentsIsWrittenWithItsNewColumns) {
  Exec("CREATE TABLE prods (name VARCHAR(20))");
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>");
  // The run keeps the target's connection (and its statements) from one document to the next.
  db::StoreSession session;
  std::string first = "<tr><n>a</n>";
  page_->Extract(first, false);
  // Someone else widens the table between two documents.
  Exec("ALTER TABLE prods ADD COLUMN price VARCHAR(4) DEFAULT 'none'");
  AddField(prods, "price", "<p>", "</p>");
  std::string second = "<tr><n>b</n><p>12345</p><tr><n>c</n><p></p>";
  page_->Extract(second, false);
  EXPECT_EQ(prods->PendingFailure().Number(), 0u) << prods->PendingFailure().Description();
  // The new column's width cuts the value, as for any column read with the table.
  EXPECT_EQ(Rows("SELECT name, price FROM prods"),
            (RowList{{"a", "none"}, {"b", "1234"}, {"c", ""}}));
  EXPECT_EQ(prods->Metadata()->RefusedCount(), 0);
}

TEST_F(RowWrites, ARefusedRowInTheMiddleOfADocumentLosesOnlyItself) {
  Exec(
      "CREATE TABLE prods (id INTEGER PRIMARY KEY, name VARCHAR(20) CHECK (name <> 'bad'), "
      "price VARCHAR(5))");
  auto prods = AddRoot("Products", "<tr>", "prods");
  AddField(prods, "name", "<n>", "</n>");
  // A negative field size keeps the whole value: the target's width refuses the row.
  AddField(prods, "price", "<p>", "</p>", false, -1);
  std::vector<std::string> after_each_row;
  ScopedConnection progress(page_->OnProgressChange.Connect([&](long, long) {
    const auto& last = prods->Extraction();
    after_each_row.push_back(
        std::to_string(prods->Metadata()->RefusedCount()) + ":" +
        std::to_string(prods->PendingFailure().Number()) + ":" +
        (last ? (*last)["id"].Value().ToText() + "," + (*last)["name"].Value().ToText() : "-"));
  }));
  std::string text =
      "<tr><n>a</n><p>1</p><tr><n>bad</n><p>2</p><tr><n>c</n><p>123456</p><tr><n>d</n><p>4</p>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT id, name, price FROM prods"), (RowList{{"1", "a", "1"}, {"2", "d", "4"}}));
  // A refused row leaves the last written row (with the key the store gave it) as the extraction.
  const std::string refused = std::to_string(exerr::kUpdateRefused);
  EXPECT_EQ(after_each_row, (std::vector<std::string>{"0:0:1,a", "1:" + refused + ":1,a",
                                                      "2:" + refused + ":1,a", "2:0:2,d"}));
  EXPECT_EQ(prods->Metadata()->ExtractCount(), 2);
}

TEST_F(RowWrites, DatasetsSharingATableSetOnlyTheirOwnColumns) {
  Exec(
      "CREATE TABLE things (kind VARCHAR(10) DEFAULT 'k', a VARCHAR(10) DEFAULT 'da', "
      "b VARCHAR(10) DEFAULT 'db')");
  auto apples = AddRoot("Apples", "<a>", "things");
  AddField(apples, "a", "<a>", "</a>");
  auto pears = AddRoot("Pears", "<p>", "things");
  AddField(pears, "b", "<p>", "</p>");
  // A child writing the same table while its parent's row is still open.
  auto seeds = AddChild(apples, "Seeds", "<s>", "things");
  AddField(seeds, "kind", "<s>", "</s>");
  std::string text = "<a>1</a><s>x</s><p>2</p><a>3</a><p>4</p><s>y</s>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT kind, a, b FROM things ORDER BY rowid"), (RowList{{"k", "1", "db"},
                                                                           {"x", "da", "db"},
                                                                           {"k", "da", "2"},
                                                                           {"k", "3", "db"},
                                                                           {"k", "da", "4"}}));
  // Each dataset's extraction is its own last row, with its unset columns null.
  ASSERT_NE(apples->Extraction(), nullptr);
  EXPECT_EQ((*apples->Extraction())["a"].Value().ToText(), "3");
  EXPECT_TRUE((*apples->Extraction())["b"].Value().IsNull());
  EXPECT_EQ((*pears->Extraction())["b"].Value().ToText(), "4");
  EXPECT_EQ((*seeds->Extraction())["kind"].Value().ToText(), "x");
  EXPECT_EQ(apples->Extraction()->RecordCount(), 1);
}

}  // namespace
}  // namespace gw::extraction_test
