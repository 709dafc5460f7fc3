// The data-access classes of templates: D_Attrib, D_Entity, D_DataPage, D_CustCols, D_HiLiter.
//
// Each is made with the rules connection string (`modConnectionString::GetCnStr`) and runs its
// statements through a `CDisconnRS`, binding every id and name as a parameter. Reads return
// recordsets cut from their connection; `Save` writes one row through an updatable recordset
// (the "**NoAction**" pattern, see no_action.h); `Delete` removes one row and lets the store's
// cascades remove what depends on it. Every method reports under its "Class.Method(Args)" name.
#pragma once

#include <string>

#include "platform/db/recordset.h"
#include "rules/rules_data_access.h"

namespace gw {

class D_Attrib : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // A_Id, EntityId, ColumnName, StartTag, EndTag, Step, IsPK, ColumnType, ColumnSize, IsOptional.
  db::RecordsetPtr Selectx(const std::string& Id);
  void Delete(const std::string& Id);
  // Inserts or updates the field `Id`; an empty `Id` fails with 0x80040442. On insert a
  // `ColumnSize` below 1 is stored as null. Returns true.
  bool Save(const std::string& Id, const Variant& EntityId = NoAction(),
            const Variant& ColumnName = NoAction(), const Variant& StartTag = NoAction(),
            const Variant& EndTag = NoAction(), const Variant& Step = NoAction(),
            const Variant& IsPK = NoAction(), const Variant& ColumnType = NoAction(),
            const Variant& ColumnSize = NoAction(), const Variant& IsOptional = NoAction());
};

class D_Entity : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // E_Id of every dataset whose parent is `EntityId`.
  db::RecordsetPtr GetChildren(const std::string& EntityId);
  // The same within one template, in the stored child order.
  db::RecordsetPtr GetChildrenOnPage(const std::string& EntityId, const std::string& DatapageId);
  // A_Id, ColumnName of the dataset's fields by ascending step.
  db::RecordsetPtr GetAttributes(const std::string& EntityId);
  // E_Id, DataPageId, EntityName, Description, TableName, PKColumn, DBConnStr, InitString,
  // ParentEntityId, OnPageOrder, IsPKSurrogate.
  db::RecordsetPtr Selectx(const std::string& Id);
  void Delete(const std::string& Id);
  // Inserts or updates the dataset `Id`: an empty `Id` fails with 0x9987189B; an insert without
  // a `DatapageId` with 0x9987189C. An update without a `DatapageId` keeps the row's template,
  // name, description, connection string, table, key column and initialization string.
  bool Save(const std::string& Id, const Variant& DatapageId = NoAction(),
            const Variant& EntityName = NoAction(), const Variant& Description = NoAction(),
            const Variant& DBConnStr = NoAction(), const Variant& TableName = NoAction(),
            const Variant& PKColumn = NoAction(), const Variant& InitString = NoAction(),
            const Variant& ParentEntityId = NoAction(), const Variant& OnPageOrder = NoAction(),
            const Variant& IsPKSurrogate = NoAction());
};

class D_DataPage : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  // E_Id of the datasets without a parent inside the template.
  db::RecordsetPtr GetRootEntities(const std::string& DatapageId);
  db::RecordsetPtr GetEntities(const std::string& DatapageId);
  // entity_id, entity_name, table_name, db_conn_str.
  db::RecordsetPtr GetEntitiesWithConnectionInfo(const std::string& DatapageId);
  // DP_Id, DisplayName, Description, DBName, DateCreated, DateModified.
  db::RecordsetPtr Selectx(const std::string& DatapageId);
  // Refused with 0xB68E1CDB, naming the packages, while a package uses the template.
  void Delete(const std::string& Id);
  // An empty `Id` fails with 0x99871899. Returns true.
  bool Save(const std::string& Id, const Variant& DisplayName = NoAction(),
            const Variant& Description = NoAction(), const Variant& DBName = NoAction(),
            const Variant& DateCreated = NoAction(), const Variant& DateModified = NoAction());
  db::RecordsetPtr GetAllDataPages();
  // The templates by category: one row per category with the column "category" and a chapter
  // "Chapter1" of its templates (datapage_id, category, Name, Description, Create Date,
  // Modified_Date). A display name "Prices\Daily" stands under "Prices" as "Daily"; one
  // without a backslash under "(Default)". Runs on the "ShapeCnStr" setting's store.
  db::RecordsetPtr GetDatapageCategoryHierarchy();
  // job_name of every package with a task on the template.
  db::RecordsetPtr GetJobsThatUseDpage(const std::string& DatapageId);
};

class D_CustCols : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  void InsCustColForEnt(const std::string& EntityId, long CustColId);
  void DelCustColsForEnt(const std::string& EntityId);
  // custom_col_id of the columns chosen for the dataset, in the order they were chosen.
  db::RecordsetPtr GetCustColsForEnt(const std::string& EntityId);
  // custom_col_id of the columns selected by default.
  db::RecordsetPtr GetDefaults();
  // The catalogue: custom_col_id, column_name, class_member_name, display_name of every column,
  // by group and order of appearance.
  db::RecordsetPtr GetAll();
  db::RecordsetPtr Selectx(long CustColId);
};

class D_HiLiter : public RulesDataAccess {
 public:
  using RulesDataAccess::RulesDataAccess;

  db::RecordsetPtr SelectAll(const std::string& DocType);
};

}  // namespace gw
