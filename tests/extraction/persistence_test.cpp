// Datapages, datasets and fields saved to and loaded from a real rules store.
#include <gtest/gtest.h>

#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/failures.h"
#include "extraction/stored_fields.h"
#include "infra/c_crypto.h"
#include "meta/failures.h"
#include "rules/rules_fixture.h"
#include "rules/template_data_access.h"

namespace gw {
namespace {

using testing::CaughtError;
using testing::Field;
using testing::RulesStoreTest;

class TemplatePersistenceTest : public RulesStoreTest {
 protected:
  // "Shop\Products": root Products (three fields) with the nested Reviews (one field).
  void MakeTemplate() {
    page_ = DataPage::Create();
    page_->SetDisplayName("Shop\\Products");
    page_->SetDescription(Variant("Product listing"));
    page_->SetDBName("shop");
    root_ = testing::Dataset(page_->RootEntities(), "Products", "products", "<tr class=p>",
                             "Provider=SQLite;Data Source=/data/shop.sqlite");
    root_->SetOnPageOrder(1);
    auto name = Field(root_, "name", 1, "<td>", "</td>");
    name->SetColumnType("RXMATCH");
    name->SetColumnTypeParameter("a,b");
    auto price = Field(root_, "price", 2, "<b>", "</b>");
    price->SetIsPK(true);
    price->SetColumnSize(50);
    auto note = Field(root_, "note", 3, "<i>", "</i>");
    note->SetIsOptional(true);
    note->SetColumnSize(-1);
    child_ = testing::Dataset(root_->ChildrenOnPage(), "Reviews", "reviews", "<li>");
    child_->SetOnPageOrder(1);
    Field(child_, "text", 1, "<p>", "</p>");
  }
  void SaveTemplate() {
    page_->Save();
    for (const auto& e : {root_, child_}) {
      e->Save();
      for (const auto& a : e->GetAttributes()) a->Save();
    }
  }
  static void ExpectSameFields(Entity& saved, Entity& loaded) {
    ASSERT_EQ(loaded.GetAttributes().Count(), saved.GetAttributes().Count());
    for (long k = 1; k <= saved.GetAttributes().Count(); ++k) {
      SCOPED_TRACE(k);
      auto x = saved.GetAttributes().Item(k);
      auto y = loaded.GetAttributes().Item(k);
      EXPECT_EQ(y->Id(), x->Id());
      EXPECT_EQ(y->ColumnName(), x->ColumnName());
      EXPECT_EQ(y->StartTag(), x->StartTag());
      EXPECT_EQ(y->EndTag(), x->EndTag());
      EXPECT_EQ(y->Step(), x->Step());
      EXPECT_EQ(y->IsPK(), x->IsPK());
      EXPECT_EQ(y->ColumnType(), x->ColumnType());
      EXPECT_EQ(y->ColumnTypeParameter(), x->ColumnTypeParameter());
      EXPECT_EQ(y->ColumnSize(), x->ColumnSize() < 1 ? 0 : x->ColumnSize())
          << "a new field's size below 1 is stored as null";
      EXPECT_EQ(y->IsOptional(), x->IsOptional());
      EXPECT_EQ(y->EntityId(), loaded.Id());
      EXPECT_EQ(y->GetEntity().get(), &loaded);
      EXPECT_FALSE(y->IsDirty());
    }
  }
  static void ExpectSameDataset(Entity& saved, Entity& loaded) {
    EXPECT_EQ(loaded.Id(), saved.Id());
    EXPECT_EQ(loaded.EntityName(), saved.EntityName());
    EXPECT_EQ(loaded.TableName(), saved.TableName());
    EXPECT_EQ(loaded.InitString(), saved.InitString());
    EXPECT_EQ(loaded.DBConnStr(), saved.DBConnStr());
    EXPECT_EQ(loaded.PKColumn(), saved.PKColumn());
    EXPECT_EQ(loaded.IsPKSurrogate(), saved.IsPKSurrogate());
    EXPECT_EQ(loaded.OnPageOrder(), saved.OnPageOrder());
    EXPECT_EQ(loaded.DatapageId(), saved.DatapageId());
    EXPECT_EQ(loaded.ParentEntityID(), saved.ParentEntityID());
    EXPECT_FALSE(loaded.IsDirty());
    ExpectSameFields(saved, loaded);
  }

