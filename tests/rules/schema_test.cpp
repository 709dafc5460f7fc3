#include <gtest/gtest.h>

#include "rules/c_disconn_rs.h"
#include "rules/embedded_scripts.h"
#include "rules/failures.h"
#include "rules/rules_schema.h"
#include "rules_fixture.h"

namespace gw {
namespace {

using testing::RulesStoreTest;

// Every table with its row count and every schema object: what "changes nothing" compares.
std::string Snapshot(db::Connection& cn) {
  std::string out;
  auto objects = cn.Execute("SELECT type, name, sql FROM sqlite_master ORDER BY type, name");
  for (; !objects->IsEOF(); objects->MoveNext()) {
    out += (*objects)["type"].Value().ToText() + " " + (*objects)["name"].Value().ToText() + "\n" +
           (*objects)["sql"].Value().ToText() + "\n";
    if ((*objects)["type"].Value().ToText() == "table") {
      auto n = cn.Execute("SELECT COUNT(*) FROM \"" + (*objects)["name"].Value().ToText() + "\"");
      out += "rows " + (*n)[0L].Value().ToText() + "\n";
    }
  }
  return out;
}

TEST_F(RulesStoreTest, FirstUseCreatesTheStoreInWriteAheadMode) {
  EXPECT_FALSE(std::filesystem::exists(path_));
  auto cn = Open();
  EXPECT_TRUE(std::filesystem::exists(path_));
  EXPECT_TRUE(RulesSchema::Exists(*cn));
  EXPECT_EQ((*cn->Execute("PRAGMA journal_mode"))[0L].Value().ToString(), "wal");
  EXPECT_EQ(Count("SELECT COUNT(*) FROM providers WHERE provider_id = 'Default'"), 1);
  EXPECT_EQ(RulesSchema::StoredVersion(*cn), RulesSchema::kVersion);
  EXPECT_EQ(Count("PRAGMA user_version"), RulesSchema::kVersion);
}

TEST_F(RulesStoreTest, LoadingSchemaDataAndUpgradeAgainChangesNothing) {
  auto cn = Open();
  const std::string before = Snapshot(*cn);
  RulesSchema::Load(*cn);
  RulesSchema::LoadBaseData(*cn);
  EXPECT_TRUE(RulesSchema::Upgrade(*cn).empty());
  EXPECT_FALSE(RulesSchema::Ensure(*cn));
  EXPECT_EQ(Snapshot(*cn), before);
}

TEST_F(RulesStoreTest, ReferenceRowsAUserChangedKeepTheChange) {
  Exec("UPDATE providers SET max_name_length = 99 WHERE provider_id = 'SQLite'");
  RulesSchema::LoadBaseData(*Open());
  EXPECT_EQ(Count("SELECT max_name_length FROM providers WHERE provider_id = 'SQLite'"), 99);
}

TEST_F(RulesStoreTest, CustomColumns24And27AreExactlyAsGuaranteed) {
  auto rs = Open()->Execute(
      "SELECT * FROM Custom_Columns WHERE custom_col_id IN (24, 27) ORDER BY custom_col_id");
  ASSERT_EQ(rs->RecordCount(), 2);
  struct Row {
    long id;
    const char* member;
    const char* display;
    const char* description;
    const char* column;
  } rows[] = {
      {24, "MetaEntity.OnPageOrder", "On Page Order",
       "The order of the row on the page, relative to other rows from the same dataset.",
       "ORDER_ON_PAGE"},
      {27, "MetaEntity.ParentOnPageOrder", "Parent On Page Order",
       "Functions at the foreign key in combination with document id for nested datasets.",
       "PARENT_ORDER_ON_PAGE"},
  };
  for (const Row& r : rows) {
    SCOPED_TRACE(r.id);
    auto& f = rs->GetFields();
    EXPECT_EQ(f["custom_col_id"].Value().ToLong(), r.id);
    EXPECT_EQ(f["group_id"].Value().ToLong(), 4);
    EXPECT_EQ(f["class_member_name"].Value().ToString(), r.member);
    EXPECT_EQ(f["display_name"].Value().ToString(), r.display);
    EXPECT_EQ(f["description"].Value().ToString(), r.description);
    EXPECT_EQ(f["datatype_id"].Value().ToString(), "Text");
    EXPECT_EQ(f["column_length"].Value().ToLong(), 10);
    EXPECT_EQ(f["column_name"].Value().ToString(), r.column);
    EXPECT_EQ(f["default_value"].Value().ToString(), "N/A");
    EXPECT_EQ(f["appearance_order"].Value().ToLong(), 1);
    EXPECT_EQ(f["default_selection"].Value().ToLong(), 1);
    rs->MoveNext();
  }
}

TEST_F(RulesStoreTest, UpgradePutsBackMissingCustomColumnsOnce) {
  Exec("DELETE FROM Custom_Columns WHERE custom_col_id IN (24, 27)");
  auto cn = Open();
  EXPECT_EQ(RulesSchema::Upgrade(*cn), std::vector<std::string>{"custom_columns_24_27"});
  EXPECT_EQ(Count("SELECT COUNT(*) FROM Custom_Columns WHERE custom_col_id IN (24, 27)"), 2);
  EXPECT_TRUE(RulesSchema::Upgrade(*cn).empty());
}

TEST_F(RulesStoreTest, UpgradeWidensANarrowColumnTypeAndKeepsRowsCascadesAndUnknownColumns) {
  // A store whose fields table was made with a narrow column type, and given a column by hand
  // (or by another program) that this one does not know.
  Exec("INSERT INTO entities (entity_id, datapage_id) VALUES ('e1', 'p1')");
  Exec("INSERT INTO attributes (attribute_id, entity_id, column_type) VALUES ('a1', 'e1', 'RAW')");
  Exec("INSERT INTO ui_attributes (attribute_id) VALUES ('a1')");
  {
    auto cn = Open();
    cn->ExecuteScript(
        "PRAGMA legacy_alter_table = ON;"
        "DROP TRIGGER trg_attributes_delete; ALTER TABLE attributes RENAME TO old_attributes;"
        "CREATE TABLE attributes (attribute_id VARCHAR(50) NOT NULL COLLATE NOCASE PRIMARY KEY, "
        "entity_id VARCHAR(50), column_name VARCHAR(255), start_tag VARCHAR(4000), end_tag "
        "VARCHAR(4000), step SMALLINT, is_pk BIT, column_type VARCHAR(255), column_size INT, "
        "is_optional BIT, reviewer_notes TEXT);"
        "INSERT INTO attributes SELECT *, 'checked by Ada' FROM old_attributes;"
        "DROP TABLE old_attributes;"
        "CREATE TRIGGER trg_attributes_delete AFTER DELETE ON attributes BEGIN DELETE FROM "
        "ui_attributes WHERE attribute_id = old.attribute_id; END;"
        "PRAGMA legacy_alter_table = OFF;");
  }
  auto cn = Open();
  EXPECT_EQ(RulesSchema::Upgrade(*cn), std::vector<std::string>{"widen_attributes_column_type"});
  auto rs = db::Recordset::Create();
  rs->Open("SELECT * FROM attributes", cn);
  EXPECT_EQ(rs->GetFields()["column_type"].DefinedSize(), 3000);
  EXPECT_EQ(rs->RecordCount(), 1);
  EXPECT_EQ(rs->GetFields()["reviewer_notes"].Value().ToText(), "checked by Ada");
  EXPECT_EQ(rs->GetFields()["column_type"].Value().ToText(), "RAW");
  EXPECT_EQ(Count("SELECT COUNT(*) FROM ui_attributes"), 1) << "the rebuild kept design rows";
  EXPECT_TRUE(RulesSchema::Upgrade(*cn).empty());
  // Both cascades still work on the rebuilt table.
  Exec("DELETE FROM entities WHERE entity_id = 'e1'");
  EXPECT_EQ(Count("SELECT COUNT(*) FROM attributes"), 0);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM ui_attributes"), 0);
}

// Stores as earlier programs left them: each is brought up to date when first opened, once.
TEST_F(RulesStoreTest, AnOlderStoreIsUpgradedWhenFirstOpenedAndKeepsItsRows) {
  struct Case {
    const char* as_left;
    std::string script;
    const char* step;
    std::string upgraded;  // counts 1 once the step has run
  };
  const Case cases[] = {
      {"no version, no row counts in the run history",
       "ALTER TABLE task_instance_docs DROP COLUMN rows_written;"
       "ALTER TABLE task_instance_docs DROP COLUMN rows_refused;"
       "ALTER TABLE task_instance_docs DROP COLUMN refusal;"
       "PRAGMA user_version = 0;",
       "run_history_row_counts",
       "SELECT COUNT(*) = 3 FROM pragma_table_info('task_instance_docs') WHERE name IN "
       "('rows_written', 'rows_refused', 'refusal')"},
      {"version 1, before crawls: no crawl depth and neither address index",
       "DROP INDEX ix_task_instance_docs_uri;"
       "DROP INDEX ix_task_instance_docs_unread;"
       "ALTER TABLE task_instance_docs DROP COLUMN crawl_depth;"
       "PRAGMA user_version = 1;",
       "crawl_queue",
       "SELECT (SELECT COUNT(*) FROM pragma_table_info('task_instance_docs') WHERE name = "
       "'crawl_depth') + (SELECT COUNT(*) FROM sqlite_master WHERE type = 'index' AND name IN "
       "('ix_task_instance_docs_uri', 'ix_task_instance_docs_unread')) = 3"},
      {"version 2: an index of (task, package, start time) beside the address index",
       "CREATE INDEX ix_task_instance_docs_run ON task_instance_docs (task_id, job_id, "
       "job_start_time);"
       "PRAGMA user_version = 2;",
       "task_docs_run_index_covered",
       "SELECT COUNT(*) = 0 FROM sqlite_master WHERE name = 'ix_task_instance_docs_run'"},
  };
  int n = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.as_left);
    path_ = home_.Path() / ("older" + std::to_string(++n) + ".sqlite");
    cn_str_ = "Provider=SQLite;Data Source=" + path_.string();
    SetRulesConnectionOverride(cn_str_);
    Open()->ExecuteScript(c.script);
    Exec("INSERT INTO jobs (job_id, job_name) VALUES ('j1', 'Kept')");
    auto cn = db::Connection::Create();
    cn->Open(cn_str_);
    bool created = true;
    EXPECT_EQ(RulesSchema::BringUpToDate(*cn, created), std::vector<std::string>{c.step});
    EXPECT_FALSE(created);
    EXPECT_EQ(RulesSchema::StoredVersion(*cn), RulesSchema::kVersion);
    EXPECT_EQ(Count(c.upgraded), 1);
    EXPECT_EQ(Count("SELECT COUNT(*) FROM jobs WHERE job_name = 'Kept'"), 1);
    EXPECT_TRUE(RulesSchema::BringUpToDate(*cn, created).empty()) << "a second time does nothing";
  }
  // Without the covered index, a task's rows in a run are still found through an index, not by
  // reading the table.
  auto plan = Open()->Execute(
      "EXPLAIN QUERY PLAN SELECT COUNT(*) FROM task_instance_docs WHERE task_id = 't' AND "
      "job_id = 'j' AND job_start_time = 's'");
  std::string detail;
  for (; !plan->IsEOF(); plan->MoveNext()) detail += (*plan)["detail"].Value().ToText() + "\n";
  EXPECT_NE(detail.find("INDEX ix_task_instance_docs_uri (task_id=? AND job_id=? AND "
                        "job_start_time=?)"),
            std::string::npos)
      << detail;
}

