// Template and package files: export, import into another rules store, and refusals.
#include "engine/exchange.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "engine/doc_source.h"
#include "engine/job.h"
#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/failures.h"
#include "extraction/stored_fields.h"
#include "infra/c_crypto.h"
#include "infra/object_xml_reader.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/rules_fixture.h"
#include "rules/template_data_access.h"

namespace gw {
namespace {

using testing::CaughtError;
using testing::Dataset;
using testing::Field;
using testing::RulesStoreTest;

const std::string kTargetCnStr = "Provider=SQLite;Data Source=/srv/data/shop.sqlite";
const std::string kQueryCnStr = "Provider=SQLite;Data Source=/srv/data/links.sqlite";
// A task's text form as the package engine keeps it: object XML with escaped values inside
// frames, line ends included.
const std::string kTextForm =
    "[!TSK!]<Task Object=\"True\">\r\n\t<Description>http://shop.test/?a=1%26b=2</Description>"
    "\r\n</Task>[iTSKi][!HTP!]<HttpClient Object=\"True\"></HttpClient>[iHTPi]";

std::string Text(const db::RecordsetPtr& rs, const char* column) {
  return (*rs)[column].Value().ToText();
}

// The first parent reference a file holds.
std::string Parent(const std::string& xml) {
  const std::string open = "<ParentEntityID>";
  for (auto at = xml.find(open); at != std::string::npos; at = xml.find(open, at)) {
    at += open.size();
    const auto end = xml.find('<', at);
    if (end > at) return xml.substr(at, end - at);
  }
  return {};
}

class ExchangeTest : public RulesStoreTest {
 protected:
  // A template "Shop\Products" (a root dataset with three fields and a nested one) and a package
  // "Shop\Nightly" whose three tasks use it twice.
  void MakeTemplateAndPackage(bool with_old_clear_string = true) {
    auto page = DataPage::Create();
    page->SetDisplayName("Shop\\Products");
    page->SetDescription(Variant("Products & prices <2026>"));
    page->SetDBName("shop");
    page->Save();
    auto products =
        Dataset(page->RootEntities(), "Products", "products", "<tr class=\"p\">", kTargetCnStr);
    products->SetOnPageOrder(1);
    Field(products, "name", 1, "<td>", "</td>\r\n<td>");
    auto price = Field(products, "price", 2, " <b>%26", "</b>");
    price->SetColumnType("RXMATCH");
    price->SetColumnTypeParameter("[0-9.]+");
    price->SetColumnSize(20);
    Field(products, "note", 3, "<i>é", "</i>")->SetIsOptional(true);
    auto reviews = Dataset(products->ChildrenOnPage(), "Reviews", "reviews", "<li>", kTargetCnStr);
    Field(reviews, "text", 1, "<li>", "</li>");
    auto chosen = MetaFields::Create();
    for (long id : {27L, 11L}) {
      auto f = MetaField::Create();
      f->Load(id);
      chosen->Add(f);
    }
    reviews->SetSelectedMetaFields(chosen);
    for (const EntityPtr& e : {products, reviews}) {
      e->Save();
      for (const auto& a : e->GetAttributes()) a->Save();
    }
    // A dataset stored before connection strings were enciphered.
    if (with_old_clear_string)
      D_Entity().Save(reviews->Id(), page->Id(), "Reviews", "", kTargetCnStr);
    page_id_ = page->Id();

    DJob().Save("J1", Variant(DateTime::FromParts(2026, 1, 2, 3, 4, 5)),
                Variant(DateTime::FromParts(2026, 2, 3, 4, 5, 6)), "Shop\\Nightly", "every night");
    DTask().Save("T1", "J1", "Read", kTextForm, 1, 0, 250, page_id_);
    DTask().Save("T2", "J1", "Read again", "", 2, 1, 0, page_id_);
    DTask().Save("T3", "J1", "Tidy", "[!TSK!][iTSKi]", 3, 0, 0, "");
    DDocSource().Save("S1", "", "", "T1", "/srv/pages/*.html", 0);
    DDocSource().Save("S2", "shop", CCrypto().EncryptText(kQueryCnStr), "T2",
                      "SELECT url FROM links", 1);
  }

