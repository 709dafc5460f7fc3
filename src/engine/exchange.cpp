#include "engine/exchange.h"

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <tuple>

#include "engine/exchange_objects.h"
#include "extraction/template_checks.h"
#include "filters/column_filter.h"
#include "infra/c_crypto.h"
#include "infra/c_guid_gen.h"
#include "infra/object_xml_reader.h"
#include "infra/xml_serializer.h"
#include "platform/text.h"
#include "rules/package_data_access.h"
#include "rules/rules_transaction.h"
#include "rules/template_data_access.h"

namespace gw::exchange {

namespace {

// ---- reading the rules store ----------------------------------------------------------------

std::string Text(const db::RecordsetPtr& rs, const char* column) {
  return (*rs)[column].Value().ToText();
}
long Number(const db::RecordsetPtr& rs, const char* column) {
  const Variant& v = (*rs)[column].Value();
  return v.IsNull() ? 0 : v.ToLong();
}
bool Flag(const db::RecordsetPtr& rs, const char* column) {
  const Variant& v = (*rs)[column].Value();
  return !v.IsNull() && v.ToBool();
}
DateTime Date(const db::RecordsetPtr& rs, const char* column) {
  const Variant& v = (*rs)[column].Value();
  return v.IsNull() ? DateTime() : v.ToDate();
}
// The texts of one column of every row.
std::vector<std::string> Column(const db::RecordsetPtr& rs, const char* column) {
  std::vector<std::string> out;
  for (; !rs->IsEOF(); rs->MoveNext()) out.push_back(Text(rs, column));
  return out;
}

bool SameId(std::string_view a, std::string_view b) { return text::EqualsNoCase(a, b); }

// A connection string as the rules store and the files keep it: a ciphertext stays as it is; a
// clear text is enciphered (and stays clear only when that fails, as the store does).
std::string EncipheredForm(const std::string& cn_str) {
  if (cn_str.empty()) return cn_str;
  try {
    CCrypto().DecryptText(cn_str);
    return cn_str;
  } catch (const Error&) {
  }
  try {
    return CCrypto().EncryptText(cn_str);
  } catch (const Error&) {
    return cn_str;
  }
}

struct Named {
  std::string id;
  std::string name;
};

std::vector<Named> StoredDataPages() {
  std::vector<Named> out;
  for (auto rs = D_DataPage().GetAllDataPages(); !rs->IsEOF(); rs->MoveNext()) {
    out.push_back({Text(rs, "datapage_id"), Text(rs, "display_name")});
  }
  return out;
}

std::vector<Named> StoredJobs() {
  std::vector<Named> out;
  for (auto rs = DJob().GetAllJobs(); !rs->IsEOF(); rs->MoveNext()) {
    out.push_back({Text(rs, "job_id"), Text(rs, "Name")});
  }
  return out;
}

std::vector<const Named*> WithName(const std::vector<Named>& all, std::string_view name) {
  std::vector<const Named*> out;
  for (const Named& n : all) {
    if (text::EqualsNoCase(n.name, name)) out.push_back(&n);
  }
  return out;
}

std::string IdList(const std::vector<const Named*>& named) {
  std::vector<std::string> ids;
  for (const Named* n : named) ids.push_back(n->id);
  return text::Join(ids, ", ");
}

// The stored id of the datapage or package whose id, or else name, is `id_or_name`; `kind` is
// "datapage" or "package".
std::string Resolve(std::string_view id_or_name, const char* kind,
                    const std::function<std::string(const std::string&)>& stored_id,
                    const std::vector<Named>& all) {
  const std::string wanted(id_or_name);
  if (std::string id = stored_id(wanted); !id.empty()) return id;
  const auto named = WithName(all, wanted);
  if (named.empty()) {
    throw Error(engineerr::kExchangeNotFound, "Exchange",
                "There is no " + std::string(kind) + " with the id or name \"" + wanted + "\".");
  }
  if (named.size() > 1) {
    throw Error(engineerr::kExchangeAmbiguous, "Exchange",
                "Several " + std::string(kind) + "s are named \"" + wanted + "\" (" +
                    IdList(named) + "); name one by its id.");
  }
  return named.front()->id;
}

std::string StoredDataPageId(const std::string& id) {
  auto rs = D_DataPage().Selectx(id);
  return rs->IsEOF() ? std::string() : Text(rs, "DP_Id");
}

std::string StoredJobId(const std::string& id) {
  auto rs = DJob().Selectx(id, true);
  return rs->IsEOF() ? std::string() : Text(rs, "JobId");
}

std::shared_ptr<AttribRecord> ReadAttrib(const std::string& id) {
  auto rs = D_Attrib().Selectx(id);
  auto a = std::make_shared<AttribRecord>();
  a->id = Text(rs, "A_Id");
  a->column_name = Text(rs, "ColumnName");
  a->start_tag = Text(rs, "StartTag");
  a->end_tag = Text(rs, "EndTag");
  a->step = static_cast<std::int16_t>(Number(rs, "Step"));
  a->is_pk = Flag(rs, "IsPK");
  a->column_type = Text(rs, "ColumnType");
  a->column_size = Number(rs, "ColumnSize");
  a->is_optional = Flag(rs, "IsOptional");
  return a;
}

std::shared_ptr<EntityRecord> ReadEntity(const std::string& id) {
  auto rs = D_Entity().Selectx(id);
  auto e = std::make_shared<EntityRecord>();
  e->id = Text(rs, "E_Id");
  e->entity_name = Text(rs, "EntityName");
  e->description = Text(rs, "Description");
  e->db_conn_str = EncipheredForm(Text(rs, "DBConnStr"));
  e->table_name = Text(rs, "TableName");
  e->pk_column = Text(rs, "PKColumn");
  e->is_pk_surrogate = Flag(rs, "IsPKSurrogate");
  e->init_string = Text(rs, "InitString");
  e->on_page_order = static_cast<std::int16_t>(Number(rs, "OnPageOrder"));
  e->parent_entity_id = Text(rs, "ParentEntityId");

  auto& fields = e->attributes->items;
  for (const std::string& a : Column(D_Entity().GetAttributes(e->id), "A_Id")) {
    fields.push_back(ReadAttrib(a));
  }
  std::stable_sort(fields.begin(), fields.end(), [](const auto& x, const auto& y) {
    return std::tie(x->step, x->id) < std::tie(y->step, y->id);
  });

  D_CustCols cols;
  for (const std::string& c : Column(cols.GetCustColsForEnt(e->id), "custom_col_id")) {
    auto mf = e->selected_meta_fields->Add();
    auto row = cols.Selectx(std::stol(c));
    mf->id = static_cast<std::int32_t>(std::stol(c));
    if (!row->IsEOF()) mf->column_name = Text(row, "column_name");
  }
  return e;
}

// Parents before their children; roots and siblings by on-page order, name and id.
std::vector<std::shared_ptr<EntityRecord>> InTreeOrder(
    std::vector<std::shared_ptr<EntityRecord>> all) {
  const auto before = [](const auto& x, const auto& y) {
    return std::tie(x->on_page_order, x->entity_name, x->id) <
           std::tie(y->on_page_order, y->entity_name, y->id);
  };
  std::sort(all.begin(), all.end(), before);
  const auto in_page = [&](const std::string& id) {
    return !id.empty() &&
           std::any_of(all.begin(), all.end(), [&](const auto& e) { return SameId(e->id, id); });
  };
  std::vector<std::shared_ptr<EntityRecord>> out;
  std::set<const EntityRecord*> placed;
  std::function<void(const std::shared_ptr<EntityRecord>&)> place = [&](const auto& e) {
    if (!placed.insert(e.get()).second) return;
    out.push_back(e);
    for (const auto& child : all) {
      if (SameId(child->parent_entity_id, e->id)) place(child);
    }
  };
  for (const auto& e : all) {
    if (!in_page(e->parent_entity_id)) place(e);
  }
  for (const auto& e : all) place(e);  // datasets caught in a loop of parents
  return out;
}

std::shared_ptr<DataPageRecord> ReadDataPage(const std::string& id) {
  auto rs = D_DataPage().Selectx(id);
  auto page = std::make_shared<DataPageRecord>();
  page->id = Text(rs, "DP_Id");
  page->display_name = Text(rs, "DisplayName");
  page->description = Text(rs, "Description");
  page->db_name = Text(rs, "DBName");
  page->date_created = Date(rs, "DateCreated");
  page->date_modified = Date(rs, "DateModified");
  std::vector<std::shared_ptr<EntityRecord>> entities;
  for (const std::string& e : Column(D_DataPage().GetEntities(page->id), "E_Id")) {
    entities.push_back(ReadEntity(e));
  }
  page->entities->items = InTreeOrder(std::move(entities));
  return page;
}

std::shared_ptr<TaskRecord> ReadTask(const std::string& id) {
  auto rs = DTask().Selectx(id, true);
  auto t = std::make_shared<TaskRecord>();
  t->task_id = Text(rs, "TaskId");
  t->task_name = Text(rs, "TaskName");
  t->step = Number(rs, "Step");
  t->display_src_type = Number(rs, "DisplaySrcType");
  t->throttle_wait_msecs = Number(rs, "ThrottleWaitMSecs");
  t->data_page_id = Text(rs, "DatapageId");
  t->text_form = Text(rs, "Description");
  for (const std::string& s : Column(DTask().GetDocSources(t->task_id), "DocSrcId")) {
    auto row = DDocSource().Selectx(s, true);
    auto source = t->doc_sources->Add();
    source->doc_src_id = Text(row, "doc_location_id");
    source->source_type = Number(row, "source_type");
    source->source = Text(row, "source");
    source->conn_str = EncipheredForm(Text(row, "conn_str"));
    source->db_name = Text(row, "db_name");
  }
  return t;
}

std::string Write(const ExchangeFile& file) {
  XmlSerializer s;
  s.SetValueEscape(ValueEscape::Reversible);
  std::string ignore;
  if (file.data_pages->items.empty()) ignore += "GleanwrightExport.DataPages;";
  if (file.jobs->items.empty()) ignore += "GleanwrightExport.Jobs;";
  s.SetIgnoreList(ignore);
  return s.Serialize(file);
}

}  // namespace

ExportResult ExportDataPage(std::string_view IdOrName) {
  return ReportAs("Exchange.ExportDataPage(IdOrName)", Args(IdOrName), [&] {
    const std::string id = Resolve(IdOrName, "datapage", StoredDataPageId, StoredDataPages());
    ExchangeFile file;
    file.data_pages->items.push_back(ReadDataPage(id));
    return ExportResult{Write(file), {}};
  });
}

ExportResult ExportPackage(std::string_view IdOrName) {
  return ReportAs("Exchange.ExportPackage(IdOrName)", Args(IdOrName), [&] {
    const std::string id = Resolve(IdOrName, "package", StoredJobId, StoredJobs());
    ExportResult result;
    ExchangeFile file;
    auto rs = DJob().Selectx(id, true);
    auto job = file.jobs->Add();
    job->job_id = Text(rs, "JobId");
    job->job_name = Text(rs, "JobName");
    job->description = Text(rs, "Description");
    job->date_created = Date(rs, "DateCreated");
    job->date_modified = Date(rs, "DateModified");
    for (const std::string& t : Column(DJob().GetTasks(job->job_id, true), "TaskId")) {
      job->tasks->items.push_back(ReadTask(t));
    }
    // The templates the tasks use, in the order of first use.
    for (const auto& task : job->tasks->items) {
      const std::string& page_id = task->data_page_id;
      if (page_id.empty()) continue;
      const auto& pages = file.data_pages->items;
      if (std::any_of(pages.begin(), pages.end(),
                      [&](const auto& p) { return SameId(p->id, page_id); })) {
        continue;
      }
      if (StoredDataPageId(page_id).empty()) {
        result.warnings.push_back("The task \"" + task->task_name + "\" uses the datapage " +
                                  page_id +
                                  ", which the rules store does not hold; the file can be "
                                  "imported only where that datapage exists.");
        continue;
      }
      file.data_pages->items.push_back(ReadDataPage(page_id));
    }
    result.xml = Write(file);
    return result;
  });
}

namespace {

// ---- import ---------------------------------------------------------------------------------

class Importer {
 public:
  explicit Importer(const ObjectXmlReader& reader) : reader_(reader) {}

