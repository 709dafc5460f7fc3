// Internal to the template and package files (exchange.h): the records a file is made of, each a
// plain class with a property table, so that `XmlSerializer` writes a file and `ObjectXmlReader`
// reads it through one description. They hold what the rules store holds, column for column;
// they know nothing of the store.
//
// Element names are the names the business classes use (`DataPage`, `Entity`, `Attrib`,
// `MetaField`, `Job`, `Task`, `DocSource`), so a file reads like the objects it stands for. A
// collection's type name is the name of the property that holds it.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/date_time.h"
#include "platform/property_table.h"
#include "platform/variant.h"

namespace gw::exchange {

// A collection of records of one kind, named by the property that holds it.
template <typename Item>
class RecordList : public Object {
 public:
  explicit RecordList(std::string type_name) : type_name_(std::move(type_name)) {}
  std::string TypeName() const override { return type_name_; }
  const PropertyTable* GetPropertyTable() const override {
    static const PropertyTable table =
        PropertyTableBuilder<RecordList>("RecordList")
            .Members([](const RecordList& list) { return list.items; })
            .AddMethod("Add", [](RecordList& list) { return list.Add(); })
            .Build();
    return &table;
  }
  std::shared_ptr<Item> Add() { return items.emplace_back(std::make_shared<Item>()); }

  std::vector<std::shared_ptr<Item>> items;

 private:
  std::string type_name_;
};

// A field of a dataset (a row of `attributes`).
struct AttribRecord : Object {
  std::string TypeName() const override { return "Attrib"; }
  const PropertyTable* GetPropertyTable() const override;

  std::string id;
  std::string column_name;
  std::string start_tag;
  std::string end_tag;
  std::int16_t step = 0;
  bool is_pk = false;
  std::string column_type;  // the stored form: filter name and parameter
  std::int32_t column_size = 0;
  bool is_optional = false;
};

// A custom column chosen for a dataset: its id in the catalogue, and its column name (either
// names it).
struct MetaFieldRecord : Object {
  std::string TypeName() const override { return "MetaField"; }
  const PropertyTable* GetPropertyTable() const override;

  std::int32_t id = 0;  // 0: not given
  std::string column_name;
};

// A dataset (a row of `entities`) with its fields and its choice of custom columns.
struct EntityRecord : Object {
  std::string TypeName() const override { return "Entity"; }
  const PropertyTable* GetPropertyTable() const override;

  std::string id;
  std::string entity_name;
  std::string description;
  std::string db_conn_str;  // enciphered, as the rules store keeps it
  std::string table_name;
  std::string pk_column;
  bool is_pk_surrogate = false;
  std::string init_string;
  std::int16_t on_page_order = 0;
  std::string parent_entity_id;
  std::shared_ptr<RecordList<AttribRecord>> attributes =
      std::make_shared<RecordList<AttribRecord>>("Attributes");
  std::shared_ptr<RecordList<MetaFieldRecord>> selected_meta_fields =
      std::make_shared<RecordList<MetaFieldRecord>>("SelectedMetaFields");
};

// A datapage (a row of `datapages`) with its datasets.
struct DataPageRecord : Object {
  std::string TypeName() const override { return "DataPage"; }
  const PropertyTable* GetPropertyTable() const override;

  std::string id;
  std::string display_name;
  std::string description;
  std::string db_name;
  DateTime date_created;
  DateTime date_modified;
  std::shared_ptr<RecordList<EntityRecord>> entities =
      std::make_shared<RecordList<EntityRecord>>("Entities");
};

// A document source of a task (a row of `doc_locations`).
struct DocSourceRecord : Object {
  std::string TypeName() const override { return "DocSource"; }
  const PropertyTable* GetPropertyTable() const override;

  std::string doc_src_id;
  std::int32_t source_type = 0;  // 0 a path or list, 1 a query
  std::string source;
  std::string conn_str;  // enciphered, as the rules store keeps it
  std::string db_name;
};

// A task (a row of `tasks`): its columns, its text form as stored, and its document sources.
struct TaskRecord : Object {
  std::string TypeName() const override { return "Task"; }
  const PropertyTable* GetPropertyTable() const override;

  std::string task_id;
  std::string task_name;
  std::int32_t step = 0;
  std::int32_t display_src_type = 0;
  std::int32_t throttle_wait_msecs = 0;
  std::string data_page_id;  // in a file: the id or display name of a datapage
  std::string text_form;     // the `description` column
  std::shared_ptr<RecordList<DocSourceRecord>> doc_sources =
      std::make_shared<RecordList<DocSourceRecord>>("DocSources");
};

// A package (a row of `jobs`) with its tasks.
struct JobRecord : Object {
  std::string TypeName() const override { return "Job"; }
  const PropertyTable* GetPropertyTable() const override;

  std::string job_id;
  std::string job_name;
  std::string description;
  DateTime date_created;
  DateTime date_modified;
  std::shared_ptr<RecordList<TaskRecord>> tasks = std::make_shared<RecordList<TaskRecord>>("Tasks");
};

// A whole file.
struct ExchangeFile : Object {
  static constexpr std::int32_t kFormatVersion = 1;
  std::string TypeName() const override { return "GleanwrightExport"; }
  const PropertyTable* GetPropertyTable() const override;

  std::int32_t format_version = kFormatVersion;
  std::shared_ptr<RecordList<DataPageRecord>> data_pages =
      std::make_shared<RecordList<DataPageRecord>>("DataPages");
  std::shared_ptr<RecordList<JobRecord>> jobs = std::make_shared<RecordList<JobRecord>>("Jobs");
};

}  // namespace gw::exchange
