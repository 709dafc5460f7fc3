// Custom columns chosen in the rules store reach the rows of nested datasets in a real target.
#include <gtest/gtest.h>

#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction_fixture.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "rules/connection_string.h"

namespace gw {
namespace {

using RowList = std::vector<std::vector<std::string>>;

class CustomColumnsTest : public extraction_test::ExtractionTest {
 protected:
  CustomColumnsTest() {
    SetRulesConnectionOverride("Provider=SQLite;Data Source=" + (dir_ / "rules.sqlite").string());
  }
  ~CustomColumnsTest() override { SetRulesConnectionOverride({}); }
  static MetaFieldPtr Loaded(long custom_col_id) {
    auto f = MetaField::Create();
    f->Load(custom_col_id);
    return f;
  }
};

TEST_F(CustomColumnsTest, OrderColumnsReachTheRowsOfNestedDatasets) {
  // Tables made by hand: the items table has the document's id too, the features table lacks it
  // (so that column is passed over there), and neither has the other catalogue columns.
  Exec(
      "CREATE TABLE items (title VARCHAR(20), DOC_ID VARCHAR(50), ORDER_ON_PAGE VARCHAR(10), "
      "PARENT_ORDER_ON_PAGE VARCHAR(10));"
      "CREATE TABLE features (feature VARCHAR(20), ORDER_ON_PAGE VARCHAR(10), "
      "PARENT_ORDER_ON_PAGE VARCHAR(10), PACKAGE_NAME VARCHAR(30));");
  auto items = AddRoot("Items", "<div class=item>", "items");
  AddField(items, "title", "<h2>", "</h2>");
  auto features = AddChild(items, "Features", "<li>", "features");
  AddField(features, "feature", "<li>", "</li>");
  page_->Save();
  // Saved without a choice of their own: the store's default columns.
  for (const EntityPtr& e : {items, features}) {
    e->Save();
    for (const auto& a : e->GetAttributes()) a->Save();
  }
  // The features also take the package's name.
  auto chosen = MetaFields::Create();
  for (long id : {24L, 27L, 2L}) chosen->Add(Loaded(id));
  features->SetSelectedMetaFields(chosen);
  features->Save();

  auto page = DataPage::Create();
  page->Load(page_->Id());
  auto job = MetaJob::Create();
  job->SetJobName("Nightly");
  auto task = MetaTask::Create();
  task->SetMetaJob(job);
  doc_->Metadata()->SetDocId("D1");
  task->GetMetaDocs().Add(doc_->Metadata(), task);
  page->SetDoc(doc_);
  std::string text =
      "<div class=item><h2>One</h2><ul><li>1a</li><li>1b</li></ul></div>"
      "<div class=item><h2>Two</h2></div>"
      "<div class=item><h2>Three</h2><ul><li>3a</li></ul></div>";
  page->Extract(text, false);

  EXPECT_EQ(Rows("SELECT title, DOC_ID, ORDER_ON_PAGE, PARENT_ORDER_ON_PAGE FROM items"),
            (RowList{{"One", "D1", "1", "0"}, {"Two", "D1", "2", "0"}, {"Three", "D1", "3", "0"}}));
  // A child's order restarts with every parent row, whose order it records.
  EXPECT_EQ(
      Rows("SELECT feature, ORDER_ON_PAGE, PARENT_ORDER_ON_PAGE, PACKAGE_NAME FROM features"),
      (RowList{
          {"1a", "1", "1", "Nightly"}, {"1b", "2", "1", "Nightly"}, {"3a", "1", "3", "Nightly"}}));
  // The shape in which the chosen columns join a row.
  auto shape = page->RootEntities().Item(1)->ChildrenOnPage().Item(1)->CustomColumns();
  ASSERT_EQ(shape->GetFields().Count(), 3);
  EXPECT_EQ(shape->GetFields().Item(1L).Name(), "PARENT_ORDER_ON_PAGE");
  EXPECT_EQ(shape->GetFields().Item(1L).DefinedSize(), 10);
}

TEST_F(CustomColumnsTest, AColumnOfAMissingOwnerTakesItsDefault) {
  Exec("CREATE TABLE items (title VARCHAR(20), DOC_ID VARCHAR(50), TASK_ID VARCHAR(50))");
  auto items = AddRoot("Items", "<p>", "items");
  AddField(items, "title", "<p>", "</p>");
  auto chosen = MetaFields::Create();
  for (long id : {10L, 6L}) chosen->Add(Loaded(id));
  items->SetSelectedMetaFields(chosen);
  // A document extracted outside any package step.
  doc_->Metadata()->SetDocId("D9");
  std::string text = "<p>x</p>";
  page_->Extract(text, false);
  EXPECT_EQ(Rows("SELECT title, DOC_ID, TASK_ID FROM items"), (RowList{{"x", "D9", "N/A"}}));
}

}  // namespace
}  // namespace gw