  // Checks the file against the store and fills in what it leaves out; writes nothing.
  void Plan(ExchangeFile& file) {
    if (file.format_version != ExchangeFile::kFormatVersion) {
      Refuse(file, "FormatVersion",
             "the file has the format version " + std::to_string(file.format_version) +
                 "; this program reads version " + std::to_string(ExchangeFile::kFormatVersion));
    }
    catalogue_ = LoadCatalogue();
    defaults_ = ColumnIds(D_CustCols().GetDefaults());
    const std::vector<Named> stored_pages = StoredDataPages();
    for (const auto& page : file.data_pages->items) PlanDataPage(*page, stored_pages);
    const std::vector<Named> stored_jobs = StoredJobs();
    for (const auto& job : file.jobs->items) PlanJob(*job, stored_jobs, file);
  }

  void Write(const ExchangeFile& file) {
    for (const auto& page : file.data_pages->items) WriteDataPage(*page);
    for (const auto& job : file.jobs->items) WriteJob(*job);
  }

  std::vector<ImportedObject> imported;

 private:
  struct CatalogueColumn {
    long id;
    std::string column_name;
  };

  [[noreturn]] void Refuse(const Object& obj, std::string_view property, const std::string& what,
                           ErrorNumber number = engineerr::kExchangeRefused) const {
    throw Error(number, "Exchange.Import", reader_.Where(obj, property) + what);
  }

