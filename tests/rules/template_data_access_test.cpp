#include "rules/template_data_access.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "platform/text.h"
#include "rules/failures.h"
#include "rules/package_data_access.h"
#include "rules/settings.h"
#include "rules/shape.h"
#include "rules_fixture.h"

namespace gw {
namespace {

using testing::CaughtError;
using testing::FailureNumber;
using testing::RulesStoreTest;

using TemplateDataTest = RulesStoreTest;

Variant Col(const db::RecordsetPtr& rs, const char* name) { return (*rs)[name].Value(); }

// A full save and load of every column is checked through Attrib in persistence_test.
TEST_F(TemplateDataTest, AttribSaveUpdatesOnlyWhatIsGiven) {
  D_Attrib d;
  ASSERT_TRUE(d.Save("a1", "e1", "Price", "<td>", "</td>", 3, true, "RXMATCH , a,b", 50, true));
  // Only Id and StartTag given: the start tag changes, nothing else.
  d.Save("a1", NoAction(), NoAction(), "<TD class=p>");
  auto rs = d.Selectx("a1");
  EXPECT_EQ(Col(rs, "StartTag").ToString(), "<TD class=p>");
  EXPECT_EQ(Col(rs, "EndTag").ToString(), "</td>");
  EXPECT_EQ(Col(rs, "EntityId").ToString(), "e1");
  EXPECT_EQ(Col(rs, "ColumnSize").ToLong(), 50);
  EXPECT_TRUE(Col(rs, "IsOptional").ToBool());
  EXPECT_TRUE(Col(rs, "IsPK").ToBool());

  // Given values are written, also false, 0 and a negative size.
  d.Save("a1", NoAction(), NoAction(), NoAction(), NoAction(), 0, false, NoAction(), -1, false);
  rs = d.Selectx("a1");
  EXPECT_EQ(Col(rs, "Step").ToLong(), 0);
  EXPECT_FALSE(Col(rs, "IsPK").ToBool());
  EXPECT_EQ(Col(rs, "ColumnSize").ToLong(), -1);
  EXPECT_FALSE(Col(rs, "IsOptional").ToBool());
}

TEST_F(TemplateDataTest, AttribInsertStoresNullForWhatIsLeftOutAndForASizeBelowOne) {
  D_Attrib d;
  d.Save("a1", "e1", "Name", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), 0);
  d.Save("a2", "e1", "Name", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), -5);
  for (const char* id : {"a1", "a2"}) {
    SCOPED_TRACE(id);
    auto rs = d.Selectx(id);
    EXPECT_TRUE(Col(rs, "ColumnSize").IsNull());
    EXPECT_TRUE(Col(rs, "StartTag").IsNull());
    EXPECT_TRUE(Col(rs, "Step").IsNull());
    EXPECT_TRUE(Col(rs, "IsPK").IsNull());
  }
}

TEST_F(TemplateDataTest, SavesRefuseAnEmptyIdWithTheirNumbers) {
  testing::ExpectFailures({
      {[] { D_Attrib().Save(""); }, ruleserr::kInvalidAttribId, "D_Attrib.Update",
       "The specified Attribute Id is not valid."},
      {[] { D_Entity().Save(""); }, ruleserr::kInvalidEntityId, "D_Entity.Update",
       "The specified Entity Id is not valid."},
      {[] { D_DataPage().Save(""); }, ruleserr::kInvalidDatapageId, "D_DataPage.Save",
       "The specified Datapage Id is not valid."},
      {[] { D_Entity().Save("e1", ""); }, ruleserr::kInvalidDatapageReference, "D_Entity.Insert",
       "Invalid Datapage reference.  Make sure that this is assigned to a valid DatapageId."},
      {[] { D_Entity().Save("e1"); }, ruleserr::kInvalidDatapageReference, "D_Entity.Insert",
       "Invalid Datapage reference.  Make sure that this is assigned to a valid DatapageId."},
  });
  EXPECT_EQ(Count("SELECT COUNT(*) FROM entities"), 0);
}

