// D_CrawlQueue: a crawl's queue in the rules store, the document rows of one task's run.
//
// A crawl downloads the run's open rows, reads the links of the fetched pages, and queues the new
// ones as rows of the same run; the rows are the queue, so a crawl is visible to the rest of the
// engine and survives the process. A round's writes go in one transaction (one per
// `kLinksPerTransaction` links when a round finds more): the pages whose links were read are
// marked (extraction code 100, "processed for links") together with the rows of the links they
// gave, so an interrupted round leaves its pages unmarked and no link of it stored, and the next
// crawl of the run reads them again. Whether an address is known to the run is looked up in an
// index (task, package, start time, address), so a round costs time in proportion to its own
// pages and links, not to the rows the run holds. Once the run's addresses have been read
// (`ForEachRunAddress`), the queue keeps their hashes, and an address whose hash the run does
// not hold is queued without that look-up, many rows to a statement; an address whose hash it
// holds is still looked up, so two addresses with one hash are never taken for one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/date_time.h"
#include "platform/db/recordset.h"
#include "rules/rules_data_access.h"

namespace gw {

// The extraction code of a page whose links a crawl has read.
inline constexpr std::int16_t kProcessedForLinks = 100;

struct CrawlLink {
  std::string uri;
  std::int16_t depth = 0;  // the round in which it was found (the start addresses are 0)
};

// Where a crawl of a run stands, read when a crawl of the run begins again.
struct CrawlRunState {
  long rows = 0;       // rows of the run
  long processed = 0;  // pages whose links were read
  int depth = 0;       // the deepest round that stored links
};

// A set of 64-bit hashes of addresses (or of any keys): eight bytes a key where a list of the
// keys would cost hundreds, so the memory hardly grows with the addresses seen. A hash found
// means "perhaps there"; a hash not found means "certainly not there".
class AddressSet {
 public:
  // What the set keeps of `key`.
  static std::uint64_t HashOf(std::string_view key) {
    const std::uint64_t h = std::hash<std::string_view>{}(key);
    return h == 0 ? 1 : h;  // 0 marks a free slot
  }
  // True when `key` was not in the set.
  bool Insert(std::string_view key) { return InsertHash(HashOf(key)); }
  // The same for a key's `HashOf`.
  bool InsertHash(std::uint64_t h) {
    if ((count_ + 1) * 4 > slots_.size() * 3) Grow();
    return Place(h);
  }
  bool Contains(std::uint64_t h) const;
  long Count() const { return static_cast<long>(count_); }

 private:
  bool Place(std::uint64_t h);
  void Grow();

  std::vector<std::uint64_t> slots_;
  std::size_t count_ = 0;
};

class D_CrawlQueue : public RulesDataAccess {
 public:
  static constexpr std::size_t kLinksPerTransaction = 5000;

  D_CrawlQueue() = default;
  explicit D_CrawlQueue(std::string rules_db_conn_str)
      : RulesDataAccess(std::move(rules_db_conn_str)) {}

  // The run's fetched rows (a local copy in `temp_uri`) whose links have not been read (no
  // extraction code yet: 0), in the order they were queued, after row number `AfterRow` (0: from
  // the first) and at most `MaxRows` of them (0: all): row_no (the row's number, the next
  // slice's `AfterRow`), doc_id, uri, temp_uri, copy_completion_time, crawl_depth.
  db::RecordsetPtr GetUnreadDocs(const std::string& JobId, const std::string& TaskId,
                                 const DateTime& JobStartTime, long long AfterRow = 0,
                                 long MaxRows = 0);
  long CountUnreadDocs(const std::string& JobId, const std::string& TaskId,
                       const DateTime& JobStartTime);
  // Calls `each` with every address of the run, in the order queued, reading a few thousand
  // rows at a time. The queue keeps their hashes for `SaveRound` on the same run.
  void ForEachRunAddress(const std::string& JobId, const std::string& TaskId,
                         const DateTime& JobStartTime,
                         const std::function<void(const std::string&)>& each);
  CrawlRunState GetRunState(const std::string& JobId, const std::string& TaskId,
                            const DateTime& JobStartTime);
  // Marks `ReadDocIds` processed for links (their start and completion times now) and queues
  // each of `Links` not yet known to the run as a new row ("Queued", no tries), with a new id.
  // Returns how many rows were queued.
  long SaveRound(const std::string& JobId, const std::string& TaskId, const DateTime& JobStartTime,
                 const std::vector<std::string>& ReadDocIds, const std::vector<CrawlLink>& Links);

 private:
  // The addresses of one run, as its rows hold them, when every row of it was read.
  struct RunAddresses {
    std::string job_id;
    std::string task_id;
    DateTime start;
    AddressSet addresses;
  };
  std::unique_ptr<RunAddresses> run_;
};

}  // namespace gw
