#include "meta/meta_doc.h"

#include <deque>
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
  return meta_internal::SuccessCodeName(meta_internal::kDocCode, AvgExtractionPct());
}

std::int16_t MetaDoc::SuccessCodeId() const {
  return meta_internal::SuccessCodeId(meta_internal::kDocCode, AvgExtractionPct());
}

namespace {

// What a document's row holds: the same writes whether the document is an object or settled.
void SaveDocumentRow(const std::string& doc_id, const std::string& source_uri,
                     const std::string& local_path, const DateTime& extraction_start,
                     const DateTime& extraction_complete, std::int16_t success_code_id,
                     bool with_row_counts, long written, long refused,
                     const std::string& first_refusal) {
  D_Doc().SaveDocument(doc_id, "", "", DateTime(), source_uri, local_path, "", extraction_start,
                       extraction_complete, 0, success_code_id);
  if (with_row_counts) D_Doc().SaveRowCounts(doc_id, written, refused, first_refusal);
}

}  // namespace

bool MetaDoc::SaveToMetabase() {
  return ReportAs("MetaDoc.SaveToMetabase", [&] {
    // A document that was not extracted has no row counts.
    const bool with_row_counts = failure_.empty() && !extraction_start_.IsEmpty();
    SaveDocumentRow(doc_id_, source_uri_, local_path_, extraction_start_, extraction_complete_,
                    SuccessCodeId(), with_row_counts, with_row_counts ? RowsWritten() : 0,
                    with_row_counts ? RowsRefused() : 0,
                    with_row_counts ? FirstRefusal() : std::string());
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

// What SaveAll writes for a settled document. The dataset ids repeat on every document, so each
// is kept once; the document's three texts share one string.
struct MetaDocs::Settled {
  struct Dataset {
    std::uint32_t entity = 0;  // into `entity_ids`
    meta_internal::DatasetResult result;
  };
  struct Doc {
    std::string texts;  // the id, the source address and the local path, one after the other
    std::uint32_t id_size = 0;
    std::uint32_t uri_size = 0;
    DateTime extraction_start;
    DateTime extraction_complete;
    float avg_extraction_pct = 0;
    bool with_row_counts = false;
    long rows_written = 0;
    long rows_refused = 0;
    std::string first_refusal;
    std::size_t first_dataset = 0;  // into `datasets`
    std::uint32_t dataset_count = 0;
  };
  std::deque<Doc> docs;
  std::deque<Dataset> datasets;
  std::vector<std::string> entity_ids;

  std::uint32_t EntityIndex(const std::string& id) {
    // A datapage has a handful of datasets: the newest is the likeliest.
    for (std::size_t i = entity_ids.size(); i-- > 0;) {
      if (entity_ids[i] == id) return static_cast<std::uint32_t>(i);
    }
    entity_ids.push_back(id);
    return static_cast<std::uint32_t>(entity_ids.size() - 1);
  }

  void Add(const MetaDoc& doc) {
    Doc& d = docs.emplace_back();
    d.id_size = static_cast<std::uint32_t>(doc.DocId().size());
    d.uri_size = static_cast<std::uint32_t>(doc.SourceUri().size());
    d.texts.reserve(doc.DocId().size() + doc.SourceUri().size() + doc.LocalPath().size());
    d.texts.append(doc.DocId()).append(doc.SourceUri()).append(doc.LocalPath());
    d.extraction_start = doc.ExtractionStart();
    d.extraction_complete = doc.ExtractionComplete();
    d.avg_extraction_pct = doc.AvgExtractionPct();
    d.with_row_counts = doc.Failure().empty() && !doc.ExtractionStart().IsEmpty();
    if (d.with_row_counts) {
      d.rows_written = doc.RowsWritten();
      d.rows_refused = doc.RowsRefused();
      d.first_refusal = doc.FirstRefusal();
    }
    d.first_dataset = datasets.size();
    for (const MetaEntityPtr& e : doc.GetMetaEntities()) {
      Dataset& s = datasets.emplace_back();
      s.entity = EntityIndex(e->EntityId());
      s.result = meta_internal::ResultOf(*e, doc);
      ++d.dataset_count;
    }
  }

  // The same writes as the document's `SaveToMetabase` and then its datasets' `SaveAll`.
  void Save(const Doc& d) const {
    const std::string id = d.texts.substr(0, d.id_size);
    ReportAs("MetaDoc.SaveToMetabase", [&] {
      const std::int16_t code =
          meta_internal::SuccessCodeId(meta_internal::kDocCode, d.avg_extraction_pct);
      SaveDocumentRow(id, d.texts.substr(d.id_size, d.uri_size),
                      d.texts.substr(std::size_t{d.id_size} + d.uri_size), d.extraction_start,
                      d.extraction_complete, code, d.with_row_counts, d.rows_written,
                      d.rows_refused, d.first_refusal);
      return true;
    });
    ReportAs("MetaEntities.SaveAll", [&] {
      for (std::size_t k = d.first_dataset; k < d.first_dataset + d.dataset_count; ++k) {
        const Dataset& s = datasets[k];
        const std::string& entity_id = entity_ids[s.entity];
        ReportAs("MetaEntity.SaveToMetabase",
                 [&] { return meta_internal::SaveDatasetResult(id, entity_id, s.result); });
      }
    });
  }
};

MetaDocs::MetaDocs() = default;
MetaDocs::~MetaDocs() = default;
MetaDocs::MetaDocs(MetaDocs&&) noexcept = default;
MetaDocs& MetaDocs::operator=(MetaDocs&&) noexcept = default;

long MetaDocs::SettledCount() const {
  return settled_ ? static_cast<long>(settled_->docs.size()) : 0;
}

void MetaDocs::SettleAll() {
  if (items_.Empty()) return;
  if (!settled_) settled_ = std::make_unique<Settled>();
  for (const MetaDocPtr& doc : items_) {
    settled_->Add(*doc);
    settled_pct_sum_ += doc->AvgExtractionPct();
  }
  items_.Clear();
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
    const auto save = [&](const auto& write) {
      if (!history && !RulesTransaction::ActiveConnection(cn_str)) history.emplace(cn_str);
      write();
      if (++saved % kDocsPerTransaction == 0) {
        if (history) history->Commit();
        history.reset();
        DoEvents();
      }
    };
    if (settled_) {
      for (const Settled::Doc& d : settled_->docs) save([&] { settled_->Save(d); });
    }
    for (const MetaDocPtr& doc : items_) {
      save([&] {
        doc->SaveToMetabase();
        doc->GetMetaEntities().SaveAll();
      });
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
