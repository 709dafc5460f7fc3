// Datasets: one table of rows that a page yields.
//
// An `Entity` has an initialization string (`InitString`) whose every occurrence in a page opens a
// row, and ordered fields (`Attributes`). One call of `Extract` cuts one row out of the text it is
// given: the row runs from the initialization string to its next occurrence (or to the end of the
// text); the best skip map decides which optional fields the row leaves out; the fields consume
// the row's text one after the other; the row goes to the row sink; then the children on the page
// take their rows from what follows, until the next root row begins. The text comes back as what
// the row left.
//
// A row is written even if every field failed. It is lost only when a field's column is not in
// the table (pending failure 0xAADF6878) or when the target refuses `Update` (0x86249EDD). Those
// failures, and the fields' missing tags, do not unwind: they count as errors in `Metadata` and
// the last one is kept in `PendingFailure`. Other faults (no connection string, a table that
// cannot be opened, too many optional fields) unwind with the log name
// "Entity.Extract(SrcHTML,UseTmpTbls,OverrideConnStr,UniqueTblPrefix)".
//
// Ownership: an entity holds its fields and children; its `DataPage` and `ParentEntity` are back
// references that do not keep their owners alive, so the caller keeps the datapage alive while its
// entities work. Build a tree top-down: add a root to its datapage's `RootEntities` before adding
// children to the root's `ChildrenOnPage`, so that every child knows its datapage.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "extraction/attrib.h"
#include "extraction/owner_link.h"
#include "extraction/row_sink.h"
#include "extraction/skip_map.h"
#include "extraction/text_search.h"
#include "extraction/token_type.h"
#include "meta/meta_doc.h"
#include "meta/meta_entity.h"
#include "meta/meta_field.h"
#include "platform/collection.h"
#include "platform/db/recordset.h"
#include "platform/error.h"
#include "platform/signal.h"
#include "targets/table_description.h"
#include "targets/tbl.h"

namespace gw {

class DataPage;
class Entity;

using EntityPtr = std::shared_ptr<Entity>;

// A keyed collection of datasets, linked to the dataset whose children it holds and to a datapage.
class Entities : public CollectionOf<EntityPtr> {
 public:
  // The number of occurrences of every dataset's initialization string in `SrcText`, each stored
  // as that dataset's `Metadata.OccurCount`; the result is the sum of the stored counts.
  long GetOccurCounts(std::string_view SrcText);
  // Adds `entity` (under `sKey` when not empty). When the collection has a parent dataset, the
  // entity's `ParentEntity` becomes it; when it has a datapage (its own, or its parent's), the
  // entity's `DataPage` becomes that.
  EntityPtr Add(EntityPtr entity, std::string_view sKey = {});
  EntityPtr ParentEntity() const { return parent_.lock(); }
  std::shared_ptr<DataPage> GetDataPage() const;
  void Clear() { items_.Clear(); }

 private:
  friend class DataPage;
  friend class Entity;
  // Clears every dataset's `Metadata`.
  void ResetMetadata();
  // `ResetMetadata`, then registers every dataset's (new) `Metadata` with `prmMetaDoc`, replacing
  // a registration of the same id. Fails with 91 when there is a dataset and no document.
  void InitMetadata(const MetaDocPtr& prmMetaDoc);
  void SetParentEntity(const std::weak_ptr<Entity>& parent) { parent_ = parent; }
  void SetDataPage(const std::weak_ptr<DataPage>& page) { page_ = page; }
  // Adds datasets read from the rules store, each keyed by its id, and leaves them clean.
  void AddLoaded(const std::vector<EntityPtr>& loaded);

  std::weak_ptr<Entity> parent_;
  std::weak_ptr<DataPage> page_;
};

class Entity : public Object {
 public:
  static EntityPtr Create();
  ~Entity() override;
  std::string TypeName() const override { return "Entity"; }

  // Cuts one row out of `SrcHTML` and hands back what the row left (see the file comment).
  // `OverrideConnStr` replaces `DBConnStr` when not empty; `UniqueTblPrefix` goes before the
  // table name; `UseTmpTbls` addresses the temporary table "##" + table. `ParentOrderOnPage` above
  // 0 is recorded in `Metadata`. `SrcLengthAfterFindingInitString` receives the length of the
  // text from the row's initialization string on. The result is always null: the row is reached
  // through `Extraction`. `SrcHTML` is empty while this runs.
  std::shared_ptr<db::Recordset> Extract(std::string& SrcHTML, bool UseTmpTbls,
                                         std::string_view OverrideConnStr = {},
                                         std::string_view UniqueTblPrefix = {},
                                         long ParentOrderOnPage = 0,
                                         long* SrcLengthAfterFindingInitString = nullptr);