  // An id given twice in the file (ids are global in the store).
  void Claim(std::set<std::string>& ids, const Object& obj, const char* property,
             const std::string& id, const char* kind) {
    if (!ids.insert(text::FoldCaseKey(id)).second) {
      Refuse(obj, property, "the id " + id + " is given to a second " + kind);
    }
  }

  static std::vector<long> ColumnIds(const db::RecordsetPtr& rs) {
    std::vector<long> ids;
    for (; !rs->IsEOF(); rs->MoveNext()) ids.push_back(Number(rs, "custom_col_id"));
    return ids;
  }

  static std::vector<CatalogueColumn> LoadCatalogue() {
    std::vector<CatalogueColumn> out;
    for (auto rs = D_CustCols().GetAll(); !rs->IsEOF(); rs->MoveNext()) {
      out.push_back({Number(rs, "custom_col_id"), Text(rs, "column_name")});
    }
    return out;
  }

  // The id of an object without one: that of the stored object of the same name, or a new one.
  std::string IdByName(const Object& obj, const char* name_property, const std::string& name,
                       const std::vector<Named>& stored, const char* kind) const {
    const auto named = name.empty() ? std::vector<const Named*>{} : WithName(stored, name);
    if (named.size() > 1) {
      Refuse(obj, name_property,
             "several stored " + std::string(kind) + "s are named \"" + name + "\" (" +
                 IdList(named) + "); give the id of the one to replace",
             engineerr::kExchangeAmbiguous);
    }
    return named.empty() ? CGUIDGen::NewGUID() : named.front()->id;
  }

