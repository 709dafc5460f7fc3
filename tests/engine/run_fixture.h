// Package runs on a real rules store, with real files and a real SQLite target.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "engine/doc_source.h"
#include "engine/job.h"
#include "engine/task.h"
#include "rules/rules_fixture.h"
#include "support/test_support.h"

namespace gw::engine_test {

// Records what a package or task raised, in order, as short texts ("status:Task Complete",
// "begin", "complete", "major:1/20"...).
struct EventLog {
  std::vector<std::string> events;
  std::vector<ScopedConnection> connections;
  long Count(const std::string& event) const;
  bool Has(const std::string& event) const { return Count(event) > 0; }
};

class RunTest : public testing::RulesStoreTest {
 protected:
  RunTest();

  // A listing page "Listing" saved in the rules store: the root dataset "items" (one row per
  // `<li class=item>`, fields name between <b> and </b>, an optional note between <i> and </i>)
  // with the nested dataset "tags" (one row per `<span>`, field tag up to </span>), both writing
  // into the SQLite file `target_`. Returns its id.
  std::string SaveListingPage();
  // A package saved with the given tasks.
  JobPtr NewJob(const std::string& name);
  TaskPtr AddTask(const JobPtr& job, const std::string& name, std::int32_t step, TaskTypes type,
                  const std::string& page_id = {});
  static DocSourcePtr AddSource(const TaskPtr& task, const std::string& source,
                                SrcType type = SrcType::path, const std::string& cn_str = {});
  // A listing page with `items` as (name, note, tags).
  struct Item {
    std::string name;
    std::string note;
    std::vector<std::string> tags;
  };
  static std::string ListingHtml(const std::vector<Item>& items);

  // Runs statements on the target; every value of the query's rows there, "NULL" for a null, as
  // "a|b" per row.
  void TargetScript(const std::string& script);
  std::vector<std::string> TargetRows(const std::string& sql);
  // Likewise on the rules store.
  std::vector<std::string> RulesRows(const std::string& sql,
                                     const std::vector<Variant>& params = {});

  // Listens to every event of a package.
  static void Listen(Job& job, EventLog& log);
  static void Listen(Task& task, EventLog& log);

  testing::TempDir docs_;
  std::filesystem::path target_;
  std::string target_cn_;
};

}  // namespace gw::engine_test
