#include "engine/doc_source.h"

#include "engine/task.h"
#include "infra/c_crypto.h"
#include "infra/c_guid_gen.h"
#include "platform/error.h"
#include "rules/package_data_access.h"

namespace gw {

namespace {
constexpr ErrorNumber kNoSuchDocSource = 0xAAB19D7B;
constexpr ErrorNumber kDuplicateDocSource = 0xAAB19D7C;
}  // namespace

std::shared_ptr<DocSource> DocSource::Create() {
  std::shared_ptr<DocSource> s(new DocSource());
  s->doc_src_id_ = CGUIDGen::NewGUID();
  return s;
}

void DocSource::SetTask(const std::shared_ptr<Task>& task) {
  task_ = task;
  if (task) task_id_ = task->TaskId();
}

void DocSource::Save() {
  ReportAs("DocSource.Save", [&] {
    std::string stored = conn_str_;
    if (!conn_str_.empty()) {
      try {
        stored = CCrypto().EncryptText(conn_str_);
      } catch (const Error&) {
        stored = conn_str_;  // kept in clear rather than lost
      }
    }
    if (doc_src_id_.empty()) doc_src_id_ = CGUIDGen::NewGUID();
    auto task = task_.lock();
    if (!task) {
      throw Error(errnum::kObjectNotSet, "DocSource.Save",
                  "Object variable or With block variable not set");
    }
    task_id_ = task->TaskId();
    DDocSource().Save(doc_src_id_, db_name_, stored, task_id_, source_,
                      static_cast<int>(source_type_));
  });
}

void DocSource::Load(const std::string& DocSrcId) {
  ReportAs("DocSource.Load(DocSrcId)", [&] {
    auto rs = DDocSource().Selectx(DocSrcId, true);
    if (rs->RecordCount() == 0) {
      throw Error(kNoSuchDocSource, "DocSource.Load",
                  "The specified Document Source Id does not exist.");
    }
    if (rs->RecordCount() > 1) {
      throw Error(kDuplicateDocSource, "DocSource.Load",
                  "Data consistency error within the database.  There is more than one Document "
                  "Source with that ID.");
    }
    auto& f = rs->GetFields();
    auto take = [&](const char* column, auto&& assign) {
      const Variant& v = f[column].Value();
      if (!v.IsNull()) assign(v);
    };
    take("doc_location_id", [&](const Variant& v) { doc_src_id_ = v.ToString(); });
    take("task_id", [&](const Variant& v) { task_id_ = v.ToString(); });
    take("source_type", [&](const Variant& v) { source_type_ = static_cast<SrcType>(v.ToLong()); });
    take("source", [&](const Variant& v) { source_ = v.ToString(); });
    take("conn_str", [&](const Variant& v) {
      conn_str_ = v.ToString();
      try {
        std::string clear = CCrypto().DecryptText(conn_str_);
        if (!clear.empty()) conn_str_ = std::move(clear);
      } catch (const Error&) {
        // Written before strings were enciphered: it stays as stored.
      }
    });
    take("db_name", [&](const Variant& v) { db_name_ = v.ToString(); });
    include_sub_folders_ = false;
  });
}

void DocSources::DBClearAll() {
  ReportAs("DocSources.DBClearAll", [&] {
    auto task = task_.lock();
    if (!task) {
      throw Error(errnum::kObjectNotSet, "DocSources.DBClearAll",
                  "Object variable or With block variable not set");
    }
    DDocSource().DeleteAll(task->TaskId());
  });
}

void DocSources::SaveAll() {
  ReportAs("DocSources.SaveAll", [&] {
    for (const auto& source : items_) source->Save();
  });
}

DocSourcePtr DocSources::Add(DocSourcePtr DocSrc, std::string_view sKey) {
  return ReportAs("DocSources.Add(DocSrc,sKey)", [&] {
    DocSrc->SetTask(task_.lock());
    return items_.Add(std::move(DocSrc), sKey);
  });
}

}  // namespace gw
