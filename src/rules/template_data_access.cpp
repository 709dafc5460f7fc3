#include "rules/template_data_access.h"

#include "platform/error.h"
#include "platform/report_connection_string.h"
#include "platform/text.h"
#include "rules/failures.h"
#include "rules/row_writer.h"
#include "rules/shape.h"

namespace gw {

namespace {

// Deletes the one row a statement selects, if it is there.
void DeleteRowById(const CDisconnRS& q, std::string_view select_sql, const std::string& id) {
  DeleteSelectedRow(q.RunQuery(select_sql, false, {Variant(id)}));
}

bool IsEmptyArgument(const Variant& v) { return IsNoAction(v) || v.IsNull() || v.ToText().empty(); }

}  // namespace

// ---- D_Attrib --------------------------------------------------------------------------------

db::RecordsetPtr D_Attrib::Selectx(const std::string& Id) {
  return ReportAs("D_Attrib.Selectx(Id)", Args(Id), [&] {
    return Query().RunQuery(
        "SELECT [attribute_id] as A_Id, [entity_id] as EntityId, [column_name] as ColumnName, "
        "[start_tag] as StartTag, [end_tag] as EndTag, [step] as Step, [is_pk] as IsPK, "
        "[column_type] as ColumnType, [column_size] as ColumnSize, [is_optional] as IsOptional "
        "FROM [attributes] WHERE [attribute_id] = ?",
        true, {Variant(Id)});
  });
}

void D_Attrib::Delete(const std::string& Id) {
  ReportAs("D_Attrib.Delete(Id)", Args(Id),
           [&] { DeleteRowById(Query(), "SELECT * FROM attributes WHERE attribute_id = ?", Id); });
}

bool D_Attrib::Save(const std::string& Id, const Variant& EntityId, const Variant& ColumnName,
                    const Variant& StartTag, const Variant& EndTag, const Variant& Step,
                    const Variant& IsPK, const Variant& ColumnType, const Variant& ColumnSize,
                    const Variant& IsOptional) {
  return ReportAs(
      "D_Attrib.Save(Id,EntityId,ColumnName,StartTag,EndTag,Step,IsPK,ColumnType,ColumnSize,"
      "IsOptional)",
      Args(Id, EntityId, ColumnName, StartTag, EndTag, Step, IsPK, ColumnType, ColumnSize,
           IsOptional),
      [&] {
        if (Id.empty()) {
          throw Error(ruleserr::kInvalidAttribId, "D_Attrib.Update",
                      "The specified Attribute Id is not valid.");
        }
        PartialRowWriter row(Query(), "SELECT * FROM attributes WHERE attribute_id = ?",
                             {Variant(Id)});
        const bool size_left_out =
            IsNoActionNumber(ColumnSize) || (row.IsInsert() && ColumnSize.IsNumeric() &&
                                             !ColumnSize.IsString() && ColumnSize.ToDouble() < 1);
        row.Set("entity_id", EntityId, IsNoAction(EntityId));
        row.Set("column_name", ColumnName, IsNoAction(ColumnName));
        row.Set("start_tag", StartTag, IsNoAction(StartTag));
        row.Set("end_tag", EndTag, IsNoAction(EndTag));
        row.Set("step", Step, IsNoActionNumber(Step));
        row.Set("is_pk", IsPK, IsNoAction(IsPK));
        row.Set("column_type", ColumnType, IsNoAction(ColumnType));
        row.Set("column_size", ColumnSize, size_left_out);
        row.Set("is_optional", IsOptional, IsNoAction(IsOptional));
        row.Write("attribute_id", Variant(Id));
        return true;
      });
}

// ---- D_Entity --------------------------------------------------------------------------------

db::RecordsetPtr D_Entity::GetChildren(const std::string& EntityId) {
  return ReportAs("D_Entity.GetChildren(EntityId)", Args(EntityId), [&] {
    return Query().RunQuery(
        "SELECT [entity_id] as E_Id FROM [entities] WHERE [parent_entity_id] = ?", true,
        {Variant(EntityId)});
  });
}

db::RecordsetPtr D_Entity::GetChildrenOnPage(const std::string& EntityId,
                                             const std::string& DatapageId) {
  return ReportAs(
      "D_Entity.GetChildrenOnPage(EntityId,DatapageId)", Args(EntityId, DatapageId), [&] {
        return Query().RunQuery(
            "SELECT [entity_id] as E_Id FROM [entities] WHERE [parent_entity_id] = ? AND "
            "[datapage_id] = ? ORDER BY [child_order_on_page] ASC",
            true, {Variant(EntityId), Variant(DatapageId)});
      });
}

db::RecordsetPtr D_Entity::GetAttributes(const std::string& EntityId) {
  return ReportAs("D_Entity.GetAttributes(EntityId)", Args(EntityId), [&] {
    return Query().RunQuery(
        "SELECT [attribute_id] as A_Id, [column_name] as ColumnName FROM [attributes] WHERE "
        "[entity_id] = ? ORDER BY [step] ASC",
        true, {Variant(EntityId)});
  });
}

db::RecordsetPtr D_Entity::Selectx(const std::string& Id) {
  return ReportAs("D_Entity.Selectx(Id)", Args(Id), [&] {
    return Query().RunQuery(
        "SELECT [entity_id] as E_Id, [datapage_id] as DataPageId, [entity_name] as EntityName, "
        "[description] as Description, [table_name] as TableName, [pk_column_name] as PKColumn, "
        "[db_conn_str] as DBConnStr, [init_string] as InitString, [parent_entity_id] as "
        "ParentEntityId, [child_order_on_page] as OnPageOrder, [is_pk_surrogate] as IsPKSurrogate "
        "FROM [entities] WHERE [entity_id] = ?",
        true, {Variant(Id)});
  });
}

void D_Entity::Delete(const std::string& Id) {
  ReportAs("D_Entity.Delete(Id)", Args(Id),
           [&] { DeleteRowById(Query(), "SELECT * FROM entities WHERE entity_id = ?", Id); });
}

bool D_Entity::Save(const std::string& Id, const Variant& DatapageId, const Variant& EntityName,
                    const Variant& Description, const Variant& DBConnStr, const Variant& TableName,
                    const Variant& PKColumn, const Variant& InitString,
                    const Variant& ParentEntityId, const Variant& OnPageOrder,
                    const Variant& IsPKSurrogate) {
  return ReportAs(
      "D_Entity.Save(Id,DatapageId,EntityName,Description,DBConnStr,TableName,PKColumn,"
      "InitString,ParentEntityId,OnPageOrder,IsPKSurrogate)",
      Args(Id, DatapageId, EntityName, Description, AsConnectionString(DBConnStr), TableName,
           PKColumn, InitString, ParentEntityId, OnPageOrder, IsPKSurrogate),
      [&] {
        if (Id.empty()) {
          throw Error(ruleserr::kInvalidEntityId, "D_Entity.Update",
                      "The specified Entity Id is not valid.");
        }
        PartialRowWriter row(Query(), "SELECT * FROM entities WHERE entity_id = ?", {Variant(Id)});
        const bool no_datapage = IsEmptyArgument(DatapageId);
        if (row.IsInsert() && no_datapage) {
          throw Error(ruleserr::kInvalidDatapageReference, "D_Entity.Insert",
                      "Invalid Datapage reference.  Make sure that this is assigned to a valid "
                      "DatapageId.");
        }
        // Without a template the definition stays as stored; only the placement may change.
        auto keep = [&](const Variant& v) { return no_datapage || IsNoAction(v); };
        row.Set("datapage_id", DatapageId, keep(DatapageId));
        row.Set("entity_name", EntityName, keep(EntityName));
        row.Set("description", Description, keep(Description));
        row.Set("db_conn_str", DBConnStr, keep(DBConnStr));
        row.Set("table_name", TableName, keep(TableName));
        row.Set("pk_column_name", PKColumn, keep(PKColumn));
        row.Set("init_string", InitString, keep(InitString));
        row.Set("parent_entity_id", ParentEntityId, IsNoAction(ParentEntityId));
        row.Set("child_order_on_page", OnPageOrder, IsNoActionNumber(OnPageOrder));
        row.Set("is_pk_surrogate", IsPKSurrogate, IsNoAction(IsPKSurrogate));
        row.Write("entity_id", Variant(Id));
        return true;
      });
}

// ---- D_DataPage ------------------------------------------------------------------------------

db::RecordsetPtr D_DataPage::GetRootEntities(const std::string& DatapageId) {
  return ReportAs("D_DataPage.GetRootEntities(DatapageId)", Args(DatapageId), [&] {
    return Query().RunQuery(
        "SELECT entity_id as E_Id FROM entities WHERE datapage_id = ? AND (parent_entity_id NOT "
        "IN (SELECT entity_id FROM entities WHERE datapage_id = ?) OR parent_entity_id is null)",
        true, {Variant(DatapageId), Variant(DatapageId)});
  });
}

db::RecordsetPtr D_DataPage::GetEntities(const std::string& DatapageId) {
  return ReportAs("D_DataPage.GetEntities(DatapageId)", Args(DatapageId), [&] {
    return Query().RunQuery("SELECT entity_id as E_Id FROM entities WHERE datapage_id = ?", true,
                            {Variant(DatapageId)});
  });
}

db::RecordsetPtr D_DataPage::GetEntitiesWithConnectionInfo(const std::string& DatapageId) {
  return ReportAs("D_DataPage.GetEntitiesWithConnectionInfo(DatapageId)", Args(DatapageId), [&] {
    return Query().RunQuery(
        "SELECT entity_id, entity_name, table_name, db_conn_str FROM entities WHERE datapage_id = "
        "?",
        true, {Variant(DatapageId)});
  });
}

db::RecordsetPtr D_DataPage::Selectx(const std::string& DatapageId) {
  return ReportAs("D_DataPage.Selectx(DatapageId)", Args(DatapageId), [&] {
    return Query().RunQuery(
        "SELECT datapage_id as DP_Id, display_name as DisplayName, description as Description, "
        "db_name as DBName, date_created as DateCreated, date_modified as DateModified FROM "
        "datapages WHERE datapage_id = ?",
        true, {Variant(DatapageId)});
  });
}

void D_DataPage::Delete(const std::string& Id) {
  ReportAs("D_DataPage.Delete(Id)", Args(Id), [&] {
    auto jobs = GetJobsThatUseDpage(Id);
    if (jobs->RecordCount() > 0) {
      std::vector<std::string> names;
      for (jobs->MoveFirst(); !jobs->IsEOF(); jobs->MoveNext()) {
        names.push_back((*jobs)["job_name"].Value().ToText());
      }
      throw Error(ruleserr::kDatapageInUse, "DJob.Delete",
                  "The datapage could not be deleted because it is currently referenced by one or "
                  "more packages.  You must remove these references before deleting this "
                  "datapage.  The following packages reference this datapage: " +
                      text::Join(names, ", "));
    }
    DeleteRowById(Query(), "SELECT * FROM datapages WHERE datapage_id = ?", Id);
  });
}

bool D_DataPage::Save(const std::string& Id, const Variant& DisplayName, const Variant& Description,
                      const Variant& DBName, const Variant& DateCreated,
                      const Variant& DateModified) {
  return ReportAs("D_DataPage.Save(Id,DisplayName,Description,DBName,DateCreated,DateModified)",
                  Args(Id, DisplayName, Description, DBName, DateCreated, DateModified), [&] {
                    if (Id.empty()) {
                      throw Error(ruleserr::kInvalidDatapageId, "D_DataPage.Save",
                                  "The specified Datapage Id is not valid.");
                    }
                    PartialRowWriter row(Query(), "SELECT * FROM datapages WHERE datapage_id = ?",
                                         {Variant(Id)});
                    row.Set("display_name", DisplayName, IsNoAction(DisplayName));
                    row.Set("description", Description, IsNoAction(Description));
                    row.Set("db_name", DBName, IsNoAction(DBName));
                    row.Set("date_created", DateCreated, IsNoActionDate(DateCreated));
                    row.Set("date_modified", DateModified, IsNoActionDate(DateModified));
                    row.Write("datapage_id", Variant(Id));
                    return true;
                  });
}

db::RecordsetPtr D_DataPage::GetAllDataPages() {
  return ReportAs("D_DataPage.GetAllDataPages",
                  [&] { return Query().RunQuery("Exec usp_GetAllDPages ", true); });
}

db::RecordsetPtr D_DataPage::GetDatapageCategoryHierarchy() {
  return ReportAs("D_DataPage.GetDatapageCategoryHierarchy", [&] {
    const CDisconnRS shape(ShapeConnectionString());
    auto pages = shape.RunQuery(
        "SELECT datapage_id, display_name, description, date_created, date_modified FROM "
        "datapages",
        true);
    auto child = CategoryChildRecordset(*pages, "datapage_id", "display_name", "Modified_Date",
                                        CategoryOrder::ByShortName);
    return CategoryTree(*child);
  });
}

db::RecordsetPtr D_DataPage::GetJobsThatUseDpage(const std::string& DatapageId) {
  return ReportAs("D_DataPage.GetJobsThatUseDpage(DatapageId)", Args(DatapageId), [&] {
    return Query().RunQuery("Exec usp_GetJobsThatUseDpage ?", true, {Variant(DatapageId)});
  });
}

// ---- D_CustCols ------------------------------------------------------------------------------

void D_CustCols::InsCustColForEnt(const std::string& EntityId, long CustColId) {
  ReportAs("D_CustCols.InsCustColForEnt(EntityId,CustColId)", Args(EntityId, CustColId), [&] {
    Query().RunQuery("Exec usp_CustCol_InsForEnt ?, ?", false,
                     {Variant(EntityId), Variant(CustColId)});
  });
}

void D_CustCols::DelCustColsForEnt(const std::string& EntityId) {
  ReportAs("D_CustCols.DelCustColsForEnt(EntityId)", Args(EntityId), [&] {
    Query().RunQuery("Exec usp_CustCol_DelAllForEnt ?", false, {Variant(EntityId)});
  });
}

db::RecordsetPtr D_CustCols::GetCustColsForEnt(const std::string& EntityId) {
  return ReportAs("D_CustCols.GetCustColsForEnt(EntityId)", Args(EntityId), [&] {
    return Query().RunQuery("Exec usp_CustCol_GetColsForEnt ?", true, {Variant(EntityId)});
  });
}

db::RecordsetPtr D_CustCols::GetDefaults() {
  return ReportAs("D_CustCols.GetDefaults",
                  [&] { return Query().RunQuery("Exec usp_CustCol_GetDefaults", true); });
}

db::RecordsetPtr D_CustCols::GetAll() {
  return ReportAs("D_CustCols.GetAll", [&] {
    return Query().RunQuery(
        "SELECT custom_col_id, column_name, class_member_name, display_name FROM Custom_Columns "
        "ORDER BY group_id, appearance_order, custom_col_id",
        true);
  });
}

db::RecordsetPtr D_CustCols::Selectx(long CustColId) {
  return ReportAs("D_CustCols.Selectx(CustColId)", Args(CustColId), [&] {
    return Query().RunQuery("Exec usp_CustCol_Get ?", true, {Variant(CustColId)});
  });
}

// ---- D_HiLiter -------------------------------------------------------------------------------

db::RecordsetPtr D_HiLiter::SelectAll(const std::string& DocType) {
  return ReportAs("D_HiLiter.SelectAll(DocType)", Args(DocType), [&] {
    return Query().RunQuery("Exec usp_GetHiLiters ?", true, {Variant(DocType)});
  });
}

}  // namespace gw
