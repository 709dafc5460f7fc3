// gleanwright extract, run as the program a user runs, on a datapage saved in a real rules store.
#include <gtest/gtest.h>

#include "cli.h"
#include "extraction/attrib.h"
#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "platform/db/connection.h"
#include "platform/db/recordset.h"
#include "rules/connection_string.h"
#include "support/test_support.h"

namespace gw {
namespace {

using testing::RunCli;
using Result = testing::CliResult;

class ExtractCommand : public ::testing::Test {
 protected:
  // "Orders" (two fields) with "Lines" (one field), saved in the rules store that the program
  // finds in its home folder, writing into a SQLite file.
  ExtractCommand() {
    SetRulesConnectionOverride("Provider=SQLite;Data Source=" +
                               (home_.Path() / "ZentrovoDB.sqlite").string());
    auto page = DataPage::Create();
    page->SetDisplayName("Shop\\Orders");
    page->Save();
    page_id_ = page->Id();
    auto orders = MakeDataset(*page, "Orders", "<order>", "orders", "");
    AddField(*orders, "ref", "<ref>", "</ref>");
    AddField(*orders, "note", "<note>", "</note>");
    auto lines = MakeDataset(*page, "Lines", "<line>", "order_lines", orders->Id());
    AddField(*lines, "item", "<item>", "</item>");
  }
  ~ExtractCommand() override { SetRulesConnectionOverride({}); }

  EntityPtr MakeDataset(DataPage& page, const std::string& name, const std::string& init,
                        const std::string& table, const std::string& parent_id) {
    auto e = Entity::Create();
    e->SetDatapageId(page.Id());
    e->SetParentEntityID(parent_id);
    e->SetEntityName(name);
    e->SetInitString(init);
    e->SetTableName(table);
    e->SetDBConnStr(target_);
    e->SetOnPageOrder(1);
    e->Save();
    return e;
  }
  void AddField(Entity& e, const std::string& column, const std::string& start,
                const std::string& end) {
    auto a = Attrib::Create();
    a->SetEntityId(e.Id());
    a->SetColumnName(column);
    a->SetStartTag(start);
    a->SetEndTag(end);
    a->SetColumnSize(100);
    a->SetStep(static_cast<std::int16_t>(++steps_));
    a->Save();
  }
  std::vector<std::string> Column(const std::string& sql) {
    auto cn = db::Connection::Create();
    cn->Open(target_);
    std::vector<std::string> out;
    for (auto rs = cn->Execute(sql); !rs->IsEOF(); rs->MoveNext()) {
      out.push_back(rs->GetFields().Item(0L).Value().ToText());
    }
    return out;
  }

