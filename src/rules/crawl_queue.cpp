#include "rules/crawl_queue.h"

#include <optional>

#include "infra/c_guid_gen.h"
#include "platform/error.h"
#include "rules/rules_transaction.h"

namespace gw {

namespace {

// A page read for its links writes no rows: it counts as done, with 0 rows, in the run's totals
// (unless an extraction of the page wrote some).
constexpr const char* kMarkRead =
    "UPDATE task_instance_docs SET extraction_completion_code = ?, doc_start_time = ?, "
    "doc_completion_time = ?, rows_written = COALESCE(rows_written, 0) WHERE doc_id = ?";

// The index on (task, package, start time, address) answers the NOT EXISTS.
constexpr const char* kQueueLink =
    "INSERT INTO task_instance_docs (doc_id, task_id, job_id, job_start_time, uri, temp_uri, "
    "copy_completion_code, copy_try_count, extraction_completion_code, crawl_depth) "
    "SELECT ?, ?, ?, ?, ?, '', 'Queued', 0, 0, ? WHERE NOT EXISTS (SELECT 1 FROM "
    "task_instance_docs "
    "WHERE task_id = ? AND job_id = ? AND job_start_time = ? AND uri = ?)";

}  // namespace

db::RecordsetPtr D_CrawlQueue::GetUnreadDocs(const std::string& JobId, const std::string& TaskId,
                                             const DateTime& JobStartTime, long long AfterRow,
                                             long MaxRows) {
  return ReportAs("D_CrawlQueue.GetUnreadDocs(JobId,TaskId,JobStartTime)", [&] {
    // The conditions are those of the partial index of unread pages, which holds the row
    // numbers in order.
    return Query().RunQuery(
        "SELECT rowid AS row_no, doc_id, uri, temp_uri, copy_completion_time, crawl_depth FROM "
        "task_instance_docs WHERE job_id = ? AND task_id = ? AND job_start_time = ? AND temp_uri "
        "IS NOT NULL AND temp_uri <> '' AND extraction_completion_code = 0 AND rowid > ? ORDER BY "
        "rowid LIMIT ?",
        true,
        {Variant(JobId), Variant(TaskId), Variant(JobStartTime), Variant(AfterRow),
         Variant(static_cast<long long>(MaxRows > 0 ? MaxRows : -1))});
  });
}

long D_CrawlQueue::CountUnreadDocs(const std::string& JobId, const std::string& TaskId,
                                   const DateTime& JobStartTime) {
  return ReportAs("D_CrawlQueue.CountUnreadDocs(JobId,TaskId,JobStartTime)", [&] {
    return Count(
        "SELECT COUNT(*) AS n FROM task_instance_docs WHERE job_id = ? AND task_id = ? AND "
        "job_start_time = ? AND temp_uri IS NOT NULL AND temp_uri <> '' AND "
        "extraction_completion_code = 0",
        {Variant(JobId), Variant(TaskId), Variant(JobStartTime)});
  });
}

void D_CrawlQueue::ForEachRunAddress(const std::string& JobId, const std::string& TaskId,
                                     const DateTime& JobStartTime,
                                     const std::function<void(const std::string&)>& each) {
  ReportAs("D_CrawlQueue.ForEachRunAddress(JobId,TaskId,JobStartTime)", [&] {
    constexpr long kSlice = 5000;
    long long after = 0;
    for (long got = kSlice; got == kSlice;) {
      auto rs = Query().RunQuery(
          "SELECT rowid AS row_no, uri FROM task_instance_docs WHERE task_id = ? AND job_id = ? "
          "AND job_start_time = ? AND rowid > ? ORDER BY rowid LIMIT ?",
          true,
          {Variant(TaskId), Variant(JobId), Variant(JobStartTime), Variant(after),
           Variant(static_cast<long long>(kSlice))});
      got = 0;
      for (; !rs->IsEOF(); rs->MoveNext(), ++got) {
        after = (*rs)["row_no"].Value().ToLongLong();
        const Variant& v = (*rs)["uri"].Value();
        if (!v.IsEmptyOrNull()) each(v.ToText());
      }
    }
  });
}

CrawlRunState D_CrawlQueue::GetRunState(const std::string& JobId, const std::string& TaskId,
                                        const DateTime& JobStartTime) {
  return ReportAs("D_CrawlQueue.GetRunState(JobId,TaskId,JobStartTime)", [&] {
    auto rs = Query().RunQuery(
        "SELECT COUNT(*) AS n, SUM(CASE WHEN extraction_completion_code = 100 THEN 1 ELSE 0 END) "
        "AS processed, MAX(crawl_depth) AS depth FROM task_instance_docs WHERE task_id = ? AND "
        "job_id = ? AND job_start_time = ?",
        true, {Variant(TaskId), Variant(JobId), Variant(JobStartTime)});
    CrawlRunState state;
    if (rs->IsEOF()) return state;
    const auto number = [&](const char* name) {
      const Variant& v = (*rs)[name].Value();
      return v.IsEmptyOrNull() ? 0L : v.ToLong();
    };
    state.rows = number("n");
    state.processed = number("processed");
    state.depth = static_cast<int>(number("depth"));
    return state;
  });
}

long D_CrawlQueue::SaveRound(const std::string& JobId, const std::string& TaskId,
                             const DateTime& JobStartTime,
                             const std::vector<std::string>& ReadDocIds,
                             const std::vector<CrawlLink>& Links) {
  return ReportAs("D_CrawlQueue.SaveRound(JobId,TaskId,JobStartTime,ReadDocIds,Links)", [&] {
    long queued = 0;
    std::size_t next = 0;
    // The pages are marked in the last transaction: a round cut short after some of its links
    // were stored leaves its pages unread, and reading them again finds those links known.
    do {
      std::optional<RulesTransaction> transaction;
      if (!RulesTransaction::ActiveConnection(ConnStr())) transaction.emplace(ConnStr());
      const db::ConnectionPtr cn = RulesTransaction::ActiveConnection(ConnStr());
      const std::size_t end = std::min(Links.size(), next + kLinksPerTransaction);
      for (; next < end; ++next) {
        const CrawlLink& link = Links[next];
        if (link.uri.empty()) continue;
        const Variant params[] = {Variant(CGUIDGen::NewGUID()),
                                  Variant(TaskId),
                                  Variant(JobId),
                                  Variant(JobStartTime),
                                  Variant(link.uri),
                                  Variant(link.depth),
                                  Variant(TaskId),
                                  Variant(JobId),
                                  Variant(JobStartTime),
                                  Variant(link.uri)};
        queued += static_cast<long>(cn->ExecuteNonQuery(kQueueLink, params));
      }
      if (next >= Links.size()) {
        const Variant now(DateTime::Now());
        for (const std::string& id : ReadDocIds) {
          const Variant params[] = {Variant(kProcessedForLinks), now, now, Variant(id)};
          cn->ExecuteNonQuery(kMarkRead, params);
        }
      }
      if (transaction) transaction->Commit();
    } while (next < Links.size());
    return queued;
  });
}

}  // namespace gw