  // Makes the target database (on demand) and this dataset's table, after its parent's and before
  // its children's (see `Tbl` for what each store gets). Without overrides, `DBConnStr` takes the
  // connection string the database was made under. With `UseTmpTbls` the temporary tables live as
  // long as this dataset. A failure unwinds with "Error creating table for <datapage>.<dataset>:"
  // in front of its description, under the log name
  // "Entity.CreateTable(UseTmpTbls,OverrideConnStr,OverrideDBName,UniqueTblPrefix)".
  bool CreateTable(bool UseTmpTbls, std::string_view OverrideConnStr = {},
                   std::string_view OverrideDBName = {}, std::string_view UniqueTblPrefix = {});
  // Raises the first problem that would stop extraction (numbers 0x8524E4F5 to 0x8524E4FA, source
  // "Entity.Validate"): no datapage, initialization string, fields, connection string or table
  // name; a table that cannot be created (a provider that cannot create tables, 0xBCD023A1, is no
  // problem); a store or table that cannot be opened. Creates the table as a side effect.
  void Validate();
  // The checks of `Validate` that need no target: names without control characters, an
  // initialization string, fields that write different columns and none that a custom column
  // fills, filters that exist, and no loop of parents (see template_checks.h). Source
  // "Entity.Validate". `DataPage.Validate` runs them on every dataset, children included.
  void ValidateTemplate();
  bool Transform() { return true; }
  bool DisownChild(const EntityPtr&) { return false; }
  bool AdoptChild(const EntityPtr&) { return false; }
  bool Unload() { return false; }
  // Writes the dataset through `D_Entity` (the connection string enciphered; in clear when it
  // cannot be), then its choice of custom columns; clears `IsDirty`. A dataset whose choice was
  // never set, loaded or filled stores the default choice (`LoadDefaultMetaFields`).
  bool Save();
  // Reads the dataset: failure 0x80040412 when there is no row, 0x80040413 when there are
  // several. Columns are taken only when not null; a connection string that does not decipher (or
  // deciphers to nothing) is kept as stored. Then its custom columns; clears `IsDirty`. Fields and
  // children load from the store on first use.
  bool Load(std::string_view Id);
  // Removes the row (the store takes its fields and column choice) and takes the dataset out of
  // its datapage's `Entities` and `RootEntities`.
  void Delete();

  bool IsParentOnPage() const { return false; }
  // An empty recordset with a column per selected metadata field.
  std::shared_ptr<db::Recordset> CustomColumns();
  // Run counters, made on first use with this dataset's id.
  MetaEntityPtr Metadata();
  Entities& AllChildren();
  Entities& ChildrenOnPage();
  Attributes& GetAttributes();
  // The recordset of the last row that was written (made from the kept row on first ask).
  const std::shared_ptr<db::Recordset>& Extraction() const;
  // "" without a connection string; otherwise the provider the connection string names.
  std::string DataProviderName() const;
  // The first field that is the key, or null.
  AttribPtr PKAttribute();
  // The datapage. Without one, a new `DataPage` is made and kept (loaded by `DatapageId` when
  // that is set, otherwise `DatapageId` takes its id).
  std::shared_ptr<DataPage> GetDataPage();
  const MetaFieldsPtr& SelectedMetaFields() const { return selected_meta_fields_; }
  const std::string& Id() const { return id_; }
  bool IsDirty() const { return is_dirty_; }

