// What happened to one document: where it came from, when it was extracted, and the datasets that
// counted on it.
//
// The engine's document makes one on first use; `DataPage.Extract` sets the two extraction times
// and registers its datasets in `MetaEntities`. Saving it and choosing its success code need the
// rules store and are not part of this library yet.
#pragma once

#include <memory>
#include <string>

#include "engine/meta/meta_entity.h"
#include "platform/date_time.h"

namespace gw {

class MetaDoc : public Object {
 public:
  static std::shared_ptr<MetaDoc> Create() { return std::make_shared<MetaDoc>(); }
  std::string TypeName() const override { return "MetaDoc"; }

  // The mean of `ExtractionPct` over the datasets; 0 with none.
  float AvgExtractionPct() const;
  MetaEntities& GetMetaEntities() { return meta_entities_; }
  const MetaEntities& GetMetaEntities() const { return meta_entities_; }
  // Exists for the interface: always 0.
  float AvgSuccessCoefficient() const { return 0; }

  const std::string& DatapageId() const { return datapage_id_; }
  void SetDatapageId(std::string v) { datapage_id_ = std::move(v); }
  const std::string& DatapageName() const { return datapage_name_; }
  void SetDatapageName(std::string v) { datapage_name_ = std::move(v); }
  const std::string& DocId() const { return doc_id_; }
  void SetDocId(std::string v) { doc_id_ = std::move(v); }
  const std::string& LocalPath() const { return local_path_; }
  void SetLocalPath(std::string v) { local_path_ = std::move(v); }
  const std::string& SourceUri() const { return source_uri_; }
  void SetSourceUri(std::string v) { source_uri_ = std::move(v); }
  const DateTime& ExtractionComplete() const { return extraction_complete_; }
  void SetExtractionComplete(DateTime v) { extraction_complete_ = v; }
  const DateTime& ExtractionStart() const { return extraction_start_; }
  void SetExtractionStart(DateTime v) { extraction_start_ = v; }
  const DateTime& DownloadComplete() const { return download_complete_; }
  void SetDownloadComplete(DateTime v) { download_complete_ = v; }

 private:
  MetaEntities meta_entities_;
  std::string datapage_id_;
  std::string datapage_name_;
  std::string doc_id_;
  std::string local_path_;
  std::string source_uri_;
  DateTime extraction_complete_;
  DateTime extraction_start_;
  DateTime download_complete_;
};

using MetaDocPtr = std::shared_ptr<MetaDoc>;

}  // namespace gw