  std::shared_ptr<DataPage> page_;
  EntityPtr root_, child_;
};

TEST_F(TemplatePersistenceTest, ADatapageWithANestedDatasetComesBackEqual) {
  MakeTemplate();
  SaveTemplate();
  EXPECT_FALSE(page_->IsDirty());
  EXPECT_FALSE(root_->IsDirty());

  auto page = DataPage::Create();
  page->Load(page_->Id());
  EXPECT_EQ(page->Id(), page_->Id());
  EXPECT_EQ(page->DisplayName(), "Shop\\Products");
  EXPECT_EQ(page->Description().ToString(), "Product listing");
  EXPECT_EQ(page->DBName(), "shop");
  EXPECT_FALSE(page->IsDirty());
  EXPECT_EQ(page->GetEntities().Count(), 2);
  ASSERT_EQ(page->RootEntities().Count(), 1);
  auto root = page->RootEntities().Item(1);
  EXPECT_EQ(root->PKColumn(), "price");
  ExpectSameDataset(*root_, *root);
  EXPECT_EQ(root->GetDataPage(), page);
  ASSERT_EQ(root->ChildrenOnPage().Count(), 1);
  auto child = root->ChildrenOnPage().Item(1);
  ExpectSameDataset(*child_, *child);
  EXPECT_EQ(child->ParentEntity(), root);
  EXPECT_EQ(child->GetDataPage(), page);
  EXPECT_EQ(child->ChildrenOnPage().Count(), 0);

  // The target connection string is stored enciphered.
  auto row = Open()->Execute("SELECT db_conn_str FROM entities WHERE entity_id = ?",
                             std::vector<Variant>{Variant(root_->Id())});
  const std::string stored = (*row)["db_conn_str"].Value().ToString();
  EXPECT_EQ(stored.find("rovider"), std::string::npos);
  EXPECT_EQ(CCrypto().DecryptText(stored), root_->DBConnStr());
}

TEST_F(TemplatePersistenceTest, UnknownIdsFailWithTheirNumberedTexts) {
  testing::ExpectFailures({
      {[] { Attrib::Create()->Load("nope"); }, exerr::kNoSuchAttrib, "Attrib.Load",
       "The specified Attribute Id does not exist."},
      {[] { Entity::Create()->Load("nope"); }, exerr::kNoSuchEntity, "Entity.Load",
       "The specified Entity Id does not exist."},
      {[] { DataPage::Create()->Load("nope"); }, exerr::kNoSuchDataPage, "DataPage.Load",
       "The specified Datapage Id does not exist."},
      // A crafted id is only an id that is not there.
      {[] { Entity::Create()->Load("x' OR '1'='1"); }, exerr::kNoSuchEntity, "Entity.Load",
       "The specified Entity Id does not exist."},
  });
}

TEST_F(TemplatePersistenceTest, AClearTextConnectionStringStillLoads) {
  D_Entity().Save("e1", "p1", "Old", NoAction(), "Provider=SQLite;Data Source=/old.db");
  auto e = Entity::Create();
  e->Load("e1");
  EXPECT_EQ(e->DBConnStr(), "Provider=SQLite;Data Source=/old.db");
}

TEST_F(TemplatePersistenceTest, FieldsLoadInStepOrderAndSplitTheirColumnType) {
  D_Entity().Save("e1", "p1", "Rows");
  D_Attrib().Save("f3", "e1", "c", "<c>", "</c>", 3);
  D_Attrib().Save("f1", "e1", "a", "<a>", "</a>", 1, NoAction(), "RXMATCH , x,y , z");
  D_Attrib().Save("f2", "e1", "b", "<b>", "</b>", 2, NoAction(), "TextOnly , ");
  auto e = Entity::Create();
  e->Load("e1");
  std::string order;
  for (const auto& a : e->GetAttributes()) order += a->ColumnName();
  EXPECT_EQ(order, "abc");
  EXPECT_EQ(e->GetAttributes().Item("f1")->ColumnType(), "RXMATCH");
  EXPECT_EQ(e->GetAttributes().Item("f1")->ColumnTypeParameter(), "x,y , z");
  EXPECT_EQ(e->GetAttributes().Item("f2")->ColumnType(), "TextOnly");
  EXPECT_EQ(e->GetAttributes().Item("f2")->ColumnTypeParameter(), "");
  // Saving writes the joined form back.
  e->GetAttributes().Item("f2")->Save();
  EXPECT_EQ(Count("SELECT COUNT(*) FROM attributes WHERE column_type = 'TextOnly , '"), 1);
}

TEST_F(TemplatePersistenceTest, ChildrenComeAllOrOnThePageInTheirOrder) {
  D_Entity e;
  e.Save("root", "p1", "Root");
  e.Save("late", "p1", "Late", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), "root",
         2);
  e.Save("early", "p1", "Early", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), "root",
         1);
  e.Save("other", "p2", "Other", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), "root",
         0);
  auto root = Entity::Create();
  root->Load("root");
  ASSERT_EQ(root->ChildrenOnPage().Count(), 2);
  EXPECT_EQ(root->ChildrenOnPage().Item(1)->Id(), "early");
  EXPECT_EQ(root->AllChildren().Count(), 3);
  EXPECT_EQ(root->ChildrenOnPage().Item("late")->ParentEntity(), root);
}

