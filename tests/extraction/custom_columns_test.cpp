// Custom columns chosen in the rules store reach the rows of nested datasets in a real target.
#include <gtest/gtest.h>

#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction_fixture.h"
#include "meta/meta_job.h"
#include "meta/meta_task.h"
#include "rules/rules_fixture.h"

namespace gw {
namespace {

using RowList = std::vector<std::vector<std::string>>;

class CustomColumnsTest : public testing::RulesStoreTest {
 protected:
  CustomColumnsTest()
      : target_("Provider=SQLite;Data Source=" + (home_.Path() / "t.db").string()) {}

  void Exec(const std::string& sql) {
    auto cn = db::Connection::Create();
    cn->Open(target_);
    cn->ExecuteScript(sql);
  }
  RowList Rows(const std::string& sql) {
    auto cn = db::Connection::Create();
    cn->Open(target_);
    RowList rows;
    for (auto rs = cn->Execute(sql); !rs->IsEOF(); rs->MoveNext()) {
      std::vector<std::string> row;
      for (auto& f : rs->GetFields())
        row.push_back(f.Value().IsNull() ? "NULL" : f.Value().ToText());
      rows.push_back(std::move(row));
    }
    return rows;
  }
  EntityPtr Dataset(const std::string& name, const std::string& init, const std::string& table,
                    const std::string& column, const std::string& start, const std::string& end) {
    auto e = Entity::Create();
    e->SetEntityName(name);
    e->SetInitString(init);
    e->SetTableName(table);
    e->SetDBConnStr(target_);
    auto a = Attrib::Create();
    a->SetColumnName(column);
    a->SetStep(1);
    a->SetStartTag(start);
    a->SetEndTag(end);
    e->GetAttributes().Add(a, a->Id());
    return e;
  }

  static MetaFieldPtr Loaded(long custom_col_id) {
    auto f = MetaField::Create();
    f->Load(custom_col_id);
    return f;
  }

  std::string target_;
  std::string page_id_;
};

TEST_F(CustomColumnsTest, OrderColumnsReachTheRowsOfNestedDatasets) {
  // Tables made by hand: the items table has the document's id too, the features table lacks it
  // (so that column is passed over there), and neither has the other catalogue columns.
  Exec(
      "CREATE TABLE items (title VARCHAR(20), DOC_ID VARCHAR(50), ORDER_ON_PAGE VARCHAR(10), "
      "PARENT_ORDER_ON_PAGE VARCHAR(10));"
      "CREATE TABLE features (feature VARCHAR(20), ORDER_ON_PAGE VARCHAR(10), "
      "PARENT_ORDER_ON_PAGE VARCHAR(10), PACKAGE_NAME VARCHAR(30));");
  {
    auto page = DataPage::Create();
    page->SetDisplayName("Catalogue");
    page->Save();
    auto items = Dataset("Items", "<div class=item>", "items", "title", "<h2>", "</h2>");
    page->RootEntities().Add(items, items->Id());
    auto features = Dataset("Features", "<li>", "features", "feature", "<li>", "</li>");
    items->ChildrenOnPage().Add(features, features->Id());
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
    page_id_ = page->Id();
  }

  auto page = DataPage::Create();
  page->Load(page_id_);
  auto job = MetaJob::Create();
  job->SetJobName("Nightly");
  auto task = MetaTask::Create();
  task->SetMetaJob(job);
  auto doc = std::make_shared<extraction_test::TestDoc>("file:///catalogue.htm");
  doc->Metadata()->SetDocId("D1");
  task->GetMetaDocs().Add(doc->Metadata(), task);
  page->SetDoc(doc);
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
  auto features = page->RootEntities().Item(1)->ChildrenOnPage().Item(1);
  auto shape = features->CustomColumns();
  ASSERT_EQ(shape->GetFields().Count(), 3);
  EXPECT_EQ(shape->GetFields().Item(1L).Name(), "PARENT_ORDER_ON_PAGE");
  EXPECT_EQ(shape->GetFields().Item(1L).DefinedSize(), 10);
}

TEST_F(CustomColumnsTest, AColumnOfAMissingOwnerTakesItsDefault) {
  Exec("CREATE TABLE items (title VARCHAR(20), DOC_ID VARCHAR(50), TASK_ID VARCHAR(50))");
  auto page = DataPage::Create();
  auto items = Dataset("Items", "<p>", "items", "title", "<p>", "</p>");
  page->RootEntities().Add(items, items->Id());
  auto chosen = MetaFields::Create();
  for (long id : {10L, 6L}) chosen->Add(Loaded(id));
  items->SetSelectedMetaFields(chosen);
  // A document extracted outside any package step.
  auto doc = std::make_shared<extraction_test::TestDoc>("file:///items.htm");
  doc->Metadata()->SetDocId("D9");
  page->SetDoc(doc);
  std::string text = "<p>x</p>";
  page->Extract(text, false);
  EXPECT_EQ(Rows("SELECT title, DOC_ID, TASK_ID FROM items"), (RowList{{"x", "D9", "N/A"}}));
}

}  // namespace
}  // namespace gw