  void PlanDataPage(DataPageRecord& page, const std::vector<Named>& stored_pages) {
    if (page.id.empty()) {
      page.id = IdByName(page, "DisplayName", page.display_name, stored_pages, "datapage");
    }
    Claim(page_ids_, page, "Id", page.id, "datapage");
    existing_[&page] = !StoredDataPageId(page.id).empty();

    std::vector<Named> stored_entities;
    if (existing_[&page]) {
      for (const std::string& id : Column(D_DataPage().GetEntities(page.id), "E_Id")) {
        stored_entities.push_back({id, Text(D_Entity().Selectx(id), "EntityName")});
      }
    }
    for (const auto& e : page.entities->items) {
      if (e->id.empty()) {
        e->id = IdByName(*e, "EntityName", e->entity_name, stored_entities, "dataset");
      }
      Claim(entity_ids_, *e, "Id", e->id, "dataset");
      existing_[e.get()] = !D_Entity().Selectx(e->id)->IsEOF();
    }
    CheckName(page, "DisplayName", page.display_name);
    for (const auto& e : page.entities->items) {
      PlanParent(*e, page);
      PlanFields(*e);
      PlanCustomColumns(*e);
      CheckDataset(*e);
    }
    for (const auto& e : page.entities->items) CheckParentLoop(*e, page);
  }

