// One run of a package: its id, name and start, and the steps registered for it.
//
// `Job` makes one on first use and fills it when a run begins; the run's completion code is
// `SuccessCodeId`, chosen by the rules store from `AvgExtractionPct` at every read. Because a step
// collects its documents in a fresh `MetaTask` of its own, the `MetaTask`s registered here have no
// documents and each reports 100: a package that ran at least one step gets the code of 100, one
// that ran none the code of 0. The results per document are in the rows of the levels below.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "meta/meta_task.h"
#include "platform/date_time.h"

namespace gw {

class MetaJob : public Object {
 public:
  static std::shared_ptr<MetaJob> Create() { return std::make_shared<MetaJob>(); }
  std::string TypeName() const override { return "MetaJob"; }

  MetaTasks& GetMetaTasks() { return meta_tasks_; }
  const MetaTasks& GetMetaTasks() const { return meta_tasks_; }
  // Writes the run's row (`DJob.SaveInstance` with the success code; the completion time is left
  // as stored).
  void SaveToMetabase();
  // `SaveToMetabase`, then `SaveAll` of the steps. A package run does not use it.
  void SaveAll();
  // The display name and the id of the code the rules store gives `AvgExtractionPct`; each read
  // asks the store.
  std::string SuccessCode() const;
  std::int16_t SuccessCodeId() const;
  // The mean of the steps' `AvgExtractionPct`, held at 100; 0 with no step.
  float AvgExtractionPct() const;
  const std::string& JobName() const { return job_name_; }
  void SetJobName(std::string v) { job_name_ = std::move(v); }
  const DateTime& JobStartTime() const { return job_start_time_; }
  void SetJobStartTime(DateTime v) { job_start_time_ = v; }
  const std::string& JobId() const { return job_id_; }
  void SetJobId(std::string v) { job_id_ = std::move(v); }

 private:
  MetaTasks meta_tasks_;
  std::string job_name_;
  DateTime job_start_time_;
  std::string job_id_;
};

using MetaJobPtr = std::shared_ptr<MetaJob>;

}  // namespace gw
