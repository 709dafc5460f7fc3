// Datapages: extraction templates, and the driver that turns a page's text into rows.
//
// `DataPage.Extract` asks which root dataset's initialization string comes next in what is left
// of the page, lets that dataset cut one row (its children follow inside that call), applies the
// static columns, and goes on until no root dataset finds its string. It guarantees progress: a
// dataset that consumed nothing loses the first character of its occurrence. It reports progress
// by events and reads cancellation once, at the first status event.
//
// The page is cut in place: `Extract` moves the caller's text in, hands every dataset a view into
// it, and moves what is left back out at the end, so a page is never copied per row.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "extraction/entity.h"
#include "extraction/row_sink.h"
#include "extraction/token_type.h"
#include "meta/meta_doc.h"
#include "platform/collection.h"
#include "platform/date_time.h"
#include "platform/db/recordset.h"
#include "platform/signal.h"
#include "platform/variant.h"

namespace gw {

// The document a datapage is extracting: its address and its run metadata. The package engine's
// document implements it; a design-time host may supply its own.
class IDoc {
 public:
  virtual ~IDoc() = default;
  virtual std::string SourceUri() const = 0;
  // The document's metadata; may be null.
  virtual MetaDocPtr Metadata() = 0;
};

// A document known by its address alone, with metadata of its own: a local file or a page that
// no package run fetched.
class PlainDoc : public IDoc {
 public:
  explicit PlainDoc(std::string uri) : uri_(std::move(uri)) {}
  std::string SourceUri() const override { return uri_; }
  MetaDocPtr Metadata() override { return meta_; }

 private:
  std::string uri_;
  MetaDocPtr meta_ = MetaDoc::Create();
};

class DataPage : public Object {
 public:
  static std::shared_ptr<DataPage> Create();
  ~DataPage() override;
  std::string TypeName() const override { return "DataPage"; }

  // Cuts rows out of `SrcHTML` until no root dataset's initialization string is left; `SrcHTML`
  // comes back as what no dataset took (it is empty while this runs: handlers must not use it).
  // `StaticColumns` (columns `EntityId`, `ColumnName`, `Value`) gives fixed values to the row of
  // the dataset it names; they are set on `Entity.Extraction` of every row of that dataset after
  // the row was written, and are not written to the target. The result is always null. Faults
  // unwind with the log name
  // "DataPage.Extract(SrcHTML,UseTmpTbls,StaticColumns,OverrideDBConnStr,UniqueTblPrefix)".
  std::shared_ptr<db::Recordset> Extract(
      std::string& SrcHTML, bool UseTmpTbls,
      const std::shared_ptr<db::Recordset>& StaticColumns = nullptr,
      std::string_view OverrideDBConnStr = {}, std::string_view UniqueTblPrefix = {});

  // Makes the target database and every dataset's table, roots first and each with its
  // descendants. With `OverrideConnStr` every dataset's table goes there (the database is made
  // first and its connection string is the result); without, each dataset's own `DBConnStr` is
  // used and the result is "". `OverrideDBName` replaces `DBName`. With `UseTmpTbls` the datasets
  // are kept, and with them their temporary tables, until the next `CreateDB` or the page's end.
  // Reports under "DataPage.CreateDB(UseTmpTbls,OverrideConnStr,OverrideDBName,UniqueTblPrefix)".
  std::string CreateDB(bool UseTmpTbls, std::string_view OverrideConnStr = {},
                       std::string_view OverrideDBName = {}, std::string_view UniqueTblPrefix = {});
  // Raises 0x8088D1B1 for a page without datasets, 0x808BDEF1 for one without an id (source
  // "Datapage.Validate"), then validates every root dataset.
  void Validate();

  // All datasets of the page, and those without a parent, in their order.
  Entities& GetEntities();
  Entities& RootEntities();

  bool Unload() { return false; }
  // Writes the datapage's row (not its datasets) through `D_DataPage`; clears `IsDirty`.
  bool Save();
  // Reads the datapage: failure 0x8004285C when there is no row, 0x8004285D when there are
  // several; columns are taken only when not null. Its datasets load from the store on first use
  // (`Entities`, `RootEntities`). Clears `IsDirty`.
  bool Load(std::string_view Id);