  // ---- what would lose data without failing (template_checks.h) ----

  void CheckName(const Object& obj, const char* property, const std::string& name) const {
    const std::string problem = template_checks::NameProblem(name);
    if (!problem.empty()) {
      Refuse(obj, property,
             std::string(property) + " \"" + text::EscapeControlCharacters(name) +
                 "\": " + problem + ", which would break the lines of every listing that shows it");
    }
  }

  void CheckDataset(const EntityRecord& e) const {
    CheckName(e, "EntityName", e.entity_name);
    CheckName(e, "TableName", e.table_name);
    CheckName(e, "PKColumn", e.pk_column);
    if (e.init_string.empty()) {
      Refuse(e, reader_.Has(e, "InitString") ? "InitString" : "",
             "the dataset " + e.entity_name +
                 " has no initialization string; every row of a dataset starts where its "
                 "initialization string occurs");
    }
    std::vector<std::string> columns;
    for (const auto& a : e.attributes->items) {
      CheckName(*a, "ColumnName", a->column_name);
      if (!template_checks::IsKnownFilter(a->column_type)) {
        Refuse(*a, "ColumnType",
               "the field " + a->column_name + " names the filter \"" + a->column_type +
                   "\", which does not exist; the filters are " + filters::ColumnFilterNames());
      }
      columns.push_back(a->column_name);
    }
    if (const auto repeated = template_checks::FindRepeatedName(columns)) {
      Refuse(*e.attributes->items[repeated->second], "ColumnName",
             "the dataset " + e.entity_name + " has two fields that write the column " +
                 columns[repeated->second] +
                 " (column names compare without letter case): the second value would "
                 "overwrite the first");
    }
    for (long id : custom_columns_.at(&e)) {
      for (const CatalogueColumn& c : catalogue_) {
        if (c.id != id) continue;
        for (const auto& a : e.attributes->items) {
          if (!text::EqualsNoCase(a->column_name, c.column_name)) continue;
          Refuse(*a, "ColumnName",
                 "the field " + a->column_name + " writes the column " + c.column_name +
                     ", which the dataset's custom column fills: one value would overwrite the "
                     "other; rename the field or leave the custom column out");
        }
      }
    }
  }

  // Parents are followed through the file's datasets, and through the store for those it does
  // not hold.
  void CheckParentLoop(const EntityRecord& e, const DataPageRecord& page) const {
    const auto parent_of = [&](const std::string& id) -> std::string {
      for (const auto& other : page.entities->items) {
        if (SameId(other->id, id)) return other->parent_entity_id;
      }
      auto stored = D_Entity().Selectx(id);
      return stored->IsEOF() ? std::string() : Text(stored, "ParentEntityId");
    };
    if (template_checks::InParentLoop(e.id, parent_of)) {
      Refuse(e, reader_.Has(e, "ParentEntityID") ? "ParentEntityID" : "",
             "the dataset " + e.entity_name +
                 " is its own parent, or hangs below a loop of parent datasets: no root dataset "
                 "leads to it, so it would never be extracted");
    }
  }