  bool IsPKSurrogate() const { return is_pk_surrogate_; }
  // Setting true first takes the key from the key field.
  void SetIsPKSurrogate(bool value);
  std::int16_t OnPageOrder() const { return on_page_order_; }
  void SetOnPageOrder(std::int16_t value) { SetProperty(on_page_order_, value, is_dirty_); }
  const std::string& EntityName() const { return entity_name_; }
  void SetEntityName(std::string value) { SetProperty(entity_name_, std::move(value), is_dirty_); }
  const std::string& Description() const { return description_; }
  void SetDescription(std::string value) { SetProperty(description_, std::move(value), is_dirty_); }
  const std::string& InitString() const { return init_finder_.Needle(); }
  void SetInitString(std::string_view value);
  const std::string& PKColumn() const { return pk_column_; }
  void SetPKColumn(std::string value) { SetProperty(pk_column_, std::move(value), is_dirty_); }
  const std::string& TableName() const { return table_name_; }
  void SetTableName(std::string value) { SetProperty(table_name_, std::move(value), is_dirty_); }
  const std::string& DBConnStr() const { return db_conn_str_; }
  void SetDBConnStr(std::string value) { SetProperty(db_conn_str_, std::move(value), is_dirty_); }
  // The parent; loaded by `ParentEntityID` when it is set and no object is.
  EntityPtr ParentEntity();
  void SetParentEntity(const EntityPtr& parent);
  const std::string& ParentEntityID() const { return parent_entity_id_; }
  const std::string& DatapageId() const { return datapage_id_; }

  // (EntityName, AttribName, TokenType, StartIndex, TokenValue, SourceText, message): raised for
  // every row found (`EntityInit`, also at position 0), and re-raised for every event of the field
  // that is cutting the real row (never for the trials of the skip-map search).
  Signal<std::string_view, std::string_view, TokenTypeEnum, long, std::string_view,
         std::string_view, std::string_view>
      OnParserAction;

  // Where this dataset's rows go. Unset, rows go to the datapage's sink, and without one to
  // `DefaultRowSink()`.
  void SetRowSink(std::shared_ptr<RowSink> sink) { row_sink_ = std::move(sink); }
  const std::shared_ptr<RowSink>& GetRowSink() const { return row_sink_; }
  // The failure the last row left pending (number 0 when none): a field's missing tag, a missing
  // column, a refused value or a refused `Update`.
  const Status& PendingFailure() const { return pending_; }

  // Empties this dataset's table (`Tbl.DeleteAllRows` on `DBConnStr`).
  void DeleteExistingTableData();
  void SetDatapageId(std::string value) { SetProperty(datapage_id_, std::move(value), is_dirty_); }
  void SetParentEntityID(std::string value) {
    SetProperty(parent_entity_id_, std::move(value), is_dirty_);
  }
  void SetSelectedMetaFields(MetaFieldsPtr fields);

 private:
  friend class Attrib;
  friend class DataPage;
  friend class Entities;
  Entity();

  // What the extraction library's own code uses: the datapage and the fields reach these, and
  // the row searches and the skip-map search of entity_internal.h.
  friend std::string_view CurrentRowText(const Entity& entity, std::string_view SrcText,
                                         const PageScan* scan);
  friend float TrySkipMap(Entity& entity, const SkipMap& skip_map, std::string_view SrcText);
  friend EntityPtr FirstInStr(const Entities& entities, std::string_view SrcHTML, long& position,
                              const PageScan* scan);

  // One row, on a view into the page that `scan` names: `SrcHTML` moves forward.
  void ExtractRow(const PageScan& scan, std::string_view& SrcHTML, bool UseTmpTbls,
                  std::string_view OverrideConnStr, std::string_view UniqueTblPrefix,
                  long ParentOrderOnPage, long* SrcLengthAfterFindingInitString);
  // Lets the children on the page take their rows from `sSrcHTML`, in page order, until the
  // next root row begins.
  void ExtractChildEntities(const PageScan& scan, std::string_view& sSrcHTML, bool overridden,
                            bool UseTmpTbls, std::string_view CnStr,
                            std::string_view UniqueTblPrefix);
  // Writes the selected metadata fields into the row's columns of the same (case-sensitive)
  // name, cut to the column's width; fields without a column are passed over.
  void FillRSMetaFields(SinkRow& row);
  static bool IsFieldInRecordset(std::string_view FieldName, SinkRow& row);
  // The occurrences of `InitString` in `Text`, overlapping ones included, counted as
  // `CString.GetFindCount` counts (no limit).
  long GetOccurCount(std::string_view Text) const;
  // What the target store needs to build this dataset's table. Probes the parent as
  // `CreateTable` does; a parent whose key is a field that no field of the parent carries fails
  // with 91.
  TableDescription DescribeTable();
  void SetMetadata(MetaEntityPtr metadata) { metadata_ = std::move(metadata); }
  void SetDataPage(const std::shared_ptr<DataPage>& page);
  // `SelectedMetaFields` from the rules store: the columns selected by default, or those stored
  // for this dataset. A dataset made in memory starts with none, so that extraction needs no
  // rules store.
  void LoadDefaultMetaFields();
  void LoadSelectedMetaFields();
  void SetId(std::string value) { id_ = std::move(value); }
  void SetExtraction(std::shared_ptr<db::Recordset> rs) {
    extraction_ = std::move(rs);
    written_.Clear();
  }
  // The datapage if one is set or was made, without making one.
  std::shared_ptr<DataPage> DataPageIfSet() const;