  testing::TempDir home_;
  std::string target_ = "Provider=SQLite;Data Source=" + (home_.Path() / "rows.db").string();
  std::string page_id_;
  int steps_ = 0;
};

TEST_F(ExtractCommand, WritesTheRowsOfEveryFileAndSaysHowManyPerDataset) {
  const auto one = home_.Path() / "one.html";
  const auto two = home_.Path() / "two.html";
  testing::WriteFile(one, "<order><ref>A1</ref><line><item>Nut</item><line><item>Bolt</item>");
  testing::WriteFile(two, "<order><ref>B2</ref><order><ref>C3</ref><line><item>Gear</item>");
  const Result r = RunCli(home_.Path(), "extract --datapage 'shop\\orders' '" + one.string() +
                                            "' '" + two.string() + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(r.output, one.string() + ": Orders 1 row, Lines 2 rows\n" + two.string() +
                          ": Orders 2 rows, Lines 1 row\n"
                          "2 files: 2 done, 0 failed; 6 rows written, 0 refused\n");
  EXPECT_EQ(Column("SELECT ref FROM orders"), (std::vector<std::string>{"A1", "B2", "C3"}));
  EXPECT_EQ(Column("SELECT item FROM order_lines"),
            (std::vector<std::string>{"Nut", "Bolt", "Gear"}));
  // The default metadata columns came with the tables: the row's order on its page.
  EXPECT_EQ(Column("SELECT ORDER_ON_PAGE FROM orders"), (std::vector<std::string>{"1", "1", "2"}));
  // By id as well.
  EXPECT_EQ(
      RunCli(home_.Path(), "extract --datapage " + page_id_ + " '" + one.string() + "'").status, 0);
}

// For more files than a command line holds: a list of paths, from a file or standard input.
TEST_F(ExtractCommand, FilesCanBeNamedInAListAsWellAsOnTheCommandLine) {
  std::vector<std::string> files;
  for (const char* ref : {"A1", "B2", "C3"}) {
    files.push_back((home_.Path() / (std::string(ref) + ".html")).string());
    testing::WriteFile(files.back(), std::string("<order><ref>") + ref + "</ref>");
  }
  const auto list = home_.Path() / "list.txt";
  testing::WriteFile(list, files[1] + "\r\n\n" + files[2] + "\n");
  const std::string page = "extract --datapage 'Shop\\Orders' ";
  Result r = RunCli(home_.Path(), page + "'" + files[0] + "' --files-from '" + list.string() + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find(files[0] + ": Orders 1 row"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("3 files: 3 done, 0 failed; 3 rows written"), std::string::npos);
  r = RunCli(home_.Path(), page + "--files-from - < '" + list.string() + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_NE(r.output.find("2 files: 2 done"), std::string::npos) << r.output;
  EXPECT_EQ(Column("SELECT ref FROM orders"),
            (std::vector<std::string>{"A1", "B2", "C3", "B2", "C3"}));
  // No file at all, or a list that is not there: refused before anything is read.
  r = RunCli(home_.Path(), page);
  EXPECT_NE(r.status, 0);
  EXPECT_NE(r.output.find("files or --files-from"), std::string::npos) << r.output;
  EXPECT_NE(
      RunCli(home_.Path(), page + "--files-from '" + (home_.Path() / "none").string() + "'").status,
      0);
}

TEST_F(ExtractCommand, ReadsTheTextAsARunDoesAndLeavesTheFileAlone) {
  // windows-1252, declared by the page; a field broken over lines; curly quotes.
  const std::string bytes =
      "<html><head><meta charset=\"windows-1252\"></head><body>\r\n"
      "<order><ref>Caf\xE9\r\nA1</ref><note>\x93quoted\x94</note>\n</body></html>";
  const auto file = home_.Path() / "latin.html";
  testing::WriteFile(file, bytes);
  const Result r =
      RunCli(home_.Path(), "extract --datapage 'Shop\\Orders' '" + file.string() + "'");
  ASSERT_EQ(r.status, 0) << r.output;
  EXPECT_EQ(Column("SELECT ref FROM orders"), (std::vector<std::string>{"CaféA1"}));
  EXPECT_EQ(Column("SELECT note FROM orders"), (std::vector<std::string>{"\"quoted\""}));
  EXPECT_EQ(testing::ReadFile(file), bytes);
}

TEST_F(ExtractCommand, AFileThatCannotBeReadFailsButNotTheOthers) {
  const auto good = home_.Path() / "good.html";
  testing::WriteFile(good, "<order><ref>A1</ref>");
  const Result r = RunCli(home_.Path(), "extract --datapage 'Shop\\Orders' '" +
                                            (home_.Path() / "missing.html").string() + "' '" +
                                            home_.Path().string() + "' '" + good.string() + "'");
  EXPECT_EQ(r.status, 3) << "finished, with failed files";
  EXPECT_NE(r.output.find("missing.html: error 53"), std::string::npos) << r.output;
  EXPECT_NE(r.output.find("Cannot read " + home_.Path().string() + ": it is a folder."),
            std::string::npos)
      << r.output;
  EXPECT_NE(r.output.find(good.string() + ": Orders 1 row, Lines 0 rows"), std::string::npos);
  EXPECT_NE(r.output.find("3 files: 1 done, 2 failed; 1 row written, 0 refused\n"),
            std::string::npos)
      << r.output;
}

TEST_F(ExtractCommand, RowsTheTargetRefusesAreCountedWithTheTargetsReason) {
  {
    // A target that takes no order without a note.
    auto cn = db::Connection::Create();
    cn->Open(target_);
    cn->ExecuteScript(
        "CREATE TABLE orders (ref VARCHAR(100), note VARCHAR(100) CHECK (note <> ''))");
  }
  const auto file = home_.Path() / "orders.html";
  testing::WriteFile(file,
                     "<order><ref>A1</ref><note>n</note><order><ref>B2</ref>"
                     "<line><item>Lost with its order</item>");
  const Result r =
      RunCli(home_.Path(), "extract --datapage 'Shop\\Orders' '" + file.string() + "'");
  EXPECT_EQ(r.status, 3) << r.output;
  EXPECT_EQ(r.output, file.string() +
                          ": Orders 1 row, 1 refused (CHECK constraint failed: note <> ''), "
                          "Lines 0 rows\n"
                          "1 file: 1 done, 0 failed; 1 row written, 1 refused\n");
  EXPECT_EQ(Column("SELECT ref FROM orders"), (std::vector<std::string>{"A1"}));
}

TEST_F(ExtractCommand, AnUnknownDatapageIsNamed) {
  const Result r = RunCli(home_.Path(), "extract --datapage Nothing x.html");
  EXPECT_EQ(r.status, 1);
  EXPECT_NE(r.output.find("There is no datapage with the id or name \"Nothing\"."),
            std::string::npos)
      << r.output;
}

}  // namespace
}  // namespace gw
