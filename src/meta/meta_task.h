// One run of one step of a package: when it ran and the documents it extracted; and MetaTasks,
// the steps of one run of a package.
//
// A step makes a fresh `MetaTask` each time it runs and points it at its package's `MetaJob`; the
// package registers the `MetaTask` it finds on each step in its `MetaTasks` before the step
// runs. The step's success code is chosen by the rules store from `AvgExtractionPct` at every
// read.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "meta/meta_doc.h"
#include "platform/collection.h"
#include "platform/date_time.h"
#include "platform/variant.h"

namespace gw {

class MetaJob;

class MetaTask : public Object {
 public:
  static std::shared_ptr<MetaTask> Create() { return std::make_shared<MetaTask>(); }
  std::string TypeName() const override { return "MetaTask"; }

  // Writes the step's run row (`DTask.SaveInstance` with the package's id and start, this run's
  // start and completion, and the success code). Fails with 91 without a `MetaJob`. Returns true.
  bool SaveToMetabase();
  MetaDocs& GetMetaDocs() { return meta_docs_; }
  const MetaDocs& GetMetaDocs() const { return meta_docs_; }
  // The package's metadata; a back reference that does not keep it alive.
  std::shared_ptr<MetaJob> GetMetaJob() const { return meta_job_.lock(); }
  void SetMetaJob(const std::shared_ptr<MetaJob>& job) { meta_job_ = job; }
  // The mean of the documents' `AvgExtractionPct`, held at 100; 100 with no document: a step
  // that had nothing to do was a full success.
  float AvgExtractionPct() const;
  // Exists for the interface: always Empty.
  Variant AvgSuccessCoefficient() const { return {}; }
  // The display name and the id of the code the rules store gives `AvgExtractionPct`; each read
  // asks the store.
  std::string SuccessCode() const;
  std::int16_t SuccessCodeId() const;
  const std::string& TaskId() const { return task_id_; }
  void SetTaskId(std::string v) { task_id_ = std::move(v); }
  const std::string& TaskName() const { return task_name_; }
  void SetTaskName(std::string v) { task_name_ = std::move(v); }
  const DateTime& StartTime() const { return start_time_; }
  void SetStartTime(DateTime v) { start_time_ = v; }
  const DateTime& CompleteTime() const { return complete_time_; }
  void SetCompleteTime(DateTime v) { complete_time_ = v; }

 private:
  MetaDocs meta_docs_;
  std::weak_ptr<MetaJob> meta_job_;
  std::string task_id_;
  std::string task_name_;
  DateTime start_time_;
  DateTime complete_time_;
};

using MetaTaskPtr = std::shared_ptr<MetaTask>;

// The steps of one run of a package, keyed by `TaskId`.
class MetaTasks : public CollectionOf<MetaTaskPtr> {
 public:
  // Adds under the step's id and sets its package. Fails with 457 when that id is there.
  MetaTaskPtr Add(MetaTaskPtr NewMetaTask, const std::shared_ptr<MetaJob>& ParentMetaJob);
  // The step of that id, or null.
  MetaTaskPtr Find(std::string_view task_id) const;
  // For each step in order: `SaveToMetabase`, then `SaveAll` of its documents.
  void SaveAll();
};

}  // namespace gw
