// Datasets and datapages meet the target store: creating, emptying and checking target tables.
#include <set>

#include "extraction/data_page.h"
#include "extraction/entity.h"
#include "extraction/failures.h"
#include "extraction/internal.h"
#include "extraction/template_checks.h"
#include "filters/column_filter.h"
#include "platform/db/connection.h"
#include "platform/db/connection_string.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"
#include "targets/database.h"

namespace gw {

namespace {

constexpr std::string_view kCreateTableLogName =
    "Entity.CreateTable(UseTmpTbls,OverrideConnStr,OverrideDBName,UniqueTblPrefix)";

// A parent counts when it has an id: only a real, stored or generated, dataset has one.
bool HasRealId(std::string_view id) {
  return id.find_first_not_of("0-{} ") != std::string_view::npos;
}

// The texts of the last checks of `Entity.Validate`, which share their advice.
constexpr std::string_view kConnectionAdvice =
    "Ensure that the connection string is set properly and that the username and password (if "
    "any) are included in the connection string.  ";
constexpr std::string_view kFileAndKeywordAdvice =
    "If you are connecting to Excel or Access, make sure that the file is not opened or otherwise "
    "locked by another application.  Double check that none of your field or table names are "
    "reserved keywords such as DATE or TIME for the database that you are using.  ";
constexpr std::string_view kProviderAdvice =
    "Check file or folder permissions when using Excel or Access.  You should not use the ODBC "
    "Provider for connecting to SQL, Access, Excel, or any other database for which there is an "
    "equivalent OLEDB Provider.  ";
constexpr std::string_view kManualCreationAdvice =
    "If the database that you are connecting to is not SQL, Access, or Excel, the tables and "
    "database will not be created automatically and you will need to do it manuall.  ";
constexpr std::string_view kLastResortAdvice =
    "If all else fails, delete or rename the existing database or file and try again.  ";

std::string ConnectAdvice(const std::string& description) {
  return std::string(kConnectionAdvice) + std::string(kFileAndKeywordAdvice) +
         std::string(kProviderAdvice) + std::string(kManualCreationAdvice) +
         std::string(kLastResortAdvice) + "Original Error: " + description;
}

}  // namespace

// ---- Entity ----------------------------------------------------------------------------------

TableDescription Entity::DescribeTable() {
  TableDescription d;
  d.table_name = table_name_;
  for (const AttribPtr& a : GetAttributes()) d.fields.push_back({a->ColumnName(), a->ColumnSize()});
  const auto custom = CustomColumns();
  for (db::Field& f : custom->GetFields()) d.custom_columns.push_back({f.Name(), f.DefinedSize()});
  d.pk_column = pk_column_;
  d.is_pk_surrogate = is_pk_surrogate_;
  // The parent is probed without unwinding: one that cannot be loaded is no parent.
  EntityPtr parent;
  try {
    parent = ParentEntity();
    if (parent) parent->SetEntityName(parent->EntityName());
  } catch (const Error&) {
    parent.reset();
  }
  if (parent && HasRealId(parent->Id())) {
    ParentKey key;
    key.table_name = parent->TableName();
    key.pk_column = parent->PKColumn();
    key.is_pk_surrogate = parent->IsPKSurrogate();
    if (!key.is_pk_surrogate && !key.pk_column.empty()) {
      const AttribPtr pk = parent->PKAttribute();
      if (!pk) ThrowObjectNotSet("Entity.CreateTable");
      key.pk_size = pk->ColumnSize();
    }
    d.parent = std::move(key);
  }
  return d;
}

bool Entity::CreateTable(bool UseTmpTbls, std::string_view OverrideConnStr,
                         std::string_view OverrideDBName, std::string_view UniqueTblPrefix) {
  try {
    std::string cn_str(!OverrideConnStr.empty() ? OverrideConnStr : db_conn_str_);
    if (cn_str.empty()) {
      throw Error(targeterr::kNoConnectionString, "Entity.CreateTable",
                  "Connection string not specified, or invalid connection string");
    }
    // The program's own tables are no target: columns would be added to them.
    if (extraction_internal::IsRulesStore(cn_str)) {
      throw Error(exerr::kTargetIsRulesStore, "Entity.CreateTable",
                  "The target of dataset " + text::EscapeControlCharacters(entity_name_) +
                      " is the rules database itself; give the dataset a database of its own.");
    }
    const std::string db_name(!OverrideDBName.empty() ? OverrideDBName
                                                      : std::string_view(GetDataPage()->DBName()));
    cn_str = Database::Create(cn_str, db_name);
    // A template remembers its database.
    if (OverrideConnStr.empty() && OverrideDBName.empty()) SetDBConnStr(cn_str);

    auto tbl = std::make_shared<Tbl>();
    // The parent's table always exists before its child's.
    const TableDescription mine = DescribeTable();
    if (mine.parent) {
      const EntityPtr parent = ParentEntity();
      tbl->Create(cn_str, parent->DescribeTable(), UseTmpTbls, UniqueTblPrefix);
      // The parent points at the database its table was just made in.
      parent->SetDBConnStr(cn_str);
    }
    tbl->Create(cn_str, mine, UseTmpTbls, UniqueTblPrefix);
    for (const EntityPtr& child : AllChildren()) {
      child->CreateTable(UseTmpTbls, cn_str, db_name, UniqueTblPrefix);
      child->SetDBConnStr(db_conn_str_);
    }
    // A temporary table lasts as long as the `Tbl` that made it.
    if (UseTmpTbls) temporary_tables_ = std::move(tbl);
    return true;
  } catch (Error& e) {
    const auto page = DataPageIfSet();
    e.SetDescription("Error creating table for " + (page ? page->DisplayName() : std::string()) +
                     "." + entity_name_ + ":  \n\t" + e.Description());
    RethrowWithCallStack(kCreateTableLogName, Args(UseTmpTbls, AsConnectionString(OverrideConnStr),
                                                   OverrideDBName, UniqueTblPrefix));
  } catch (...) {
    RethrowWithCallStack(kCreateTableLogName, Args(UseTmpTbls, AsConnectionString(OverrideConnStr),
                                                   OverrideDBName, UniqueTblPrefix));
  }
}

void Entity::DeleteExistingTableData() {
  ReportAs("Entity.DeleteExistingTableData()",
           [&] { Tbl().DeleteAllRows(db_conn_str_, DescribeTable()); });
}

void Entity::Validate() {
  ReportAs("Entity.Validate()", [&] {
    const auto fail = [](ErrorNumber number, std::string text) {
      throw Error(number, "Entity.Validate", std::move(text));
    };
    const std::string& en = entity_name_;
    if (datapage_id_.empty())
      fail(exerr::kNoDatapageOrInitString, "No datapage associated with " + en + ".");
    const std::string dp = GetDataPage()->DisplayName();
    const std::string where = " for dataset " + en + " in datapage " + dp + ".";
    if (InitString().empty()) {
      fail(exerr::kNoDatapageOrInitString, "No intialization string was specified" + where);
    }
    if (GetAttributes().Count() < 1) {
      fail(exerr::kNoFields, "There are no fields specified" + where);
    }
    if (db_conn_str_.empty()) {
      fail(exerr::kNoDatasetConnectionString, "There is no connection string specified" + where);
    }
    if (table_name_.empty()) {
      fail(exerr::kNoTableNameOrTable, "There is no table name specified" + where);
    }
    ValidateTemplate();
    try {
      CreateTable(false, {}, GetDataPage()->DBName(), {});
    } catch (const Error& e) {
      // A store the program cannot make tables in may still take rows.
      if (e.Number() != targeterr::kTableNotSupported) {
        fail(exerr::kNoTableNameOrTable,
             "Could not create the table " + table_name_ + where + "  " +
                 std::string(kConnectionAdvice) + std::string(kFileAndKeywordAdvice) +
                 std::string(kProviderAdvice) + std::string(kLastResortAdvice) +
                 "Original Error: " + e.Description());
      }
    }
    auto cn = db::Connection::Create();
    try {
      cn->Open(db_conn_str_);
    } catch (const Error& e) {
      fail(exerr::kCannotConnect, "Could not connect using the following connection string: " +
                                      db::MaskPasswords(db_conn_str_) + where + "  " +
                                      ConnectAdvice(e.Description()));
    }
    try {
      cn->Execute("SELECT * FROM " + cn->GetDriver().QuoteIdentifier(table_name_));
    } catch (const Error& e) {
      fail(exerr::kCannotOpenTable,
           "Could not connect to the table " + table_name_ +
               "using the following connection string: " + db::MaskPasswords(db_conn_str_) + where +
               "  " + ConnectAdvice(e.Description()));
    }
    cn->Close();
  });
}

void Entity::ValidateTemplate() {
  const auto fail = [](ErrorNumber number, std::string text) {
    throw Error(number, "Entity.Validate", std::move(text));
  };
  const auto shown = [](std::string_view name) { return text::EscapeControlCharacters(name); };
  const std::string en = shown(entity_name_);
  const auto page = DataPageIfSet();
  const std::string where =
      " of dataset " + en + " in datapage " + (page ? shown(page->DisplayName()) : "") + ".";
  const std::pair<const char*, const std::string*> names[] = {
      {"name", &entity_name_}, {"table name", &table_name_}, {"key column", &pk_column_}};
  for (const auto& [what, name] : names) {
    if (!template_checks::NameProblem(*name).empty()) {
      fail(exerr::kNameWithControlCharacter, std::string("The ") + what + " \"" + shown(*name) +
                                                 "\"" + where + " holds a control character.");
    }
  }
  if (InitString().empty()) {
    fail(exerr::kNoDatapageOrInitString, "No intialization string was specified for dataset " + en +
                                             " in datapage " +
                                             (page ? shown(page->DisplayName()) : "") + ".");
  }
  std::vector<std::string> columns;
  for (const AttribPtr& a : GetAttributes()) {
    const std::string field = shown(a->ColumnName());
    if (!template_checks::NameProblem(a->ColumnName()).empty()) {
      fail(exerr::kNameWithControlCharacter,
           "The column name \"" + field + "\"" + where + " holds a control character.");
    }
    if (!filters::IsColumnFilterName(a->ColumnType())) {
      fail(exerr::kUnknownFilter,
           "The field " + field + where + " names the filter \"" + shown(a->ColumnType()) +
               "\", which does not exist; the filters are " + filters::ColumnFilterNames() + ".");
    }
    columns.push_back(a->ColumnName());
  }
  if (const auto repeated = template_checks::FindRepeatedName(columns)) {
    fail(exerr::kRepeatedColumn,
         "Two fields" + where + " write the column " + shown(columns[repeated->second]) +
             " (column names compare without letter case): the second value would overwrite "
             "the first.");
  }
  for (const MetaFieldPtr& mf : *selected_meta_fields_) {
    for (const std::string& column : columns) {
      if (text::EqualsNoCase(column, mf->ColumnName())) {
        fail(exerr::kRepeatedColumn,
             "The field " + shown(column) + where + " writes the column " + mf->ColumnName() +
                 ", which the dataset's custom column fills: one value would overwrite the "
                 "other. Rename the field or leave the custom column out.");
      }
    }
  }
  // Parents by id: a loop comes back to an id it passed.
  std::set<std::string> passed{text::FoldCaseKey(id_)};
  for (EntityPtr at = ParentEntity(); at; at = at->ParentEntity()) {
    if (!passed.insert(text::FoldCaseKey(at->Id())).second) {
      fail(exerr::kParentLoop, "The dataset " + en + " in datapage " +
                                   (page ? shown(page->DisplayName()) : "") +
                                   " is its own parent, or hangs below a loop of parent "
                                   "datasets: no root dataset leads to it, so it would never be "
                                   "extracted.");
    }
  }
}

// ---- DataPage --------------------------------------------------------------------------------

std::string DataPage::CreateDB(bool UseTmpTbls, std::string_view OverrideConnStr,
                               std::string_view OverrideDBName, std::string_view UniqueTblPrefix) {
  return ReportAs(
      "DataPage.CreateDB(UseTmpTbls,OverrideConnStr,OverrideDBName,UniqueTblPrefix)",
      Args(UseTmpTbls, AsConnectionString(OverrideConnStr), OverrideDBName, UniqueTblPrefix), [&] {
        const std::string db_name(!OverrideDBName.empty() ? OverrideDBName
                                                          : std::string_view(db_name_));
        std::string cn_str;
        if (!OverrideConnStr.empty()) cn_str = Database::Create(OverrideConnStr, db_name);
        // The roots are read fresh from the rules store (a page made in memory keeps
        // its own).
        if (is_stored_) SetRootEntitiesFromDB();
        temporary_roots_.clear();
        for (const EntityPtr& root : RootEntities()) {
          root->CreateTable(UseTmpTbls, OverrideConnStr, db_name, UniqueTblPrefix);
          if (UseTmpTbls) temporary_roots_.push_back(root);
        }
        return cn_str;
      });
}

void DataPage::DropDB(std::string_view DBConnStr, std::string_view OverrideDBName) {
  ReportAs("DataPage.DropDB(DBConnStr,OverrideDBName)",
           Args(AsConnectionString(DBConnStr), OverrideDBName),
           [&] { Database::Drop(DBConnStr, !OverrideDBName.empty() ? OverrideDBName : db_name_); });
}

void DataPage::DeleteExistingTableData() {
  ReportAs("DataPage.DeleteExistingTableData()", [&] {
    for (const EntityPtr& e : GetEntities()) e->DeleteExistingTableData();
  });
}

void DataPage::Validate() {
  ReportAs("DataPage.Validate()", [&] {
    if (GetEntities().Count() < 1) {
      throw Error(exerr::kNoDatasets, "Datapage.Validate",
                  "The datapage " + display_name_ + " does not have a dataset associated with it.");
    }
    if (id_.empty()) {
      throw Error(exerr::kNoDatapageId, "Datapage.Validate",
                  "The datapage " + display_name_ + " does not have an Id.");
    }
    // Every dataset, not only the roots: a dataset in a loop of parents is below no root.
    for (const EntityPtr& e : GetEntities()) e->ValidateTemplate();
    for (const EntityPtr& root : RootEntities()) root->Validate();
  });
}

}  // namespace gw
