#include "extraction/data_page.h"

#include "extraction/entity_internal.h"
#include "extraction/failures.h"
#include "extraction/internal.h"
#include "extraction/text_search.h"
#include "infra/c_guid_gen.h"
#include "platform/db/driver.h"
#include "platform/db/write_batch.h"
#include "platform/event_loop.h"
#include "platform/report_connection_string.h"
#include "rules/stored_row.h"
#include "rules/template_data_access.h"

namespace gw {

namespace {

constexpr std::string_view kExtractLogName =
    "DataPage.Extract(SrcHTML,UseTmpTbls,StaticColumns,OverrideDBConnStr,UniqueTblPrefix)";

// Re-raises a root dataset's events on the datapage while it cuts its row.
class PageRelay {
 public:
  PageRelay(DataPage*& slot, DataPage* page) : slot_(slot) { slot_ = page; }
  PageRelay(const PageRelay&) = delete;
  PageRelay& operator=(const PageRelay&) = delete;
  ~PageRelay() { slot_ = nullptr; }

 private:
  DataPage*& slot_;
};

}  // namespace

DataPage::DataPage() : id_(CGUIDGen::NewGUID()) {}

DataPage::~DataPage() = default;

std::shared_ptr<DataPage> DataPage::Create() {
  std::shared_ptr<DataPage> page(new DataPage());
  page->entities_.SetDataPage(page);
  page->root_entities_.SetDataPage(page);
  return page;
}

bool DataPage::Save() {
  return ReportAs("DataPage.Save", [&] {
    D_DataPage().Save(id_, display_name_, description_, db_name_, date_created_, date_modified_);
    is_dirty_ = false;
    return true;
  });
}

bool DataPage::Load(std::string_view Id) {
  return ReportAs("DataPage.Load(Id)", Args(Id), [&] {
    auto rs = D_DataPage().Selectx(std::string(Id));
    const StoredRow row(*rs, MissingRow(exerr::kNoSuchDataPage, "DataPage.Load", "Datapage"),
                        DuplicateRow(exerr::kDuplicateDataPage, "Datapage.Load", "DataPage"));
    row.Take("DP_Id", [&](const Variant& v) { id_ = v.ToString(); });
    row.Take("DisplayName", [&](const Variant& v) { display_name_ = v.ToString(); });
    row.Take("Description", [&](const Variant& v) { description_ = v; });
    row.Take("DBName", [&](const Variant& v) { db_name_ = v.ToString(); });
    row.Take("DateCreated", [&](const Variant& v) { date_created_ = v.ToDate(); });
    row.Take("DateModified", [&](const Variant& v) { date_modified_ = v.ToDate(); });
    // The datasets are read again from the store when they are next used.
    entities_.Clear();
    root_entities_.Clear();
    is_stored_ = true;
    entities_loaded_ = roots_loaded_ = false;
    is_dirty_ = false;
    return true;
  });
}

Entities& DataPage::GetEntities() {
  if (is_stored_ && !entities_loaded_ && !id_.empty()) {
    ReportAs("DataPage.Entities", [&] {
      entities_.AddLoaded(LoadStoredEntities(D_DataPage().GetEntities(id_)));
      entities_loaded_ = true;
    });
  }
  return entities_;
}

Entities& DataPage::RootEntities() {
  if (is_stored_ && !roots_loaded_) SetRootEntitiesFromDB();
  return root_entities_;
}

void DataPage::SetRootEntitiesFromDB() {
  ReportAs("DataPage.SetRootEntitiesFromDB", [&] {
    auto roots = LoadStoredEntities(D_DataPage().GetRootEntities(id_));
    root_entities_.Clear();
    root_entities_.AddLoaded(roots);
    roots_loaded_ = true;
  });
}

long DataPage::GetEntityPageOrder(std::string_view EntityId) const {
  const long* count = extracted_entity_counts_.Find(EntityId);
  return count ? *count : 0;
}

void DataPage::IncrementEntityPageOrder(std::string_view EntityId) {
  extracted_entity_counts_.Item(EntityId) += 1;
}

void DataPage::SetExtractedEntityCounts(Dictionary<long> counts) {
  extracted_entity_counts_ = std::move(counts);
}

std::shared_ptr<db::Recordset> DataPage::Extract(
    std::string& SrcHTML, bool UseTmpTbls, const std::shared_ptr<db::Recordset>& StaticColumns,
    std::string_view OverrideDBConnStr, std::string_view UniqueTblPrefix) {
  // The page is moved in and every dataset cuts views into it; what is left is moved back out.
  PageText text(SrcHTML);
  const std::string_view page = text.Whole();
  std::string_view& rest = text.Rest();
  // Rows of this document share one connection and one transaction per store; every row is
  // committed when the document ends, also when a failure ends it.
  db::WriteBatch batch;
  try {
    // The page's text is taken over: its rest is what the report shows.
    ReportAs(kExtractLogName,
             Args(rest, UseTmpTbls, StaticColumns, AsConnectionString(OverrideDBConnStr),
                  UniqueTblPrefix),
             [&] {
               extracted_entity_counts_ = Dictionary<long>();
               OnExtractionBegin.Emit();
               bool cancel = false;
               OnStatusChange.Emit("Extracting " + (doc_ ? doc_->SourceUri() : display_name_),
                                   cancel);
               if (cancel) return;

               Entities& roots = RootEntities();
               const MetaDocPtr meta = doc_ ? doc_->Metadata() : nullptr;
               if (meta) {
                 meta->SetExtractionStart(DateTime::Now());
                 roots.InitMetadata(meta);
               }
               const PageScan scan =
                   PageScan::Begin(page, row_sink_ ? row_sink_.get() : &DefaultRowSink());
               const long progress_max = roots.GetOccurCounts(rest);
               long position = 0;
               EntityPtr next = FirstInStr(roots, rest, position, &scan);
               while (next) {
                 DoEvents();
                 const std::size_t before = rest.size();
                 long after = 0;
                 {
                   PageRelay relay(next->relay_page_, this);
                   next->ExtractRow(scan, rest, UseTmpTbls, OverrideDBConnStr, UniqueTblPrefix, 0,
                                    &after);
                 }
                 // Progress guard: a dataset that consumed nothing loses the first character of its
                 // occurrence, so the next pass cannot find it again at the same place.
                 if (rest.size() == before) rest = DropFirstCharacter(rest, after);
                 if (StaticColumns) ApplyStaticColumns(*StaticColumns, *next);
                 next = FirstInStr(roots, rest, position, &scan);
                 OnProgressChange.Emit(1, progress_max);
                 DoEvents();
               }
               if (meta) meta->SetExtractionComplete(DateTime::Now());
               batch.Commit();
               // Stores that buffer appended rows (workbooks) write this document's rows now.
               db::FlushBufferedStores();
               OnExtractionComplete.Emit();
             });
  } catch (...) {
    try {
      db::FlushBufferedStores();
    } catch (const Error&) {
      // The failure that ends the document is the one to report.
    }
    throw;
  }
  return nullptr;
}

void DataPage::ApplyStaticColumns(db::Recordset& static_columns, Entity& entity) {
  // Failures here do not unwind; the last one is kept.
  try {
    static_columns.RecordCount();
  } catch (const Error&) {
    return;
  }
  try {
    // One forward pass over the rows that name this dataset.
    const std::string criterion = "EntityId = " + entity.Id();
    static_columns.MoveFirst();
    for (static_columns.Find(criterion, 0, db::SearchDirection::Forward);
         !static_columns.IsEOF() && !static_columns.IsBOF();
         static_columns.Find(criterion, 1, db::SearchDirection::Forward)) {
      const std::string column = static_columns["ColumnName"].Value().ToText();
      try {
        const auto& row = entity.Extraction();
        if (!row) ThrowObjectNotSet("DataPage.Extract");
        row->GetFields().Item(column).SetValue(static_columns["Value"].Value());
      } catch (const Error& e) {
        static_failure_ =
            Status(exerr::kColumnRefused, "DataPage.Extract",
                   "The Column specified by the Static Field " + column +
                       " does not exist in the specified data store or " + e.Description());
      }
    }
  } catch (const Error& e) {
    static_failure_ = Status::FromError(e);
  }
}

}  // namespace gw