TEST_F(RulesStoreTest, ANewerStoreIsRefusedAndLeftAsItIs) {
  {
    auto cn = Open();
    cn->ExecuteScript(
        "ALTER TABLE attributes ADD COLUMN later_feature TEXT;"
        "INSERT INTO attributes (attribute_id, later_feature) VALUES ('a1', 'x');"
        "PRAGMA user_version = " +
        std::to_string(RulesSchema::kVersion + 1));
  }
  auto cn = db::Connection::Create();
  cn->Open(cn_str_);
  const std::string before = Snapshot(*cn);
  bool created = false;
  const Error e = testing::CaughtError([&] { RulesSchema::BringUpToDate(*cn, created); });
  EXPECT_EQ(e.Number(), ruleserr::kNewerSchema);
  EXPECT_NE(e.Description().find(path_.string()), std::string::npos) << e.Description();
  EXPECT_NE(e.Description().find("version " + std::to_string(RulesSchema::kVersion + 1)),
            std::string::npos)
      << e.Description();
  EXPECT_NE(e.Description().find("version " + std::to_string(RulesSchema::kVersion)),
            std::string::npos)
      << e.Description();
  EXPECT_EQ(Snapshot(*cn), before);
  EXPECT_EQ(RulesSchema::StoredVersion(*cn), RulesSchema::kVersion + 1);
}