  const Variant& Description() const { return description_; }
  void SetDescription(Variant value) { SetProperty(description_, std::move(value), is_dirty_); }
  const std::string& DisplayName() const { return display_name_; }
  void SetDisplayName(std::string value) {
    SetProperty(display_name_, std::move(value), is_dirty_);
  }
  const std::string& DBName() const { return db_name_; }
  void SetDBName(std::string value) { SetProperty(db_name_, std::move(value), is_dirty_); }
  const DateTime& DateCreated() const { return date_created_; }
  const DateTime& DateModified() const { return date_modified_; }
  const std::string& Id() const { return id_; }
  bool IsDirty() const { return is_dirty_; }
  // The owning step (a back reference).
  ObjectPtr GetTask() const { return task_.lock(); }
  void SetTask(const ObjectPtr& task) { task_ = task; }

  // Rows so far on this page of the dataset `EntityId`; 0 when it has none.
  long GetEntityPageOrder(std::string_view EntityId) const;
  void IncrementEntityPageOrder(std::string_view EntityId);
  const Dictionary<long>& ExtractedEntityCounts() const { return extracted_entity_counts_; }
  void SetExtractedEntityCounts(Dictionary<long> counts);

  const std::shared_ptr<IDoc>& Doc() const { return doc_; }
  void SetDoc(std::shared_ptr<IDoc> doc) { doc_ = std::move(doc); }
  const std::string& DocType() const { return doc_type_; }
  void SetDocType(std::string value) { doc_type_ = std::move(value); }

  // (ChangeAmount, ProgressMax): 1 per row, against the number of root occurrences.
  Signal<long, long> OnProgressChange;
  // (CurrentStatus, flgCancel): a handler sets flgCancel to stop the page before it starts.
  Signal<const std::string&, bool&> OnStatusChange;
  Signal<> OnExtractionComplete;
  Signal<> OnExtractionBegin;
  // The events of the root dataset cutting its row, re-raised one to one.
  Signal<std::string_view, std::string_view, TokenTypeEnum, long, std::string_view,
         std::string_view, std::string_view>
      OnParserAction;

  // Where the rows of this page's datasets go, unless a dataset has a sink of its own; unset,
  // `DefaultRowSink()`.
  void SetRowSink(std::shared_ptr<RowSink> sink) { row_sink_ = std::move(sink); }
  const std::shared_ptr<RowSink>& GetRowSink() const { return row_sink_; }

  void SetId(std::string value) { id_ = std::move(value); }
  // Drops the target database (`Database.Drop`) named by `OverrideDBName`, or by `DBName`.
  void DropDB(std::string_view DBConnStr, std::string_view OverrideDBName = {});
  // Empties the table of every dataset of the page.
  void DeleteExistingTableData();

 private:
  DataPage();
  // Reads the root datasets afresh from the rules store.
  void SetRootEntitiesFromDB();
  void ApplyStaticColumns(db::Recordset& static_columns, Entity& entity);

  std::string id_;
  std::string display_name_;
  Variant description_;
  std::string db_name_;
  DateTime date_created_;
  DateTime date_modified_;
  Entities entities_;
  Entities root_entities_;
  std::weak_ptr<Object> task_;
  std::shared_ptr<IDoc> doc_;
  std::string doc_type_;
  Dictionary<long> extracted_entity_counts_;
  bool is_dirty_ = false;
  bool is_stored_ = false;  // loaded from the rules store: datasets load from it on first use
  bool roots_loaded_ = false;
  bool entities_loaded_ = false;
  std::shared_ptr<RowSink> row_sink_;
  Status static_failure_;  // the last failure of the static columns; it does not unwind
  // The roots that `CreateDB` made temporary tables for, kept so that the tables last.
  std::vector<EntityPtr> temporary_roots_;
};

}  // namespace gw