TEST_F(TemplateDataTest, EntityUpdateWithoutDatapageKeepsTheDefinition) {
  D_Entity d;
  d.Save("e1", "p1", "Rows", "desc", "cipher", "T", "ID", "<tr>", "", 2, true);
  d.Save("e1", "", "Other", "x", "y", "U", "K", "<li>", "parent", 5, false);
  auto rs = d.Selectx("e1");
  EXPECT_EQ(Col(rs, "DataPageId").ToString(), "p1");
  EXPECT_EQ(Col(rs, "EntityName").ToString(), "Rows");
  EXPECT_EQ(Col(rs, "Description").ToString(), "desc");
  EXPECT_EQ(Col(rs, "DBConnStr").ToString(), "cipher");
  EXPECT_EQ(Col(rs, "TableName").ToString(), "T");
  EXPECT_EQ(Col(rs, "PKColumn").ToString(), "ID");
  EXPECT_EQ(Col(rs, "InitString").ToString(), "<tr>");
  // The placement is written all the same.
  EXPECT_EQ(Col(rs, "ParentEntityId").ToString(), "parent");
  EXPECT_EQ(Col(rs, "OnPageOrder").ToLong(), 5);
  EXPECT_FALSE(Col(rs, "IsPKSurrogate").ToBool());
}

class TemplateTreeTest : public RulesStoreTest {
 protected:
  // p1: roots r1, r2 (r2's parent lies outside the template); r1 has children c2 and c1; x1
  // belongs to another template but names r1 as parent.
  void SetUp() override {
    RulesStoreTest::SetUp();
    D_Entity d;
    d.Save("r1", "p1", "Root", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(),
           Variant(kNull), 1);
    d.Save("r2", "p1", "Other", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(),
           "elsewhere", 2);
    d.Save("c2", "p1", "Second", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), "r1",
           2);
    d.Save("c1", "p1", "First", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), "r1",
           1);
    d.Save("x1", "p2", "Foreign", NoAction(), NoAction(), NoAction(), NoAction(), NoAction(), "r1",
           0);
  }
  static std::vector<std::string> Ids(const db::RecordsetPtr& rs, const char* column) {
    std::vector<std::string> ids;
    for (; !rs->IsEOF(); rs->MoveNext()) ids.push_back((*rs)[column].Value().ToString());
    return ids;
  }
};

// The order of children and fields, children in any template and what a delete takes with it
// are checked through Entity::Load and Delete in persistence_test.
TEST_F(TemplateTreeTest, RootsAreTheDatasetsWithoutAParentInTheirTemplate) {
  D_DataPage p;
  auto roots = Ids(p.GetRootEntities("p1"), "E_Id");
  std::sort(roots.begin(), roots.end());
  EXPECT_EQ(roots, (std::vector<std::string>{"r1", "r2"}));
  EXPECT_EQ(p.GetEntities("p1")->RecordCount(), 4);
  auto info = p.GetEntitiesWithConnectionInfo("p2");
  ASSERT_EQ(info->RecordCount(), 1);
  EXPECT_EQ(Col(info, "entity_name").ToString(), "Foreign");
}

TEST_F(TemplateDataTest, DatapageDeleteIsRefusedWhilePackagesUseIt) {
  D_DataPage p;
  p.Save("p1", "Prices\\Daily", "d", "db", DateTime::FromParts(2026, 1, 2),
         DateTime::FromParts(2026, 1, 3));
  DJob j;
  j.Save("j1", NoAction(), NoAction(), "Zeta");
  j.Save("j2", NoAction(), NoAction(), "Alpha");
  DTask t;
  t.Save("t1", "j1", "x", NoAction(), 1, 0, 0, "p1");
  t.Save("t2", "j2", "x", NoAction(), 1, 0, 0, "p1");
  t.Save("t3", "j2", "y", NoAction(), 2, 0, 0, "p1");

  const Error e = CaughtError([&] { p.Delete("p1"); });
  EXPECT_EQ(e.Number(), ruleserr::kDatapageInUse);
  EXPECT_EQ(e.Source(), "DJob.Delete");
  EXPECT_EQ(e.Description(),
            "The datapage could not be deleted because it is currently referenced by one or more "
            "packages.  You must remove these references before deleting this datapage.  The "
            "following packages reference this datapage: Alpha, Zeta");
  EXPECT_EQ(p.Selectx("p1")->RecordCount(), 1);

  j.DeleteAllTasks("j1");
  j.DeleteAllTasks("j2");
  p.Delete("p1");
  EXPECT_EQ(p.Selectx("p1")->RecordCount(), 0);
}