TEST_F(TemplatePersistenceTest, DeletingRemovesRowsAndTakesObjectsOutOfTheirCollections) {
  MakeTemplate();
  SaveTemplate();
  auto page = DataPage::Create();
  page->Load(page_->Id());
  auto root = page->RootEntities().Item(1);
  auto field = root->GetAttributes().Item(2);
  field->Delete();
  EXPECT_EQ(root->GetAttributes().Count(), 2);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM attributes WHERE entity_id = ?", {Variant(root->Id())}), 2);

  root->Delete();
  EXPECT_EQ(page->RootEntities().Count(), 0);
  // What a dataset's row takes with it is checked in schema_test.
  EXPECT_EQ(page->GetEntities().Count(), 1) << "the nested dataset stays";
  EXPECT_EQ(Count("SELECT COUNT(*) FROM entities WHERE entity_id = ?", {Variant(child_->Id())}), 1);
}

TEST_F(TemplatePersistenceTest, ADatasetStoresTheDefaultColumnsUnlessItChoseOthers) {
  auto page = DataPage::Create();
  page->Save();
  auto plain = Entity::Create();
  page->RootEntities().Add(plain);
  EXPECT_EQ(plain->SelectedMetaFields()->Count(), 0) << "no store is asked at creation";
  plain->Save();
  auto loaded = Entity::Create();
  loaded->Load(plain->Id());
  std::vector<long> ids;
  for (const auto& f : *loaded->SelectedMetaFields()) ids.push_back(f->Id());
  EXPECT_EQ(ids, (std::vector<long>{10, 24, 27}));
  EXPECT_EQ(loaded->SelectedMetaFields()->Item("24")->ColumnName(), "ORDER_ON_PAGE");
  EXPECT_EQ(loaded->SelectedMetaFields()->Item("24")->MetadataClassMember(),
            "MetaEntity.OnPageOrder");
  EXPECT_EQ(loaded->CustomColumns()->GetFields().Count(), 3);

  auto chosen = MetaFields::Create();
  auto field = MetaField::Create();
  field->Load(11);
  chosen->Add(field);
  loaded->SetSelectedMetaFields(chosen);
  loaded->Save();
  auto again = Entity::Create();
  again->Load(plain->Id());
  ASSERT_EQ(again->SelectedMetaFields()->Count(), 1);
  EXPECT_EQ(again->SelectedMetaFields()->Item(1)->ColumnName(), "SOURCE_URI");

  EXPECT_EQ(CaughtError([] { MetaField::Create()->Load(999); }).Number(),
            metaerr::kNoSuchCustomColumn);
}

TEST_F(TemplatePersistenceTest, AFieldFindsItsDatasetByIdInTheStore) {
  D_Entity().Save("e1", "p1", "Stored");
  auto orphan = Attrib::Create();
  orphan->SetEntityId("e1");
  EXPECT_EQ(orphan->GetEntity()->EntityName(), "Stored");
  auto lost = Attrib::Create();
  lost->SetEntityId("gone");
  EXPECT_EQ(CaughtError([&] { lost->GetEntity(); }).Number(), exerr::kNoSuchEntity);
}

}  // namespace
}  // namespace gw