  // Resolves `ref`, a reference of `record` (its `property`) to an item of the file, by the item's
  // id and then by its name (`name_of`): true when `ref` holds an item's id now, false when no
  // item has that id or name; several items of that name are refused as `ambiguous`.
  template <typename Item, typename NameOf>
  bool ResolveInFile(const Object& record, const char* property, std::string& ref,
                     const std::vector<std::shared_ptr<Item>>& items, NameOf name_of,
                     const std::string& ambiguous) const {
    for (const auto& item : items) {
      if (SameId(item->id, ref)) return true;
    }
    std::vector<const Item*> named;
    for (const auto& item : items) {
      if (text::EqualsNoCase(name_of(*item), ref)) named.push_back(item.get());
    }
    if (named.size() > 1) Refuse(record, property, ambiguous, engineerr::kExchangeAmbiguous);
    if (named.empty()) return false;
    ref = named.front()->id;
    return true;
  }

  void PlanParent(EntityRecord& e, const DataPageRecord& page) const {
    const std::string given = e.parent_entity_id;
    if (given.empty()) return;
    if (ResolveInFile(
            e, "ParentEntityID", e.parent_entity_id, page.entities->items,
            [](const EntityRecord& other) { return other.entity_name; },
            "several datasets of this datapage are named \"" + given +
                "\"; give the parent's id")) {
      return;
    }
    if (D_Entity().Selectx(given)->IsEOF()) {
      Refuse(e, "ParentEntityID",
             "the parent dataset \"" + given +
                 "\" is neither a dataset of this datapage nor one in the rules store");
    }
  }

  void PlanFields(EntityRecord& e) {
    std::vector<Named> stored;
    if (existing_[&e]) {
      for (auto rs = D_Entity().GetAttributes(e.id); !rs->IsEOF(); rs->MoveNext()) {
        stored.push_back({Text(rs, "A_Id"), Text(rs, "ColumnName")});
      }
    }
    for (const auto& a : e.attributes->items) {
      if (a->id.empty()) a->id = IdByName(*a, "ColumnName", a->column_name, stored, "field");
      Claim(field_ids_, *a, "Id", a->id, "field");
    }
  }

  void PlanCustomColumns(EntityRecord& e) {
    std::vector<long>& chosen = custom_columns_[&e];
    if (!reader_.Has(e, "SelectedMetaFields")) {
      chosen = defaults_;
      return;
    }
    for (const auto& mf : e.selected_meta_fields->items) {
      const CatalogueColumn* found = nullptr;
      for (const CatalogueColumn& c : catalogue_) {
        const bool match =
            mf->id != 0 ? c.id == mf->id : text::EqualsNoCase(c.column_name, mf->column_name);
        if (match) {
          found = &c;
          break;
        }
      }
      if (mf->id == 0 && mf->column_name.empty()) {
        Refuse(*mf, "", "a MetaField names its custom column by Id or ColumnName");
      }
      if (!found) {
        Refuse(*mf, mf->id != 0 ? "Id" : "ColumnName",
               "the rules store has no custom column " +
                   (mf->id != 0 ? std::to_string(mf->id) : "\"" + mf->column_name + "\""));
      }
      if (!mf->column_name.empty() && !text::EqualsNoCase(mf->column_name, found->column_name)) {
        Refuse(*mf, "ColumnName",
               "the custom column " + std::to_string(found->id) + " is " + found->column_name +
                   " in the rules store, not " + mf->column_name);
      }
      if (std::find(chosen.begin(), chosen.end(), found->id) != chosen.end()) {
        Refuse(*mf, "", "the custom column " + found->column_name + " is chosen twice");
      }
      chosen.push_back(found->id);
    }
  }