TEST_F(RulesStoreTest, EverySuccessCodeProcedureGivesExactlyOneRowFrom0To100) {
  const CDisconnRS q(cn_str_);
  for (const char* proc : {"usp_Meta_GetJobSuccessCode", "usp_Meta_GetTaskSuccessCode",
                           "usp_Meta_GetDocSuccessCode", "usp_Meta_GetEntitySuccessCode"}) {
    SCOPED_TRACE(proc);
    std::string last;
    for (int tenth = 0; tenth <= 1000; ++tenth) {
      const double d = tenth / 10.0;
      auto rs = q.RunQuery(std::string("Exec ") + proc + " ?", true, {Variant(d)});
      ASSERT_EQ(rs->RecordCount(), 1) << d;
      last = (*rs)["display_name"].Value().ToString();
      if (d == 0) {
        EXPECT_EQ(last, "Failure");
      }
    }
    EXPECT_EQ(last, "Success");
    // The determinant written as text, as the library's callers write it.
    EXPECT_EQ(q.RunQuery(std::string("Exec ") + proc + " 99.99", true)->RecordCount(), 1);
    EXPECT_EQ(q.RunQuery(std::string("Exec ") + proc + " '100'", true)->RecordCount(), 1);
  }
}

TEST_F(RulesStoreTest, DeletingAPackageTakesItsTasksSourcesAndHistory) {
  Exec("INSERT INTO jobs (job_id, job_name) VALUES ('j1', 'One'), ('j2', 'Two')");
  Exec("INSERT INTO tasks (task_id, job_id, step) VALUES ('t1', 'j1', 1), ('t2', 'j2', 1)");
  Exec("INSERT INTO doc_locations (doc_location_id, task_id) VALUES ('s1', 't1'), ('s2', 't2')");
  for (const char* j : {"j1", "j2"}) {
    const std::string t = j == std::string("j1") ? "t1" : "t2";
    Exec("INSERT INTO job_instances VALUES (?, '2026-01-01 00:00:00', NULL, NULL)", {Variant(j)});
    Exec("INSERT INTO task_instances VALUES (?, ?, '2026-01-01 00:00:00', NULL, NULL, NULL)",
         {Variant(t), Variant(j)});
    Exec(
        "INSERT INTO task_instance_docs (doc_id, task_id, job_id, job_start_time) VALUES (?, ?, "
        "?, '2026-01-01 00:00:00')",
        {Variant("d" + t), Variant(t), Variant(j)});
    Exec(
        "INSERT INTO task_inst_doc_results_by_ent (doc_id, entity_id, success_code) VALUES (?, "
        "'e', 5)",
        {Variant("d" + t)});
  }
  Exec("DELETE FROM jobs WHERE job_id = 'j1'");
  for (const char* table : {"tasks", "doc_locations", "job_instances", "task_instances",
                            "task_instance_docs", "task_inst_doc_results_by_ent"}) {
    SCOPED_TRACE(table);
    EXPECT_EQ(Count(std::string("SELECT COUNT(*) FROM ") + table), 1) << "only j2's row is left";
  }
  EXPECT_EQ(Count("SELECT COUNT(*) FROM tasks WHERE job_id = 'j2'"), 1);

  Exec("DELETE FROM tasks WHERE task_id = 't2'");
  EXPECT_EQ(Count("SELECT COUNT(*) FROM doc_locations"), 0);
}

