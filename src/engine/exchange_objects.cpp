#include "engine/exchange_objects.h"

namespace gw::exchange {

namespace {
// A getter for a collection member of a record.
template <typename R, typename L>
auto ListOf(std::shared_ptr<L> R::*member) {
  return [member](const R& r) { return r.*member; };
}
}  // namespace

const PropertyTable* AttribRecord::GetPropertyTable() const {
  static const PropertyTable table = PropertyTableBuilder<AttribRecord>("Attrib")
                                         .Member("Id", &AttribRecord::id)
                                         .Member("ColumnName", &AttribRecord::column_name)
                                         .Member("StartTag", &AttribRecord::start_tag)
                                         .Member("EndTag", &AttribRecord::end_tag)
                                         .Member("Step", &AttribRecord::step)
                                         .Member("IsPK", &AttribRecord::is_pk)
                                         .Member("ColumnType", &AttribRecord::column_type)
                                         .Member("ColumnSize", &AttribRecord::column_size)
                                         .Member("IsOptional", &AttribRecord::is_optional)
                                         .Build();
  return &table;
}

const PropertyTable* MetaFieldRecord::GetPropertyTable() const {
  static const PropertyTable table = PropertyTableBuilder<MetaFieldRecord>("MetaField")
                                         .Member("Id", &MetaFieldRecord::id)
                                         .Member("ColumnName", &MetaFieldRecord::column_name)
                                         .Build();
  return &table;
}

const PropertyTable* EntityRecord::GetPropertyTable() const {
  static const PropertyTable table =
      PropertyTableBuilder<EntityRecord>("Entity")
          .Member("Id", &EntityRecord::id)
          .Member("EntityName", &EntityRecord::entity_name)
          .Member("Description", &EntityRecord::description)
          .Member("DBConnStr", &EntityRecord::db_conn_str)
          .Member("TableName", &EntityRecord::table_name)
          .Member("PKColumn", &EntityRecord::pk_column)
          .Member("IsPKSurrogate", &EntityRecord::is_pk_surrogate)
          .Member("InitString", &EntityRecord::init_string)
          .Member("OnPageOrder", &EntityRecord::on_page_order)
          .Member("ParentEntityID", &EntityRecord::parent_entity_id)
          .Child("Attributes", ListOf(&EntityRecord::attributes))
          .Child("SelectedMetaFields", ListOf(&EntityRecord::selected_meta_fields))
          .Build();
  return &table;
}

const PropertyTable* DataPageRecord::GetPropertyTable() const {
  static const PropertyTable table = PropertyTableBuilder<DataPageRecord>("DataPage")
                                         .Member("Id", &DataPageRecord::id)
                                         .Member("DisplayName", &DataPageRecord::display_name)
                                         .Member("Description", &DataPageRecord::description)
                                         .Member("DBName", &DataPageRecord::db_name)
                                         .Member("DateCreated", &DataPageRecord::date_created)
                                         .Member("DateModified", &DataPageRecord::date_modified)
                                         .Child("Entities", ListOf(&DataPageRecord::entities))
                                         .Build();
  return &table;
}

const PropertyTable* DocSourceRecord::GetPropertyTable() const {
  static const PropertyTable table = PropertyTableBuilder<DocSourceRecord>("DocSource")
                                         .Member("DocSrcId", &DocSourceRecord::doc_src_id)
                                         .Member("SourceType", &DocSourceRecord::source_type)
                                         .Member("Source", &DocSourceRecord::source)
                                         .Member("ConnStr", &DocSourceRecord::conn_str)
                                         .Member("DBName", &DocSourceRecord::db_name)
                                         .Build();
  return &table;
}

const PropertyTable* TaskRecord::GetPropertyTable() const {
  static const PropertyTable table =
      PropertyTableBuilder<TaskRecord>("Task")
          .Member("TaskId", &TaskRecord::task_id)
          .Member("TaskName", &TaskRecord::task_name)
          .Member("Step", &TaskRecord::step)
          .Member("DisplaySrcType", &TaskRecord::display_src_type)
          .Member("ThrottleWaitMSecs", &TaskRecord::throttle_wait_msecs)
          .Member("DataPageId", &TaskRecord::data_page_id)
          .Member("TextForm", &TaskRecord::text_form)
          .Child("DocSources", ListOf(&TaskRecord::doc_sources))
          .Build();
  return &table;
}

const PropertyTable* JobRecord::GetPropertyTable() const {
  static const PropertyTable table = PropertyTableBuilder<JobRecord>("Job")
                                         .Member("JobId", &JobRecord::job_id)
                                         .Member("JobName", &JobRecord::job_name)
                                         .Member("Description", &JobRecord::description)
                                         .Member("DateCreated", &JobRecord::date_created)
                                         .Member("DateModified", &JobRecord::date_modified)
                                         .Child("Tasks", ListOf(&JobRecord::tasks))
                                         .Build();
  return &table;
}

const PropertyTable* ExchangeFile::GetPropertyTable() const {
  static const PropertyTable table = PropertyTableBuilder<ExchangeFile>("GleanwrightExport")
                                         .Member("FormatVersion", &ExchangeFile::format_version)
                                         .Child("DataPages", ListOf(&ExchangeFile::data_pages))
                                         .Child("Jobs", ListOf(&ExchangeFile::jobs))
                                         .Build();
  return &table;
}

}  // namespace gw::exchange