  void PlanJob(JobRecord& job, const std::vector<Named>& stored_jobs, const ExchangeFile& file) {
    if (job.job_id.empty()) {
      job.job_id = IdByName(job, "JobName", job.job_name, stored_jobs, "package");
    }
    Claim(job_ids_, job, "JobId", job.job_id, "package");
    CheckName(job, "JobName", job.job_name);
    existing_[&job] = !StoredJobId(job.job_id).empty();
    std::vector<Named> stored_tasks;
    if (existing_[&job]) {
      if (DJob().GetRunningInstances(job.job_id)->RecordCount() > 0) {
        Refuse(job, "", "the package \"" + job.job_name + "\" is running and cannot be replaced",
               engineerr::kExchangePackageRunning);
      }
      for (const std::string& id : Column(DJob().GetTasks(job.job_id, true), "TaskId")) {
        stored_tasks.push_back({id, Text(DTask().Selectx(id, true), "TaskName")});
      }
    }
    std::map<std::int32_t, const TaskRecord*> steps;
    for (const auto& t : job.tasks->items) {
      if (t->task_id.empty()) {
        t->task_id = IdByName(*t, "TaskName", t->task_name, stored_tasks, "task");
      }
      Claim(task_ids_, *t, "TaskId", t->task_id, "task");
      CheckName(*t, "TaskName", t->task_name);
      if (!steps.emplace(t->step, t.get()).second) {
        Refuse(*t, "Step",
               "the tasks \"" + steps[t->step]->task_name + "\" and \"" + t->task_name +
                   "\" have the same step " + std::to_string(t->step));
      }
      PlanTaskDataPage(*t, file);
      for (const auto& s : t->doc_sources->items) {
        if (s->doc_src_id.empty()) s->doc_src_id = CGUIDGen::NewGUID();
        Claim(source_ids_, *s, "DocSrcId", s->doc_src_id, "document source");
        if (s->source_type != 0 && s->source_type != 1) {
          Refuse(*s, "SourceType",
                 "the source type is " + std::to_string(s->source_type) +
                     "; it is 0 (a path or a list) or 1 (a query)");
        }
      }
    }
  }

  void PlanTaskDataPage(TaskRecord& t, const ExchangeFile& file) const {
    const std::string given = t.data_page_id;
    if (given.empty()) return;
    if (ResolveInFile(
            t, "DataPageId", t.data_page_id, file.data_pages->items,
            [](const DataPageRecord& p) { return p.display_name; },
            "several datapages of this file are named \"" + given + "\"")) {
      return;
    }
    if (std::string id = StoredDataPageId(given); !id.empty()) {
      t.data_page_id = id;
      return;
    }
    const std::vector<Named> all = StoredDataPages();
    const auto stored = WithName(all, given);
    if (stored.size() > 1) {
      Refuse(t, "DataPageId",
             "several stored datapages are named \"" + given + "\" (" + IdList(stored) + ")",
             engineerr::kExchangeAmbiguous);
    }
    if (stored.empty()) {
      Refuse(t, "DataPageId",
             "the datapage \"" + given + "\" is neither in this file nor in the rules store");
    }
    t.data_page_id = stored.front()->id;
  }

  // The date the file gives; none (an empty element, as an export writes a null); or, when the
  // file has no element for it, now for a new row and what an existing one holds.
  Variant DateArgument(const Object& record, const char* property, const DateTime& given,
                       bool existing) const {
    if (!given.IsEmpty()) return Variant(given);
    if (reader_.Has(record, property)) return Variant(kNull);
    return existing ? NoAction() : Variant(DateTime::Now());
  }

  // Runs the writes of one record; a failure keeps its number. One that the record caused gains
  // the record's place in the file; one of the rules database itself (read-only, full) is no
  // fault of the file and says so.
  template <typename F>
  void Store(const Object& record, F&& write) const {
    try {
      write();
    } catch (Error& e) {
      if (e.Number() == db::dberr::kStoreFault) {
        e.SetDescription("The rules database refused the import, and nothing was stored: " +
                         e.Description());
      } else {
        e.SetDescription(reader_.Where(record) + e.Description());
      }
      throw;
    }
  }