TEST_F(TemplateDataTest, DatapageSaveAndSelectKeepDates) {
  D_DataPage p;
  const DateTime created = DateTime::FromParts(2026, 1, 2, 3, 4, 5);
  p.Save("p1", "Name", NoAction(), NoAction(), created);
  auto rs = p.Selectx("p1");
  EXPECT_EQ(Col(rs, "DateCreated").ToDate(), created);
  EXPECT_TRUE(Col(rs, "DateModified").IsNull());
  EXPECT_TRUE(Col(rs, "DBName").IsNull());
  p.Save("p1", NoAction(), NoAction(), NoAction(), DateTime(), created.AddDays(1));
  rs = p.Selectx("p1");
  EXPECT_EQ(Col(rs, "DateCreated").ToDate(), created) << "the empty date leaves it alone";
  EXPECT_EQ(Col(rs, "DateModified").ToDate(), created.AddDays(1));
  EXPECT_EQ(p.GetAllDataPages()->RecordCount(), 1);
}

TEST(CategoryNames, FollowTheStatementsExpressions) {
  struct Case {
    const char* name;
    const char* category;
    const char* short_name;
  } cases[] = {
      {"Prices\\Daily", "Prices", "Daily"},
      {"Daily", "(Default)", "Daily"},
      {" Prices \\ Daily ", "Prices", "Daily"},
      {"Prices\\Daily ", "Prices", "aily"},  // LEN drops the trailing space that RIGHT keeps
      {"a\\b\\c", "a", "bc"},
      {"\\x", "(Default)", "x"},
      {"", "(Default)", ""},
      {"Prix\\Été", "Prix", "Été"},
      {"Daily  ", "(Default)", "ily"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(CategoryOfName(Variant(c.name)).ToString(), c.category);
    EXPECT_EQ(ShortNameOf(Variant(c.name)).ToString(), c.short_name);
  }
  EXPECT_TRUE(CategoryOfName(Variant(kNull)).IsNull());
  EXPECT_TRUE(ShortNameOf(Variant(kNull)).IsNull());
}

TEST_F(TemplateDataTest, CategoryTreeGroupsTemplatesUnderDefaultAndTheirCategory) {
  D_DataPage p;
  p.Save("p1", "Prices\\Weekly");
  p.Save("p2", "Standalone");
  p.Save("p3", "prices\\Daily");
  p.Save("p4", "Another");
  auto tree = p.GetDatapageCategoryHierarchy();
  ASSERT_EQ(tree->RecordCount(), 2);
  EXPECT_EQ(tree->GetFields()["Chapter1"].Type(), db::DataType::Chapter);
  EXPECT_EQ(Col(tree, "category").ToString(), "(Default)");
  auto pages = Col(tree, "Chapter1").As<db::Recordset>();
  ASSERT_EQ(pages->RecordCount(), 2);
  EXPECT_EQ(Col(pages, "Name").ToString(), "Another");
  pages->MoveNext();
  EXPECT_EQ(Col(pages, "Name").ToString(), "Standalone");
  EXPECT_EQ(Col(pages, "datapage_id").ToString(), "p2");
  for (const char* column : {"category", "Description", "Create Date", "Modified_Date"}) {
    EXPECT_GE(pages->GetFields().IndexOf(column), 0) << column;
  }
  tree->MoveNext();
  EXPECT_EQ(text::AsciiLower(Col(tree, "category").ToString()), "prices");
  pages = Col(tree, "Chapter1").As<db::Recordset>();
  ASSERT_EQ(pages->RecordCount(), 2) << "categories differing only in case are one";
  EXPECT_EQ(Col(pages, "Name").ToString(), "Daily");
}

TEST_F(TemplateDataTest, ShapeStoreSettingWithTheShapingProviderIsFollowed) {
  Settings().PutOption("ShapeCnStr",
                       "Provider=MSDataShape;Data Provider=SQLite;Data Source=" +
                           (home_.Path() / "other.sqlite").string(),
                       DataType::Str);
  const auto shape = db::ConnectionProperties::Parse(ShapeConnectionString());
  EXPECT_EQ(shape.Items().size(), 2u);
  EXPECT_EQ(shape.Get("Provider"), "SQLite");
  EXPECT_EQ(shape.Get("Data Source"), (home_.Path() / "other.sqlite").string());
  D_DataPage().Save("p1", "Here");
  // The tree comes from the other store, which is created empty on first use.
  EXPECT_EQ(D_DataPage().GetDatapageCategoryHierarchy()->RecordCount(), 0);
}

TEST_F(TemplateDataTest, CustomColumnsLinkInTheOrderChosen) {
  D_CustCols c;
  c.InsCustColForEnt("e1", 27);
  c.InsCustColForEnt("e1", 10);
  c.InsCustColForEnt("e1", 27);  // linked already
  auto rs = c.GetCustColsForEnt("e1");
  ASSERT_EQ(rs->RecordCount(), 2);
  EXPECT_EQ(Col(rs, "custom_col_id").ToLong(), 27);
  c.DelCustColsForEnt("e1");
  EXPECT_EQ(c.GetCustColsForEnt("e1")->RecordCount(), 0);
  // The defaults (10, 24, 27) are what a new dataset loads in persistence_test; the rows of 24
  // and 27 are pinned in schema_test.
  auto col = c.Selectx(24);
  ASSERT_EQ(col->RecordCount(), 1);
  EXPECT_EQ(Col(col, "group_name").ToString(), "Dataset");
  EXPECT_EQ(c.Selectx(999)->RecordCount(), 0);

  // The catalogue starts with the package's columns and holds every row.
  auto all = c.GetAll();
  EXPECT_EQ(all->RecordCount(), Count("SELECT COUNT(*) FROM Custom_Columns"));
  EXPECT_EQ(Col(all, "column_name").ToString(), "PACKAGE_ID");
}

TEST_F(TemplateDataTest, EveryMetadataMemberHasACustomColumn) {
  for (const char* member :
       {"MetaJob.JobId", "MetaJob.JobStartTime", "MetaJob.JobName", "MetaTask.TaskId",
        "MetaDoc.DataPageName", "MetaDoc.DataPageId", "MetaDoc.DocId", "MetaDoc.LocalPath",
        "MetaDoc.SourceUri", "MetaDoc.DownloadComplete", "MetaDoc.ExtractionStart",
        "MetaEntity.EntityId", "MetaEntity.OccurCount", "MetaEntity.OnPageOrder",
        "MetaEntity.ParentOnPageOrder"}) {
    EXPECT_EQ(
        Count("SELECT COUNT(*) FROM Custom_Columns WHERE class_member_name = ?", {Variant(member)}),
        1)
        << member;
  }
  EXPECT_EQ(Count("SELECT COUNT(*) FROM Custom_Columns c LEFT JOIN custom_column_groups g ON "
                  "g.group_id = c.group_id WHERE g.group_name IS NULL"),
            0);
}

TEST_F(TemplateDataTest, HighlightersComeByDocumentType) {
  auto rs = D_HiLiter().SelectAll("html");
  EXPECT_GT(rs->RecordCount(), 0);
  EXPECT_EQ(Col(rs, "doc_type").ToString(), "HTML");
  EXPECT_EQ(D_HiLiter().SelectAll("nothing")->RecordCount(), 0);
}

}  // namespace
}  // namespace gw
