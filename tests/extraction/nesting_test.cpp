// Child datasets: their rows come from the text after their parent row's fields, up to the next
// root row, and record the order number of the parent row.
#include <gtest/gtest.h>

#include "extraction_fixture.h"

namespace gw::extraction_test {
namespace {

using RowList = std::vector<std::vector<std::string>>;

MetaFieldsPtr ParentOrderColumn() {
  return MetaColumns({{"parent_order", "MetaEntity.ParentOnPageOrder"}});
}

class Nesting : public ExtractionTest {
 protected:
  void SetUp() override {
    Exec(
        "CREATE TABLE items (title VARCHAR(20));"
        "CREATE TABLE features (feature VARCHAR(20), parent_order VARCHAR(5));");
    items_ = AddRoot("Items", "<div class=item>", "items");
    AddField(items_, "title", "<h2>", "</h2>");
    features_ = AddChild(items_, "Features", "<li>", "features");
    AddField(features_, "feature", "<li>", "</li>");
    features_->SetSelectedMetaFields(ParentOrderColumn());
  }
  EntityPtr items_;
  EntityPtr features_;
};

TEST_F(Nesting, ChildrenAreBoundedByTheNextRootRowAndRecordTheirParentsOrder) {
  std::string text =
      "<div class=item><h2>One</h2><ul><li>1a</li><li>1b</li></ul></div>"
      "<div class=item><h2>Two</h2></div>"
      "<div class=item><h2>Three</h2><ul><li>3a</li></ul></div>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT title FROM items"), (RowList{{"One"}, {"Two"}, {"Three"}}));
  EXPECT_EQ(Rows("SELECT feature, parent_order FROM features"),
            (RowList{{"1a", "1"}, {"1b", "1"}, {"3a", "3"}}));
  EXPECT_EQ(features_->GetDataPage(), page_);
  EXPECT_EQ(features_->ParentEntity(), items_);
  // Each parent row renews its children's counters in the document's metadata.
  EXPECT_EQ(doc_->Metadata()->GetMetaEntities().Item(features_->Id()), features_->Metadata());
  EXPECT_EQ(features_->Metadata()->ExtractCount(), 1);
  EXPECT_EQ(text, "</li></ul></div>");
}

TEST_F(Nesting, ChildrenBeforeTheParentsLastFieldAreGone) {
  // The feature stands before the title: the title's field consumes it.
  std::string text = "<div class=item><li>early</li><h2>One</h2><li>late</li>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT feature FROM features"), (RowList{{"late"}}));
}

TEST_F(Nesting, OnlyRootDatasetsBoundAGrandchildsRows) {
  Exec("CREATE TABLE notes (note VARCHAR(20), parent_order VARCHAR(5))");
  auto notes = AddChild(features_, "Notes", "<em>", "notes");
  AddField(notes, "note", "<em>", "</em>");
  notes->SetSelectedMetaFields(ParentOrderColumn());
  std::string text =
      "<div class=item><h2>One</h2><li>1a</li><li>1b</li><em>n</em></div>"
      "<div class=item><h2>Two</h2><em>m</em>";
  page_->Extract(text, false);
  // The sibling feature 1b does not bound the rows of feature 1a's children, so the note after 1b
  // is taken by 1a's row (the first feature row); the next root row does bound them, so "m"
  // belongs to no feature. Cutting the note's row dropped the text before it, 1b included.
  EXPECT_EQ(Rows("SELECT note, parent_order FROM notes"), (RowList{{"n", "1"}}));
  EXPECT_EQ(Rows("SELECT feature FROM features"), (RowList{{"1a"}}));
  EXPECT_EQ(Rows("SELECT title FROM items"), (RowList{{"One"}, {"Two"}}));
}

TEST_F(Nesting, AChildRowThatConsumesNothingDoesNotLoopForEver) {
  // The child's table refuses every row (no field feeds a required column) and its field never
  // matches: without a guard the same occurrence would be cut again and again.
  Exec("CREATE TABLE strict (feature VARCHAR(20), must VARCHAR(5) NOT NULL)");
  features_->SetTableName("strict");
  features_->GetAttributes().Item(1)->SetStartTag("<nothing>");
  std::string text = "<div class=item><h2>One</h2><li>a<li>b</div><div class=item><h2>Two</h2>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT title FROM items"), (RowList{{"One"}, {"Two"}}));
  EXPECT_TRUE(Rows("SELECT * FROM strict").empty());
  EXPECT_EQ(features_->PendingFailure().Number(), exerr::kUpdateRefused);
}

TEST_F(Nesting, AnEntityWithoutRowsHasOrderZeroAndLeavesTheChildsParentOrderAlone) {
  EXPECT_EQ(page_->GetEntityPageOrder(items_->Id()), 0);
  features_->Metadata()->SetParentOnPageOrder(7);
  std::string text = "<li>x</li>";
  features_->Extract(text, false, {}, {}, 0);
  EXPECT_EQ(features_->Metadata()->ParentOnPageOrder(), 7);
  EXPECT_EQ(Rows("SELECT feature, parent_order FROM features"), (RowList{{"x", "7"}}));
}

}  // namespace
}  // namespace gw::extraction_test
