#include "meta/meta_doc.h"

#include "meta/meta_internal.h"
#include "meta/meta_task.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "rules/package_data_access.h"

namespace gw {

float MetaDoc::AvgExtractionPct() const {
  if (meta_entities_.Count() == 0) return 0;
  double sum = 0;
  for (const MetaEntityPtr& e : meta_entities_) sum += e->ExtractionPct();
  return static_cast<float>(sum / static_cast<double>(meta_entities_.Count()));
}

std::string MetaDoc::SuccessCode() const {
  return ReportAs("MetaDoc.SuccessCode", [&] {
    return meta_internal::SuccessCodeName(D_Metabase().GetDocSuccessCode(AvgExtractionPct()));
  });
}

std::int16_t MetaDoc::SuccessCodeId() const {
  return ReportAs("MetaDoc.SuccessCodeId", [&] {
    return meta_internal::SuccessCodeId(D_Metabase().GetDocSuccessCode(AvgExtractionPct()),
                                        "doc_success_code_id");
  });
}

bool MetaDoc::SaveToMetabase() {
  return ReportAs("MetaDoc.SaveToMetabase", [&] {
    D_Doc().SaveDocument(doc_id_, "", "", DateTime(), source_uri_, local_path_, "",
                         extraction_start_, extraction_complete_, 0, SuccessCodeId());
    return true;
  });
}

void MetaDocs::SaveAll() {
  ReportAs("MetaDocs.SaveAll", [&] {
    for (const MetaDocPtr& doc : items_) {
      doc->SaveToMetabase();
      doc->GetMetaEntities().SaveAll();
      DoEvents();
    }
  });
}

MetaDocPtr MetaDocs::Add(MetaDocPtr NewMetaDoc, const std::shared_ptr<MetaTask>& ParentMetaTask) {
  const std::string key = NewMetaDoc->DocId();
  MetaDocPtr& stored = items_.Add(std::move(NewMetaDoc), key);
  stored->SetMetaTask(ParentMetaTask);
  return stored;
}

MetaDocPtr MetaDocs::Find(std::string_view doc_id) const {
  const MetaDocPtr* found = items_.Find(IndexKey(doc_id));
  return found ? *found : nullptr;
}

}  // namespace gw