  // Makes `file` the rules store of the process (created on first use).
  void UseStore(const std::string& file) {
    SetRulesConnectionOverride("Provider=SQLite;Data Source=" + (home_.Path() / file).string());
  }

  long Rows(const char* table) {
    auto rs = OpenRulesConnection(modConnectionString::GetCnStr())
                  ->Execute(std::string("SELECT COUNT(*) FROM ") + table);
    return rs->GetFields().Item(0L).Value().ToLong();
  }
  // The row counts of every table an import writes.
  std::vector<long> Counts() {
    std::vector<long> out;
    for (const char* table : {"datapages", "entities", "attributes", "entity_custom_columns",
                              "jobs", "tasks", "doc_locations"}) {
      out.push_back(Rows(table));
    }
    return out;
  }

  std::string page_id_;
};

TEST_F(ExchangeTest, ExportImportIntoAFreshStoreAndExportAgainGiveTheSameFile) {
  MakeTemplateAndPackage();
  const exchange::ExportResult first = exchange::ExportPackage("shop\\nightly");
  EXPECT_TRUE(first.warnings.empty());
  const std::string& xml = first.xml;
  // The form: objects flagged, members indexed, values escaped, secrets enciphered.
  EXPECT_EQ(xml.rfind("<GleanwrightExport Object=\"True\">\n\t<FormatVersion>1</FormatVersion>\n"
                      "\t<DataPages Object=\"True\">\n\t\t<DataPage Object=\"True\" Index=\"1\">\n",
                      0),
            0u)
      << xml;
  EXPECT_NE(xml.find("<Task Object=\"True\" Index=\"3\">"), std::string::npos);
  EXPECT_NE(xml.find("<EndTag>%3C/td%3E&#13;\n%3Ctd%3E</EndTag>"), std::string::npos) << xml;
  EXPECT_NE(xml.find("<StartTag> %3Cb%3E%2526</StartTag>"), std::string::npos) << xml;
  EXPECT_EQ(xml.find("rovider"), std::string::npos) << "connection strings are enciphered";
  EXPECT_EQ(xml.find("<DataPage Object=\"True\" Index=\"2\">"), std::string::npos)
      << "a template used twice is written once";

  UseStore("fresh.sqlite");
  const auto imported = exchange::Import(xml, "nightly.xml");
  ASSERT_EQ(imported.size(), 2u);
  EXPECT_EQ(imported[0].kind, "datapage");
  EXPECT_EQ(imported[0].id, page_id_);
  EXPECT_TRUE(imported[0].created);
  EXPECT_EQ(imported[1].name, "Shop\\Nightly");
  EXPECT_EQ(exchange::ExportPackage("J1").xml, xml);

  // The export of the new store is the file, so the new store holds the rows the first one held
  // (what the classes load from such rows is checked in persistence_test and
  // package_persistence_test). Secrets come back deciphered.
  UseStore("fresh.sqlite");
  auto page = DataPage::Create();
  page->Load(page_id_);
  ASSERT_EQ(page->RootEntities().Count(), 1);
  auto products = page->RootEntities().Item(1);
  EXPECT_EQ(products->DBConnStr(), kTargetCnStr);
  EXPECT_EQ(products->ChildrenOnPage().Item(1)->DBConnStr(), kTargetCnStr)
      << "the string stored in clear text before arrives as it was";
  auto job = Job::Create();
  job->Load("J1", true);
  EXPECT_EQ(job->GetTasks().Item(2)->GetDocSources().Item(1)->ConnStr(), kQueryCnStr);
}

TEST_F(ExchangeTest, ImportingAgainUpdatesAndTheStoreFollowsTheFile) {
  MakeTemplateAndPackage();
  std::string xml = exchange::ExportPackage("J1").xml;
  const std::vector<long> before = Counts();
  const auto again = exchange::Import(xml, "nightly.xml");
  EXPECT_FALSE(again[0].created);
  EXPECT_FALSE(again[1].created);
  EXPECT_EQ(Counts(), before) << "nothing is duplicated";
  EXPECT_EQ(exchange::ExportPackage("J1").xml, xml);

  // Edited by hand: the third field and the third task are gone, a table is renamed.
  auto cut = [&](const std::string& open, const std::string& close) {
    const auto from = xml.find(open);
    ASSERT_NE(from, std::string::npos) << open;
    const auto to = xml.find(close, from);
    xml.erase(from, to + close.size() - from);
  };
  cut("\t\t\t\t\t\t<Attrib Object=\"True\" Index=\"3\">", "</Attrib>\n");
  cut("\t\t\t\t<Task Object=\"True\" Index=\"3\">", "</Task>\n");
  xml.replace(xml.find("<TableName>products<"), 20, "<TableName>goods<");
  exchange::Import(xml, "nightly.xml");
  std::vector<long> expected = before;
  expected[2] -= 1;  // attributes
  expected[5] -= 1;  // tasks
  EXPECT_EQ(Counts(), expected);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM entities WHERE table_name = 'goods'"), 1);
  EXPECT_EQ(exchange::ExportPackage("J1").xml, xml);
}

TEST_F(ExchangeTest, AFileThatCannotBeStoredIsRefusedWithItsLineAndNothingIsWritten) {
  MakeTemplateAndPackage();
  const std::string good = exchange::ExportPackage("J1").xml;
  UseStore("fresh.sqlite");
  const std::vector<long> empty = Counts();
  // The line of `text` in `good`.
  const auto line_of = [&](const std::string& text) {
    return std::to_string(1 + std::count(good.begin(), good.begin() + good.find(text), '\n'));
  };
  struct Case {
    const char* what;
    std::string xml;
    ErrorNumber number;
    std::string message_start;
  };
  auto edited = [&](const std::string& from, const std::string& to, std::string x = {}) {
    if (x.empty()) x = good;
    x.replace(x.find(from), from.size(), to);
    return x;
  };
  const Case cases[] = {
      // One of the reader's refusals (its others are checked in object_xml_reader_test).
      {"an unknown element", edited("<TaskName>Read</TaskName>", "<TaskNam>Read</TaskNam>"),
       infraerr::kBadDocument,
       "in.xml:" + line_of("<TaskName>Read</TaskName>") + ": a Task has no property TaskNam"},
      {"two tasks on one step",
       edited("<Step>2</Step>\n\t\t\t\t\t<DisplaySrcType>", "<Step>1</Step>\n<DisplaySrcType>"),
       engineerr::kExchangeRefused,
       "in.xml:" + line_of("<Step>2</Step>\n\t\t\t\t\t<DisplaySrcType>") +
           ": the tasks \"Read\" and \"Read again\" have the same step 1"},
      {"a datapage that is nowhere",
       edited("<DataPageId>" + page_id_ + "</DataPageId>", "<DataPageId>Nowhere</DataPageId>"),
       engineerr::kExchangeRefused,
       "in.xml:" + line_of("<DataPageId>" + page_id_) +
           ": the datapage \"Nowhere\" is neither in this file nor in the rules store"},
      {"an unknown custom column",
       edited("<ColumnName>SOURCE_URI</ColumnName>", "<ColumnName>SOURCE_URL</ColumnName>"),
       engineerr::kExchangeRefused,
       "in.xml:" + line_of("<ColumnName>SOURCE_URI</ColumnName>") +
           ": the custom column 11 is SOURCE_URI in the rules store, not SOURCE_URL"},
      {"an unknown parent",
       edited("<ParentEntityID>" + Parent(good) + "</ParentEntityID>",
              "<ParentEntityID>Prodcuts</ParentEntityID>"),
       engineerr::kExchangeRefused,
       "in.xml:" + line_of("<ParentEntityID>" + Parent(good)) +
           ": the parent dataset \"Prodcuts\" is neither"},
      {"a parent named by two datasets",
       edited("<ParentEntityID>" + Parent(good) + "<", "<ParentEntityID>Products<",
              edited("<EntityName>Reviews<", "<EntityName>products<")),
       engineerr::kExchangeAmbiguous,
       "in.xml:" + line_of("<ParentEntityID>" + Parent(good)) +
           ": several datasets of this datapage are named \"Products\"; give the parent's id"},
      {"a newer format", edited("<FormatVersion>1<", "<FormatVersion>2<"),
       engineerr::kExchangeRefused, "in.xml:2: the file has the format version 2"},
      {"an id given twice", edited("<TaskId>T2</TaskId>", "<TaskId>T1</TaskId>"),
       engineerr::kExchangeRefused, "in.xml:" + line_of("<TaskId>T2</TaskId>") + ": the id T1"},
      // Found only by the store, after the template and the package were written: the
      // transaction takes them back.
      {"a name too long for the store",
       edited("<TaskName>Tidy</TaskName>", "<TaskName>" + std::string(300, 'x') + "</TaskName>"),
       errnum::kDataTruncated, "in.xml:" + line_of("<Task Object=\"True\" Index=\"3\">") + ": "},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const Error e = CaughtError([&] { exchange::Import(c.xml, "in.xml"); });
    EXPECT_EQ(e.Number(), c.number);
    EXPECT_EQ(e.Description().rfind(c.message_start, 0), 0u) << e.Description();
    EXPECT_EQ(Counts(), empty);
  }
  exchange::Import(good, "in.xml");  // the file itself is fine
  EXPECT_NE(Counts(), empty);
}

// Templates that would lose data without failing: refused by an import with the file's line, and
// by the validation before a run when they reach the store some other way.
TEST_F(ExchangeTest, TemplatesThatWouldLoseDataAreRefusedAtImportAndAtValidation) {
  MakeTemplateAndPackage();
  const std::string good = exchange::ExportPackage("J1").xml;
  // The ids of the two datasets, as the file gives them.
  const auto id_before = [&](const std::string& name) {
    const auto at = good.rfind("<Id>", good.find("<EntityName>" + name + "</EntityName>"));
    return good.substr(at + 4, good.find('<', at + 4) - at - 4);
  };
  const std::string products = id_before("Products"), reviews = id_before("Reviews");
  const auto line_of = [&](const std::string& text) {
    return std::to_string(1 + std::count(good.begin(), good.begin() + good.find(text), '\n'));
  };
  auto edited = [&](std::vector<std::pair<std::string, std::string>> edits) {
    std::string x = good;
    for (const auto& [from, to] : edits) {
      const auto at = x.find(from);
      EXPECT_NE(at, std::string::npos) << from;
      if (at != std::string::npos) x.replace(at, from.size(), to);
    }
    return x;
  };
  // Products is the first dataset of the file, so its parent element comes first.
  const std::string no_parent = good.find("<ParentEntityID/>") != std::string::npos
                                    ? "<ParentEntityID/>"
                                    : "<ParentEntityID></ParentEntityID>";
  struct Case {
    const char* what;
    std::vector<std::pair<std::string, std::string>> edits;
    std::string line_of;  // what stands on the line the import names
    std::string message;  // part of the import's refusal
    std::string sql;      // the same fault made in the store, for the validation
    ErrorNumber validation;
  };
  const Case cases[] = {
      {"two fields write one column",
       {{"<ColumnName>note</ColumnName>", "<ColumnName>NAME</ColumnName>"}},
       "<ColumnName>note</ColumnName>",
       "has two fields that write the column NAME",
       "UPDATE attributes SET column_name = 'NAME' WHERE column_name = 'note'",
       exerr::kRepeatedColumn},
      {"a field writes a custom column",
       {{"<ColumnName>text</ColumnName>", "<ColumnName>Source_Uri</ColumnName>"}},
       "<ColumnName>text</ColumnName>",
       "the field Source_Uri writes the column SOURCE_URI, which the dataset's custom column fills",
       "UPDATE attributes SET column_name = 'Source_Uri' WHERE column_name = 'text'",
       exerr::kRepeatedColumn},
      {"its own parent",
       {{"<ParentEntityID>" + products + "</ParentEntityID>",
         "<ParentEntityID>" + reviews + "</ParentEntityID>"}},
       "<ParentEntityID>" + products,
       "is its own parent, or hangs below a loop of parent datasets",
       "UPDATE entities SET parent_entity_id = entity_id WHERE entity_name = 'Reviews'",
       exerr::kParentLoop},
      {"a loop of parents",
       {{no_parent, "<ParentEntityID>" + reviews + "</ParentEntityID>"}},
       no_parent,
       "is its own parent, or hangs below a loop of parent datasets",
       "UPDATE entities SET parent_entity_id = (SELECT entity_id FROM entities WHERE "
       "entity_name = 'Reviews') WHERE entity_name = 'Products'",
       exerr::kParentLoop},
      {"no initialization string",
       {{"<InitString>%3Cli%3E</InitString>", "<InitString></InitString>"}},
       "<InitString>%3Cli%3E</InitString>",
       "the dataset Reviews has no initialization string",
       "UPDATE entities SET init_string = '' WHERE entity_name = 'Reviews'",
       exerr::kNoDatapageOrInitString},
      {"a filter that does not exist",
       {{"<ColumnType>RXMATCH", "<ColumnType>RXMACH"}},
       "<ColumnType>RXMATCH",
       "names the filter \"RXMACH , [0-9.]+\", which does not exist; the filters are RAW, ",
       "UPDATE attributes SET column_type = 'RXMACH , [0-9.]+' WHERE column_name = 'price'",
       exerr::kUnknownFilter},
      {"a line break in a dataset's name",
       {{"<EntityName>Reviews</EntityName>", "<EntityName>Re&#10;views</EntityName>"}},
       "<EntityName>Reviews</EntityName>",
       "EntityName \"Re\\nviews\": it holds a control character",
       "UPDATE entities SET entity_name = 'Re' || char(10) || 'views' WHERE entity_name = "
       "'Reviews'",
       exerr::kNameWithControlCharacter},
      {"a line break in a task's name",
       {{"<TaskName>Tidy</TaskName>", "<TaskName>Ti&#10;dy</TaskName>"}},
       "<TaskName>Tidy</TaskName>",
       "TaskName \"Ti\\ndy\": it holds a control character",
       "",
       0},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    UseStore("case" + std::to_string(++n) + ".sqlite");
    const std::vector<long> empty = Counts();
    const Error e = CaughtError([&] { exchange::Import(edited(c.edits), "in.xml"); });
    EXPECT_EQ(e.Number(), engineerr::kExchangeRefused);
    EXPECT_EQ(e.Description().rfind("in.xml:" + line_of(c.line_of) + ": ", 0), 0u)
        << e.Description();
    EXPECT_NE(e.Description().find(c.message), std::string::npos) << e.Description();
    EXPECT_EQ(Counts(), empty) << "nothing was stored";
    if (c.sql.empty()) continue;
    exchange::Import(good, "in.xml");
    OpenRulesConnection(modConnectionString::GetCnStr())->ExecuteScript(c.sql);
    auto page = DataPage::Create();
    page->Load(page_id_);
    const Error v = CaughtError([&] { page->Validate(); });
    EXPECT_EQ(v.Number(), c.validation) << v.Description();
    EXPECT_EQ(v.Description().find('\n'), std::string::npos) << "names are shown escaped";
  }
  // Imported twice, the good file is still fine.
  exchange::Import(good, "in.xml");
  exchange::Import(good, "in.xml");
}

TEST_F(ExchangeTest, APackageThatIsRunningIsNotReplaced) {
  MakeTemplateAndPackage();
  const std::string xml = exchange::ExportPackage("J1").xml;
  DJob().SaveInstance("J1", DateTime::Now());
  const std::vector<long> before = Counts();
  EXPECT_EQ(CaughtError([&] { exchange::Import(xml, "x.xml"); }).Number(),
            engineerr::kExchangePackageRunning);
  EXPECT_EQ(Counts(), before);
}

TEST_F(ExchangeTest, ExportFindsByIdOrNameAndSaysWhenItCannot) {
  MakeTemplateAndPackage(false);
  EXPECT_EQ(exchange::ExportDataPage(page_id_).xml, exchange::ExportDataPage("SHOP\\products").xml);
  EXPECT_EQ(CaughtError([] { exchange::ExportDataPage("Nothing"); }).Number(),
            engineerr::kExchangeNotFound);
  DJob().Save("J2", NoAction(), NoAction(), "Shop\\Nightly");
  EXPECT_EQ(CaughtError([] { exchange::ExportPackage("Shop\\Nightly"); }).Number(),
            engineerr::kExchangeAmbiguous);
  // A task whose datapage is gone: written, with a warning.
  DTask().Save("T9", "J2", "Lost", "", 1, 0, 0, "gone");
  const auto result = exchange::ExportPackage("J2");
  ASSERT_EQ(result.warnings.size(), 1u);
  EXPECT_NE(result.warnings[0].find("gone"), std::string::npos);
  EXPECT_EQ(result.xml.find("<DataPages"), std::string::npos);
}

TEST_F(ExchangeTest, TheHandWrittenExamplesImportAndImportAgain) {
  const std::string template_file =
      testing::ReadFile(testing::SourceDir() / "examples/exchange/shop-template.xml");
  const std::string package_file =
      testing::ReadFile(testing::SourceDir() / "examples/exchange/shop-package.xml");
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    const auto t = exchange::Import(template_file, "shop-template.xml");
    const auto p = exchange::Import(package_file, "shop-package.xml");
    EXPECT_EQ(t[0].created, round == 0);
    EXPECT_EQ(p[0].created, round == 0);
    EXPECT_EQ(Counts(), (std::vector<long>{1, 1, 2, 3, 1, 1, 1}));
  }
  auto job = Job::Create();
  job->Load(Text(DJob().GetAllJobs(), "job_id"), true);
  EXPECT_EQ(job->JobName(), "Shop\\Nightly");
  auto task = job->GetTasks().Item(1);
  EXPECT_EQ(task->GetDocSources().Item(1)->Source(), "/srv/pages/products");
  EXPECT_EQ(task->GetDocSources().Item(1)->SourceType(), SrcType::path);
  auto page = task->GetDataPage();
  ASSERT_TRUE(page);
  EXPECT_EQ(page->DisplayName(), "Shop\\Products");
  auto products = page->RootEntities().Item(1);
  EXPECT_EQ(products->InitString(), "<tr class=\"product\">");
  EXPECT_EQ(products->DBConnStr(), kTargetCnStr);
  EXPECT_EQ(Text(D_Entity().Selectx(products->Id()), "DBConnStr").find("rovider"),
            std::string::npos)
      << "stored enciphered";
  EXPECT_EQ(products->GetAttributes().Item(2)->StartTag(), "<td class=\"price\">");
  EXPECT_EQ(products->SelectedMetaFields()->Count(), 3) << "the default columns";
}

TEST_F(ExchangeTest, TheReadmeShowsTheExamplesAsTheyAre) {
  const std::string readme = testing::ReadFile(testing::SourceDir() / "README.md");
  for (const char* example : {"shop-template.xml", "shop-package.xml"}) {
    SCOPED_TRACE(example);
    const std::string text =
        testing::ReadFile(testing::SourceDir() / "examples/exchange" / example);
    EXPECT_NE(readme.find(text), std::string::npos);
  }
}

}  // namespace
}  // namespace gw