TEST_F(RulesStoreTest, DeletingADatasetTakesItsFieldsAndColumnChoices) {
  Exec("INSERT INTO entities (entity_id, datapage_id) VALUES ('e1', 'p'), ('e2', 'p')");
  Exec("INSERT INTO attributes (attribute_id, entity_id) VALUES ('a1', 'e1'), ('a2', 'e2')");
  Exec(
      "INSERT INTO entity_custom_columns (entity_id, custom_col_id) VALUES ('e1', 24), ('e2', 24)");
  Exec("DELETE FROM entities WHERE entity_id = 'E1'");  // ids compare without case
  EXPECT_EQ(Count("SELECT COUNT(*) FROM attributes"), 1);
  EXPECT_EQ(Count("SELECT COUNT(*) FROM entity_custom_columns"), 1);
}

TEST_F(RulesStoreTest, DocumentRowsNeedTheirTaskRun) {
  EXPECT_EQ(testing::FailureNumber([&] {
              Exec(
                  "INSERT INTO task_instance_docs (doc_id, task_id, job_id, job_start_time) "
                  "VALUES ('d', 't', 'j', '2026-01-01 00:00:00')");
            }),
            db::dberr::kIntegrity);
}

// The SQLite scripts are run by every test above; a dialect without scripts has none.
TEST(EmbeddedRulesScript, ADialectWithoutScriptsHasNone) {
  EXPECT_TRUE(EmbeddedRulesScript("nodialect", "schema").empty());
}

}  // namespace
}  // namespace gw