  void WriteDataPage(const DataPageRecord& page) {
    const bool existing = existing_[&page];
    Store(page, [&] {
      D_DataPage().Save(page.id, page.display_name, page.description, page.db_name,
                        DateArgument(page, "DateCreated", page.date_created, existing),
                        DateArgument(page, "DateModified", page.date_modified, existing));
      if (!existing) return;
      for (const std::string& id : Column(D_DataPage().GetEntities(page.id), "E_Id")) {
        if (!InFile(entity_ids_, id)) D_Entity().Delete(id);
      }
    });
    for (const auto& e : page.entities->items) {
      Store(*e, [&] {
        D_Entity().Save(e->id, page.id, e->entity_name, e->description,
                        EncipheredForm(e->db_conn_str), e->table_name, e->pk_column, e->init_string,
                        e->parent_entity_id, Variant(e->on_page_order),
                        Variant(e->is_pk_surrogate));
        if (existing_[e.get()]) {
          for (const std::string& id : Column(D_Entity().GetAttributes(e->id), "A_Id")) {
            if (!InFile(field_ids_, id)) D_Attrib().Delete(id);
          }
        }
        D_CustCols cols;
        cols.DelCustColsForEnt(e->id);
        for (long id : custom_columns_[e.get()]) cols.InsCustColForEnt(e->id, id);
      });
      for (const auto& a : e->attributes->items) {
        Store(*a, [&] {
          D_Attrib().Save(a->id, e->id, a->column_name, a->start_tag, a->end_tag, Variant(a->step),
                          Variant(a->is_pk), a->column_type, Variant(a->column_size),
                          Variant(a->is_optional));
        });
      }
    }
    imported.push_back({"datapage", page.id, page.display_name, !existing});
  }

  void WriteJob(const JobRecord& job) {
    const bool existing = existing_[&job];
    Store(job, [&] {
      DJob().Save(job.job_id, DateArgument(job, "DateCreated", job.date_created, existing),
                  DateArgument(job, "DateModified", job.date_modified, existing), job.job_name,
                  job.description);
      if (!existing) return;
      for (const std::string& id : Column(DJob().GetTasks(job.job_id, true), "TaskId")) {
        if (!InFile(task_ids_, id)) DTask().Delete(id);
      }
    });
    for (const auto& t : job.tasks->items) {
      Store(*t, [&] {
        DTask().Save(t->task_id, job.job_id, t->task_name, t->text_form, Variant(t->step),
                     Variant(t->display_src_type), Variant(t->throttle_wait_msecs),
                     t->data_page_id);
        DDocSource().DeleteAll(t->task_id);
      });
      for (const auto& s : t->doc_sources->items) {
        Store(*s, [&] {
          DDocSource().Save(s->doc_src_id, s->db_name, EncipheredForm(s->conn_str), t->task_id,
                            s->source, Variant(s->source_type));
        });
      }
    }
    imported.push_back({"package", job.job_id, job.job_name, !existing});
  }

  static bool InFile(const std::set<std::string>& ids, const std::string& id) {
    return ids.count(text::FoldCaseKey(id)) != 0;
  }

  const ObjectXmlReader& reader_;
  std::vector<CatalogueColumn> catalogue_;
  std::vector<long> defaults_;
  std::set<std::string> page_ids_, entity_ids_, field_ids_, job_ids_, task_ids_, source_ids_;
  std::map<const Object*, bool> existing_;
  std::map<const EntityRecord*, std::vector<long>> custom_columns_;
};

}  // namespace

std::vector<ImportedObject> Import(std::string_view xml, std::string_view file_name) {
  return ReportAs("Exchange.Import(xml,file_name)", Args(xml, file_name), [&] {
    ExchangeFile file;
    ObjectXmlReader reader(ValueEscape::Reversible);
    reader.Read(file, xml, file_name);
    RulesTransaction transaction;
    Importer importer(reader);
    importer.Plan(file);
    importer.Write(file);
    transaction.Commit();
    return std::move(importer.imported);
  });
}

}  // namespace gw::exchange
