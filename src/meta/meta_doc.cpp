#include "meta/meta_doc.h"

#include <optional>

#include "meta/meta_internal.h"
#include "meta/meta_task.h"
#include "platform/error.h"
#include "platform/event_loop.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "rules/rules_transaction.h"

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
    // A document that was not extracted has no row counts.
    if (failure_.empty() && !extraction_start_.IsEmpty()) {
      D_Doc().SaveRowCounts(doc_id_, RowsWritten(), RowsRefused(), FirstRefusal());
    }
    return true;
  });
}

RowTally& MetaDoc::TallyOf(std::string_view entity_id) {
  for (auto& [id, tally] : tallies_) {
    if (id == entity_id) return tally;
  }
  return tallies_.emplace_back(std::string(entity_id), RowTally{}).second;
}

void MetaDoc::CountRowWritten(std::string_view entity_id) { ++TallyOf(entity_id).written; }

void MetaDoc::CountRowRefused(std::string_view entity_id, std::string reason) {
  RowTally& tally = TallyOf(entity_id);
  if (tally.refused++ == 0) tally.first_refusal = std::move(reason);
}

long MetaDoc::RowsWritten() const {
  long n = 0;
  for (const auto& entry : tallies_) n += entry.second.written;
  return n;
}

long MetaDoc::RowsRefused() const {
  long n = 0;
  for (const auto& entry : tallies_) n += entry.second.refused;
  return n;
}

std::string MetaDoc::FirstRefusal() const {
  for (const auto& entry : tallies_) {
    if (entry.second.refused > 0) return entry.second.first_refusal;
  }
  return {};
}

RowTally MetaDoc::RowsOf(std::string_view entity_id) const {
  for (const auto& [id, tally] : tallies_) {
    if (id == entity_id) return tally;
  }
  return {};
}

void MetaDocs::SaveAll() {
  ReportAs("MetaDocs.SaveAll", [&] {
    const std::string cn_str = modConnectionString::GetCnStr();
    // The documents' rows and their datasets' results, a hundred documents to a transaction
    // (inside a caller's, part of that one): a document's history is never split, a commit is
    // not paid per document, and the store's write lock is not held for long.
    constexpr long kDocsPerTransaction = 100;
    std::optional<RulesTransaction> history;
    long saved = 0;
    for (const MetaDocPtr& doc : items_) {
      if (!history && !RulesTransaction::ActiveConnection(cn_str)) history.emplace(cn_str);
      doc->SaveToMetabase();
      doc->GetMetaEntities().SaveAll();
      if (++saved % kDocsPerTransaction == 0) {
        if (history) history->Commit();
        history.reset();
        DoEvents();
      }
    }
    if (history) history->Commit();
    history.reset();
    DoEvents();
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
