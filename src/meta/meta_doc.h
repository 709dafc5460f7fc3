// What happened to one document: where it came from, when it was extracted, and the datasets that
// counted on it; and MetaDocs, the documents of one run of a step.
//
// The engine's document makes one on first use; `DataPage.Extract` sets the two extraction times
// and registers its datasets in `MetaEntities`; the step registers it in its `MetaDocs`. The
// document's success code is chosen by the rules store from `AvgExtractionPct` at every read.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "meta/meta_entity.h"
#include "platform/collection.h"
#include "platform/date_time.h"

namespace gw {

class MetaTask;

// What the targets did with the rows of one dataset on one document.
struct RowTally {
  long written = 0;
  long refused = 0;
  std::string first_refusal;  // the target's message for the first refused row
};

class MetaDoc : public Object {
 public:
  static std::shared_ptr<MetaDoc> Create() { return std::make_shared<MetaDoc>(); }
  std::string TypeName() const override { return "MetaDoc"; }

  // Writes the document's extraction into its row of the run (`D_Doc.SaveDocument` with the
  // address, the local copy, the two extraction times and the success code; the other columns
  // keep their values). Returns true.
  bool SaveToMetabase();
  // The mean of `ExtractionPct` over the datasets; 0 with none: a document from which no dataset
  // reported anything is a complete failure.
  float AvgExtractionPct() const;
  MetaEntities& GetMetaEntities() { return meta_entities_; }
  const MetaEntities& GetMetaEntities() const { return meta_entities_; }
  // The run of the step this document belongs to; null until `MetaDocs.Add` sets it. A back
  // reference: it does not keep the step's metadata alive.
  std::shared_ptr<MetaTask> GetMetaTask() const { return meta_task_.lock(); }
  // Exists for the interface: always 0.
  float AvgSuccessCoefficient() const { return 0; }
  // The display name and the id of the code the rules store gives `AvgExtractionPct`; each read
  // asks the store.
  std::string SuccessCode() const;
  std::int16_t SuccessCodeId() const;

  const std::string& DatapageId() const { return datapage_id_; }
  void SetDatapageId(std::string v) { datapage_id_ = std::move(v); }
  const std::string& DatapageName() const { return datapage_name_; }
  void SetDatapageName(std::string v) { datapage_name_ = std::move(v); }
  const std::string& DocId() const { return doc_id_; }
  void SetDocId(std::string v) { doc_id_ = std::move(v); }
  const std::string& LocalPath() const { return local_path_; }
  void SetLocalPath(std::string v) { local_path_ = std::move(v); }
  const DateTime& ExtractionComplete() const { return extraction_complete_; }
  void SetExtractionComplete(DateTime v) { extraction_complete_ = v; }
  const DateTime& ExtractionStart() const { return extraction_start_; }
  void SetExtractionStart(DateTime v) { extraction_start_ = v; }
  const DateTime& DownloadComplete() const { return download_complete_; }
  void SetDownloadComplete(DateTime v) { download_complete_ = v; }
  const std::string& SourceUri() const { return source_uri_; }
  void SetSourceUri(std::string v) { source_uri_ = std::move(v); }

  // Rows the targets took and refused on this document, over all its datasets, and the reason
  // (the target's message) of the first refusal. Unlike a dataset's own counters, which start
  // again whenever the dataset is registered anew (a child dataset under each parent row), these
  // add up over the whole document.
  long RowsWritten() const;
  long RowsRefused() const;
  std::string FirstRefusal() const;
  // The tally of one dataset (empty when it wrote nothing).
  RowTally RowsOf(std::string_view entity_id) const;
  // Why the document was not extracted (it could not be read); empty when it was, or when its
  // extraction has not been tried.
  const std::string& Failure() const { return failure_; }

  // ---- inside the library ----
  void CountRowWritten(std::string_view entity_id);
  void CountRowRefused(std::string_view entity_id, std::string reason);
  void SetFailure(std::string reason) { failure_ = std::move(reason); }

 private:
  friend class MetaDocs;
  void SetMetaTask(const std::shared_ptr<MetaTask>& task) { meta_task_ = task; }
  MetaEntities meta_entities_;
  std::weak_ptr<MetaTask> meta_task_;
  std::string datapage_id_;
  std::string datapage_name_;
  std::string doc_id_;
  std::string local_path_;
  std::string source_uri_;
  DateTime extraction_complete_;
  DateTime extraction_start_;
  DateTime download_complete_;
  // By dataset, in the order they first wrote or were refused a row.
  std::vector<std::pair<std::string, RowTally>> tallies_;
  std::string failure_;

  RowTally& TallyOf(std::string_view entity_id);
};

using MetaDocPtr = std::shared_ptr<MetaDoc>;

// The documents of one run of a step, keyed by `DocId`.
//
// A run of many documents settles each one once it is done with it: the document's object is let
// go and only what `SaveAll` writes for it is kept (its row's values and its datasets' results),
// so the run's memory does not grow with the objects of every document it went through. A settled
// document is no longer an item (`Count`, `Item`, enumeration), but `SaveAll` writes it, before
// the items, in the order it was settled, and it counts in `MetaTask.AvgExtractionPct`.
class MetaDocs : public CollectionOf<MetaDocPtr> {
 public:
  MetaDocs();
  ~MetaDocs();
  MetaDocs(MetaDocs&&) noexcept;
  MetaDocs& operator=(MetaDocs&&) noexcept;
  // For each document in order (the settled ones first): `SaveToMetabase` (again), then `SaveAll`
  // of its datasets, then a yield to the host.
  void SaveAll();
  // Settles every item, in order: what `SaveAll` would write for it is kept, the object is let go.
  // Its success codes are still asked of the rules store when `SaveAll` writes them. A settled
  // document's id is not looked at by a later `Add`.
  void SettleAll();
  // Documents settled so far, and the sum of their `AvgExtractionPct` (in the order settled).
  long SettledCount() const;
  double SettledExtractionPctSum() const { return settled_pct_sum_; }
  // Adds under the document's id and sets its step. Fails with 457 when that id is there.
  MetaDocPtr Add(MetaDocPtr NewMetaDoc, const std::shared_ptr<MetaTask>& ParentMetaTask);
  // The document of that id, or null.
  MetaDocPtr Find(std::string_view doc_id) const;

 private:
  struct Settled;
  std::unique_ptr<Settled> settled_;
  double settled_pct_sum_ = 0;
};

}  // namespace gw