  // The pieces of `ExtractRow`, in their order (row.cpp).
  struct RowTarget {
    std::string cn_str;       // after the datapage's database and the MySQL repair
    std::string table;        // with the prefix, and "##" in front for a temporary table
    bool overridden = false;  // the connection string was the caller's
  };
  // Where the row goes. Fails with 0xB7268F58 without a connection string.
  RowTarget ResolveTarget(std::string_view OverrideConnStr, std::string_view UniqueTblPrefix,
                          bool UseTmpTbls);
  // `text` from the row's initialization string on (all of it when there is none), after raising
  // `EntityInit` with the position (0 when there is none).
  std::string_view FindRowStart(const PageScan& scan, std::string_view text);
  // Cuts the fields of `row_text` into `row`, leaving out those `skip_map` skips, each failure
  // classified (`ClassifyFieldFailure`), kept pending and counted in `meta`. False when the row
  // is lost.
  bool CutFields(std::string_view& row_text, const SkipMap& skip_map, SinkRow& row,
                 MetaEntity& meta);
  // One field's value into its column, cut to the column's width unless the field's size is
  // negative. Returns the field's soft failure or the target's refusal; never unwinds for those.
  Status CutField(Attrib& field, std::string_view& row_text, SinkRow& row);
  // The metadata columns, then `Update`. False, with the refusal pending, when the target
  // refuses the row; true when it was written (it is then `Extraction`).
  bool WriteRow(SinkRow& row, MetaEntity& meta);

  void RaiseParserAction(std::string_view attrib_name, TokenTypeEnum type, long start_index,
                         std::string_view value, std::string_view source, std::string_view message);
  // True when someone listens to this dataset's events (or to its datapage's, while it relays).
  bool HasParserListeners() const;
  // Re-raises an event of the field that is cutting the real row.
  void RelayFieldAction(std::string_view attrib_name, TokenTypeEnum type, long start_index,
                        std::string_view value, std::string_view source, std::string_view message) {
    RaiseParserAction(attrib_name, type, start_index, value, source, message);
  }

  std::string id_;
  OwnerLink<DataPage> page_;
  std::string datapage_id_;
  std::string entity_name_;
  std::string description_;
  std::string db_conn_str_;
  std::string table_name_;
  std::string pk_column_;
  bool is_pk_surrogate_ = false;
  InitStringFinder init_finder_;
  std::int16_t on_page_order_ = 0;
  std::string parent_entity_id_;
  std::weak_ptr<Entity> parent_;
  std::shared_ptr<Entity> own_parent_;  // loaded by `ParentEntity`
  Attributes attributes_;
  Entities all_children_;
  Entities children_on_page_;
  // The last row written, and the recordset made of it once `Extraction` was asked for it.
  WrittenRow written_;
  mutable std::shared_ptr<db::Recordset> extraction_;
  MetaEntityPtr metadata_;
  MetaFieldsPtr selected_meta_fields_;
  bool is_dirty_ = false;
  bool is_stored_ = false;  // loaded from the rules store: children load from it on first use
  bool attributes_loaded_ = false;
  bool children_loaded_ = false;      // ChildrenOnPage
  bool all_children_loaded_ = false;  // AllChildren
  bool meta_fields_set_ = false;      // SelectedMetaFields was set, loaded or defaulted
  std::shared_ptr<RowSink> row_sink_;
  Status pending_;
  // The datapage re-raising this dataset's events while it cuts a root row.
  DataPage* relay_page_ = nullptr;
  // Keeps the temporary tables made by `CreateTable` alive while this dataset lives.
  std::shared_ptr<Tbl> temporary_tables_;
};

}  // namespace gw
