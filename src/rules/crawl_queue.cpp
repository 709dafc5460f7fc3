#include "rules/crawl_queue.h"

#include <optional>
#include <span>

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

// Addresses the run certainly does not hold are queued up to this many to a statement, with the
// values the statement above gives a new row, in the order of the list.
constexpr std::size_t kRowsPerInsert = 64;
constexpr std::size_t kValuesPerRow = 6;  // doc_id, task_id, job_id, job_start_time, uri, depth

// The statement that queues `rows` new rows.
const std::string& QueueRowsSql(std::size_t rows) {
  static const std::vector<std::string> statements = [] {
    std::vector<std::string> all(kRowsPerInsert + 1);
    for (std::size_t n = 1; n <= kRowsPerInsert; ++n) {
      std::string& sql = all[n];
      sql =
          "INSERT INTO task_instance_docs (doc_id, task_id, job_id, job_start_time, uri, "
          "temp_uri, copy_completion_code, copy_try_count, extraction_completion_code, "
          "crawl_depth) VALUES ";
      for (std::size_t i = 0; i < n; ++i) {
        sql += i == 0 ? "" : ", ";
        sql += "(?, ?, ?, ?, ?, '', 'Queued', 0, 0, ?)";
      }
    }
    return all;
  }();
  return statements[rows];
}

}  // namespace

bool AddressSet::Contains(std::uint64_t h) const {
  if (slots_.empty()) return false;
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t i = h & mask;; i = (i + 1) & mask) {
    if (slots_[i] == h) return true;
    if (slots_[i] == 0) return false;
  }
}

bool AddressSet::Place(std::uint64_t h) {
  const std::size_t mask = slots_.size() - 1;
  for (std::size_t i = h & mask;; i = (i + 1) & mask) {
    if (slots_[i] == h) return false;
    if (slots_[i] == 0) {
      slots_[i] = h;
      ++count_;
      return true;
    }
  }
}

void AddressSet::Grow() {
  std::vector<std::uint64_t> old = std::move(slots_);
  slots_.assign(old.empty() ? 1024 : old.size() * 2, 0);
  count_ = 0;
  for (const std::uint64_t h : old) {
    if (h != 0) Place(h);
  }
}

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
    run_.reset();
    auto run = std::make_unique<RunAddresses>(RunAddresses{JobId, TaskId, JobStartTime, {}});
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
        if (v.IsEmptyOrNull()) continue;
        std::string address = v.ToText();
        run->addresses.Insert(address);
        each(address);
      }
    }
    run_ = std::move(run);  // only a run read to its end stands for the store
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
    AddressSet* const known =
        run_ && run_->job_id == JobId && run_->task_id == TaskId && run_->start == JobStartTime
            ? &run_->addresses
            : nullptr;
    const Variant task(TaskId);
    const Variant job(JobId);
    const Variant start(JobStartTime);
    long queued = 0;
    std::size_t next = 0;
    // The pages are marked in the last transaction: a round cut short after some of its links
    // were stored leaves its pages unread, and reading them again finds those links known.
    do {
      std::optional<RulesTransaction> transaction;
      if (!RulesTransaction::ActiveConnection(ConnStr())) transaction.emplace(ConnStr());
      const db::ConnectionPtr cn = RulesTransaction::ActiveConnection(ConnStr());
      // Rows known to be new wait here, in order, until a statement's worth is gathered or an
      // address has to be looked up; they go in the largest statements that fit.
      std::vector<Variant> rows;
      rows.reserve(kRowsPerInsert * kValuesPerRow);
      const auto write_rows = [&] {
        std::size_t done = 0;
        for (std::size_t n = kRowsPerInsert; done < rows.size(); n /= 2) {
          while (rows.size() - done >= n * kValuesPerRow) {
            const std::span<const Variant> values(rows.data() + done, n * kValuesPerRow);
            queued += static_cast<long>(cn->ExecuteNonQuery(QueueRowsSql(n), values));
            done += n * kValuesPerRow;
          }
        }
        rows.clear();
      };
      const std::size_t end = std::min(Links.size(), next + kLinksPerTransaction);
      for (; next < end; ++next) {
        const CrawlLink& link = Links[next];
        if (link.uri.empty()) continue;
        if (known && known->Insert(link.uri)) {
          // Not an address of the run: no row can hold it.
          rows.insert(rows.end(), {Variant(CGUIDGen::NewGUID()), task, job, start,
                                   Variant(link.uri), Variant(link.depth)});
          if (rows.size() == kRowsPerInsert * kValuesPerRow) write_rows();
          continue;
        }
        write_rows();
        const Variant params[] = {
            Variant(CGUIDGen::NewGUID()), task, job, start, Variant(link.uri),
            Variant(link.depth),          task, job, start, Variant(link.uri)};
        queued += static_cast<long>(cn->ExecuteNonQuery(kQueueLink, params));
      }
      write_rows();
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
