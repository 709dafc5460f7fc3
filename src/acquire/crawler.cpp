#include "acquire/crawler.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include "acquire/advanced_download_mgr.h"
#include "acquire/uri_list_internal.h"
#include "acquire/web_page.h"
#include "acquire/web_page_internal.h"
#include "engine/job.h"
#include "engine/task.h"
#include "infra/object_frame.h"
#include "platform/document_file.h"
#include "platform/event_loop.h"
#include "platform/paths.h"
#include "platform/property_table.h"
#include "platform/text.h"
#include "rules/crawl_queue.h"
#include "rules/package_data_access.h"
#include "rules/rules_transaction.h"

namespace gw {

namespace {

constexpr const char* kCrawlerFrame = "CR";
constexpr const char* kRulesetFrame = "RS";
constexpr const char* kCrawlLogName = "Crawler.Crawl(tsk,TemplateHttpClient,SaveAsTemplate)";
// The pages of a level read, and stored with their links, at a time.
constexpr long kPagesPerSlice = 1000;

std::string TextOf(db::Recordset& rs, const char* column) {
  const Variant& v = rs[column].Value();
  return v.IsEmptyOrNull() ? std::string() : v.ToText();
}

// The files a crawl saved whose rows may not be written yet. The download manager commits row
// outcomes in batches, so a process killed between a file's save and the commit would leave the
// row open and the page would be fetched and saved a second time; the journal lets the next
// crawl of the run give those rows their outcome instead. A line is appended for each name a
// finished file is about to be given, before it has it, so a process killed just after the
// naming leaves a file the journal names; a name whose file was never made is a line the next
// crawl finds no file for. That crawl starts the journal afresh once it has given the rows their
// outcome, so such a line cannot match a file a later process makes under that name. It lives
// below $GLEANWRIGHT_HOME/crawl-journals and goes when a crawl ends normally.
class SaveJournal {
 public:
  SaveJournal(const std::string& job_id, const std::string& task_id, const DateTime& start) {
    std::string stamp;
    for (const char c : start.ToIsoText()) {
      if (c >= '0' && c <= '9') stamp += c;
    }
    path_ = HomeDir() / "crawl-journals" / (job_id + "_" + task_id + "_" + stamp + ".txt");
  }
  ~SaveJournal() {
    if (fd_ >= 0) ::close(fd_);
  }
  SaveJournal(const SaveJournal&) = delete;
  SaveJournal& operator=(const SaveJournal&) = delete;

  struct Entry {
    std::string code;
    std::string file;
  };
  // What an earlier crawl of the run journaled, by document id; a line cut short is left out.
  // A document's last line holds; a name is the document's whose line named it last (one named
  // for a page whose file was not made, then made for another page, is the other page's).
  std::unordered_map<std::string, Entry> Read() const {
    std::unordered_map<std::string, Entry> entries;
    std::unordered_map<std::string, std::string> named_for;  // file -> doc id
    std::ifstream in(path_, std::ios::binary);
    std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::size_t begin = 0;
    for (std::size_t end; (end = all.find('\n', begin)) != std::string::npos; begin = end + 1) {
      const std::string line = all.substr(begin, end - begin);
      const std::size_t a = line.find('\t');
      const std::size_t b = a == std::string::npos ? a : line.find('\t', a + 1);
      if (b == std::string::npos) continue;
      std::string doc_id = line.substr(0, a);
      std::string file = line.substr(b + 1);
      named_for[file] = doc_id;
      entries[std::move(doc_id)] = {line.substr(a + 1, b - a - 1), std::move(file)};
    }
    std::erase_if(entries,
                  [&](const auto& entry) { return named_for[entry.second.file] != entry.first; });
    return entries;
  }
  void Append(const std::string& doc_id, const std::string& file, const std::string& code) {
    if (fd_ < 0) {
      std::error_code ec;
      std::filesystem::create_directories(path_.parent_path(), ec);
      fd_ = ::open(path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
      if (fd_ < 0) return;  // without a journal a killed crawl may fetch a page twice
    }
    const std::string line = doc_id + "\t" + code + "\t" + file + "\n";
    [[maybe_unused]] const auto written = ::write(fd_, line.data(), line.size());
  }
  void Remove() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    std::error_code ec;
    std::filesystem::remove(path_, ec);
  }

 private:
  std::filesystem::path path_;
  int fd_ = -1;
};

// What the links of one saved page give its level: its address, the kept links (after the
// ruleset) that the run did not know when the page was saved, in order, each with its text, and
// its e-mail links. A link known then is known when the level is read.
struct ScannedPage {
  std::string doc_id;
  bool read = false;  // false: the page is read from its file with the level, as before
  std::uint64_t page = 0;
  std::vector<std::pair<std::uint64_t, std::string>> fresh;
  UriListPtr emails;  // null for none
};

// Reads the links of a saved page's body. Touches only what it makes itself, the ruleset and
// the set of known addresses, neither of which changes while pages are being saved; so it may
// run on any thread.
ScannedPage ScanSavedPage(std::string doc_id, std::string_view body, const std::string& uri,
                          const UriRuleset& rules, bool inclusive, const AddressSet& known) {
  ScannedPage scanned;
  scanned.doc_id = std::move(doc_id);
  try {
    auto links = acquire_internal::ReadSavedPageLinks(
        body, uri, rules, inclusive, [&](const std::string& key, const web::Uri& address) {
          const std::uint64_t h = AddressSet::HashOf(key);
          if (!known.Contains(h)) scanned.fresh.emplace_back(h, address.ToString());
        });
    scanned.page = AddressSet::HashOf(links.page_key);
    scanned.emails = std::move(links.emails);
    scanned.read = true;
  } catch (...) {
    // Read from its file with the level, where its failure is told.
    scanned.read = false;
    scanned.fresh.clear();
    scanned.emails.reset();
  }
  return scanned;
}

// The links of a round's pages, read from each response while it is in hand, as it is saved, so
// that the work overlaps the transfers still under way; reading the level then takes a page's
// links from here instead of reading its file back, and stores the same rows in the same order.
// Only what the level can use is kept: the links the run did not know when the page was saved,
// by their `AddressSet` hash, and each address's text once for the round, so the memory follows
// the new links, not the links read. What a page gives does not depend on the order in which
// pages are added: each keeps its own spelling of its links.
class ReadAheadLinks {
 public:
  struct Page {
    std::uint64_t page = 0;            // the page's own address
    std::vector<std::uint64_t> fresh;  // its kept links unknown to the run, in order
    // fresh[i] written otherwise than where the round first saw it (case, escapes): (i, text)
    std::vector<std::pair<std::size_t, std::string>> spelled;
    UriListPtr emails;  // null for none
  };

  // Keeps what a scanned page gives the level; a page whose scan failed is left to the level.
  void Add(ScannedPage&& scanned) {
    if (!scanned.read) return;
    Page read;
    read.page = scanned.page;
    read.fresh.reserve(scanned.fresh.size());
    for (auto& [h, url] : scanned.fresh) {
      const auto [text, first] = texts_.try_emplace(h, url);
      if (!first && text->second != url) read.spelled.emplace_back(read.fresh.size(), url);
      read.fresh.push_back(h);
    }
    read.emails = std::move(scanned.emails);
    pages_[scanned.doc_id] = std::move(read);
  }
  // What was kept of the page with this id; null when it was not read ahead.
  const Page* Find(const std::string& doc_id) const {
    const auto found = pages_.find(doc_id);
    return found == pages_.end() ? nullptr : &found->second;
  }
  // The text of the page's i-th fresh link.
  const std::string& Text(const Page& page, std::size_t i, std::size_t& next_spelled) const {
    if (next_spelled < page.spelled.size() && page.spelled[next_spelled].first == i) {
      return page.spelled[next_spelled++].second;
    }
    return texts_.at(page.fresh[i]);
  }
  void Clear() {
    pages_.clear();
    texts_.clear();
  }

 private:
  std::unordered_map<std::string, Page> pages_;  // by document id
  std::unordered_map<std::uint64_t, std::string> texts_;
};

// Reads the links of the pages a pass saves on a few threads of its own, so that the loop's
// thread goes on with the transfers, the files and the store. A job owns its copy of the body
// and everything it makes; it reads the pass's copy of the ruleset and the run's known addresses,
// which nobody changes until `Finish` has returned (the level's reading adds to them afterwards).
// What the jobs give goes to the `ReadAheadLinks` on the loop's thread only, when it asks.
class LinkReader {
 public:
  LinkReader(const UriRuleset& rules, bool inclusive, const AddressSet& known)
      : rules_(rules.Clone()), inclusive_(inclusive), known_(known) {
    const unsigned cores = std::thread::hardware_concurrency();
    const unsigned threads = std::clamp(cores > 1 ? cores - 1 : 1U, 1U, kMaxThreads);
    try {
      for (unsigned i = 0; i < threads; ++i) workers_.emplace_back([this] { Work(); });
    } catch (const std::system_error&) {
      // Without threads the pages are read as they are saved, on the loop's thread.
    }
  }
  ~LinkReader() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_workers_.notify_all();
    for (std::thread& worker : workers_) worker.join();
  }
  LinkReader(const LinkReader&) = delete;
  LinkReader& operator=(const LinkReader&) = delete;

  // Queues a saved page (its body copied), first handing what is done to `ahead`; waits while
  // many pages are queued, so that the bodies held stay few. A sleeping reader is woken for a
  // few pages at a time rather than for each (`Finish` wakes it for the rest).
  void Submit(const std::string& doc_id, const std::string& uri, std::string_view body,
              ReadAheadLinks& ahead) {
    if (workers_.empty()) {
      ahead.Add(ScanSavedPage(doc_id, body, uri, *rules_, inclusive_, known_));
      return;
    }
    std::deque<ScannedPage> done;
    bool wake = false;
    {
      std::unique_lock lock(mutex_);
      wake_loop_.wait(lock, [&] { return jobs_.size() < kMaxQueued; });
      jobs_.push_back({doc_id, uri, std::string(body)});
      ++unfinished_;
      wake = jobs_.size() % kPagesPerWake == 0;
      done.swap(done_);
    }
    if (wake) wake_workers_.notify_one();
    for (ScannedPage& page : done) ahead.Add(std::move(page));
  }
  // Waits for every queued page and hands what they gave to `ahead`.
  void Finish(ReadAheadLinks& ahead) {
    std::deque<ScannedPage> done;
    wake_workers_.notify_all();
    {
      std::unique_lock lock(mutex_);
      wake_loop_.wait(lock, [&] { return unfinished_ == 0; });
      done.swap(done_);
    }
    for (ScannedPage& page : done) ahead.Add(std::move(page));
  }

 private:
  static constexpr unsigned kMaxThreads = 2;
  static constexpr std::size_t kMaxQueued = 64;
  static constexpr std::size_t kPagesPerWake = 8;
  struct Job {
    std::string doc_id;
    std::string uri;
    std::string body;
  };

  void Work() {
    for (;;) {
      Job job;
      {
        std::unique_lock lock(mutex_);
        wake_workers_.wait(lock, [&] { return stopping_ || !jobs_.empty(); });
        if (stopping_) return;  // the pass failed: what is queued is not wanted
        job = std::move(jobs_.front());
        jobs_.pop_front();
      }
      wake_loop_.notify_one();  // room in the queue
      ScannedPage page =
          ScanSavedPage(std::move(job.doc_id), job.body, job.uri, *rules_, inclusive_, known_);
      {
        std::lock_guard lock(mutex_);
        done_.push_back(std::move(page));
        --unfinished_;
      }
      wake_loop_.notify_one();
    }
  }

  const std::shared_ptr<UriRuleset> rules_;
  const bool inclusive_;
  const AddressSet& known_;
  std::mutex mutex_;
  std::condition_variable wake_workers_;  // a job queued, or stopping
  std::condition_variable wake_loop_;     // room in the queue, or a job done
  std::deque<Job> jobs_;
  std::deque<ScannedPage> done_;
  std::size_t unfinished_ = 0;  // queued or being read
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

// Gives the open rows whose files the journal names their outcome, in one transaction.
// The journal is then started afresh: what it named and was not found stays open and is fetched
// again.
void RecoverSavedRows(SaveJournal& journal, const std::string& job_id, const std::string& task_id,
                      const DateTime& job_start) {
  const auto entries = journal.Read();
  if (entries.empty()) {
    journal.Remove();
    return;
  }
  RulesTransaction transaction;
  auto rows = D_DownloadMgr().GetNonDownloadedFiles(job_id, task_id, job_start);
  if (rows->RecordCount() > 0) rows->MoveFirst();
  for (; !rows->IsEOF(); rows->MoveNext()) {
    const auto found = entries.find(TextOf(*rows, "doc_id"));
    std::error_code ec;
    if (found == entries.end() || !std::filesystem::is_regular_file(found->second.file, ec)) {
      continue;
    }
    const Variant& tries = (*rows)["copy_try_count"].Value();
    (*rows)["copy_completion_code"].SetValue(Variant(found->second.code));
    (*rows)["temp_uri"].SetValue(Variant(found->second.file));
    (*rows)["copy_completion_time"].SetValue(Variant(DateTime::Now()));
    (*rows)["copy_try_count"].SetValue(
        Variant(static_cast<std::int32_t>((tries.IsEmptyOrNull() ? 0 : tries.ToLong()) + 1)));
    rows->Update();
  }
  transaction.Commit();
  journal.Remove();
}

// The addresses of an e-mail file that an earlier process of the same run wrote (one
// "address, page" line each, as `UriList::WriteToFile` writes them), added to `emails` in the
// file's order. No file is no addresses; a line that does not read as an address is passed over.
void ReadEmailFile(const std::string& path, UriList& emails) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(path, ec)) return;
  const DocumentFile file = DecodeDocumentBytes(ReadFileBytes(path, "Crawler.Crawl"));
  std::string_view rest = file.text;
  while (!rest.empty()) {
    const std::size_t end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    const std::size_t comma = line.find(", ");
    const std::string_view address = line.substr(0, comma);
    const std::string_view page =
        comma == std::string_view::npos ? std::string_view{} : line.substr(comma + 2);
    if (address.empty()) continue;
    try {
      emails.Add(web::Uri("mailto:" + std::string(address)), std::string(page));
    } catch (const Error&) {
      // Not an address this list could have written: left out.
    }
  }
}

}  // namespace

const PropertyTable* Crawler::GetPropertyTable() const {
  static const PropertyTable table =
      PropertyTableBuilder<Crawler>("Crawler")
          .Value("EmailOutputPath", &Crawler::EmailOutputPath, &Crawler::SetEmailOutputPath)
          .Value("MaxDepth", &Crawler::MaxDepth, &Crawler::SetMaxDepth)
          .Value("MaxDocCount", &Crawler::MaxDocCount, &Crawler::SetMaxDocCount)
          .Child("Ruleset", [](const Crawler& c) { return c.ruleset_; })
          .Value("AreRulesInclusive", &Crawler::AreRulesInclusive, &Crawler::SetAreRulesInclusive)
          .Build();
  return &table;
}

const UriRulesetPtr& Crawler::Ruleset() {
  if (!ruleset_) ruleset_ = UriRuleset::Create();
  return ruleset_;
}

void Crawler::RelayStatus(const std::string& status, bool& cancel) {
  OnStatusChange.Emit(status + "  Crawl Depth:  " + std::to_string(depth_), cancel);
  cancel_ = cancel_ || cancel;
}

HttpClientPtr Crawler::Crawl(const std::shared_ptr<Task>& tsk,
                             const HttpClientPtr& TemplateHttpClient,
                             const FileSaverPtr& SaveAsTemplate) {
  return ReportAs(kCrawlLogName, [&] {
    if (!tsk) ThrowObjectNotSet("Crawler.Crawl");
    cancel_ = false;
    const auto job = tsk->GetJob();
    const std::string job_id = job->JobId();
    const std::string task_id = tsk->TaskId();
    const DateTime job_start = job->StartTime();
    const FileSaverPtr saver = SaveAsTemplate ? SaveAsTemplate : FileSaver::Create();
    HttpClientPtr client = TemplateHttpClient ? TemplateHttpClient : web::HttpClient::Create();
    const auto politeness = politeness_ ? politeness_ : std::make_shared<Politeness>();
    const UriRuleset& rules = *Ruleset();

    D_CrawlQueue queue;
    // Addresses by the hash of their normal form (`Uri::HashCode`). Two different addresses with
    // one hash would count as one; for a run of 10,000 addresses the chance of that is about one
    // in 10^11.
    AddressSet pages_seen;
    AddressSet links;  // every address of the run
    UriList emails;
    // A crawl of a run that has begun before goes on where it stands.
    SaveJournal journal(job_id, task_id, job_start);
    RecoverSavedRows(journal, job_id, task_id, job_start);
    const CrawlRunState state = queue.GetRunState(job_id, task_id, job_start);
    depth_ = state.depth;
    const long read_before = state.processed;
    // The e-mail file of a run that has read pages already holds what they gave: it is the
    // start of the list, so the file written next still has them.
    long emails_written = 0;
    if (!email_output_path_.empty() && (read_before > 0 || depth_ > 0)) {
      ReadEmailFile(email_output_path_, emails);
      emails_written = emails.Count();
    }
    queue.ForEachRunAddress(job_id, task_id, job_start, [&](const std::string& address) {
      try {
        links.Insert(web::Uri(address).HashCode());
      } catch (const Error&) {
        // An address that does not parse was queued from a source; it is known by its text.
      }
    });
    const auto limit_met = [&] {
      return (max_depth_ > 0 && depth_ >= max_depth_) ||
             (max_doc_count_ > 0 && read_before + pages_seen.Count() >= max_doc_count_) || cancel_;
    };
    // A page is local when its address is a file's: an absolute path is what a drive letter is
    // elsewhere.
    const auto is_local = [](const std::string& source) {
      std::string kind = source;
      const web::ResourceType type = DownloadMgr::DetermineResourceType(kind);
      return type == web::ResourceType::FileSystem ||
             (type == web::ResourceType::Unknown && kind.starts_with("/"));
    };
    ReadAheadLinks ahead;

    for (;;) {
      // The round's open rows are read a slice at a time, and so are the pages of a level.
      OpenRowsFeed rows(job_id, task_id, job_start);
      if (cancel_) break;
      const bool downloading = rows.Count() > 0;
      if (downloading) {
        auto pass = AdvancedDownloadMgr::Create();
        pass->SetPoliteness(politeness);
        const ScopedConnection status = pass->OnStatusChange.Connect(
            [this](const std::string& s, bool& cancel) { RelayStatus(s, cancel); });
        const ScopedConnection progress = pass->OnProgressChange.Connect(
            [this](long change, long max) { OnProgressChange.Emit(change, max); });
        const ScopedConnection naming = pass->OnFileNaming.Connect(
            [&journal](const std::string& id, const std::string& file, const std::string& code) {
              journal.Append(id, file, code);
            });
        // A web page's links are read as it is saved (on the reader's threads); a local page's
        // (resolved against the client's address of the round) and any page not read here are
        // read from their files.
        LinkReader reader(rules, are_rules_inclusive_, links);
        const ScopedConnection page_saved = pass->OnPageSaved.Connect(
            [&](const DownloadRow& row, const std::string&, std::string_view body) {
              if (body.empty() || limit_met() || is_local(row.uri)) return;
              reader.Submit(row.doc_id, row.uri, body, ahead);
            });
        const ScopedConnection outcome = pass->OnRowOutcome.Connect(
            [this](const std::string& id, const std::string& code, bool saved, long long bytes) {
              OnRowOutcome.Emit(id, code, saved, bytes);
            });
        client = pass->DownloadFiles(rows, saver, client, "GET", tsk->SaveErrorPages());
        reader.Finish(ahead);
      }
      if (limit_met()) {
        ahead.Clear();
        if (cancel_ || !downloading) break;
        continue;  // the last level is fetched (and retried) but yields no links
      }

      const long doc_count = queue.CountUnreadDocs(job_id, task_id, job_start);
      if (doc_count == 0) {
        ahead.Clear();
        if (!downloading) break;
        continue;  // nothing fetched this round: no level was read
      }
      ++depth_;
      const std::string relative = client->StaticRelativeUrlString();
      // Each slice of pages is stored with the links they gave in one transaction (see
      // D_CrawlQueue::SaveRound).
      long long after = 0;
      for (bool more = true; more;) {
        auto docs = queue.GetUnreadDocs(job_id, task_id, job_start, after, kPagesPerSlice);
        more = docs->RecordCount() == kPagesPerSlice;
        std::vector<std::string> read_ids;
        std::vector<CrawlLink> found;
        for (; !docs->IsEOF(); docs->MoveNext()) {
          after = (*docs)["row_no"].Value().ToLongLong();
          const std::string source = TextOf(*docs, "uri");
          bool cancel = false;
          OnStatusChange.Emit("Extracting links from " + source, cancel);
          DoEvents();
          cancel_ = cancel_ || cancel;
          if (cancel_) break;
          std::string doc_id = TextOf(*docs, "doc_id");
          const bool local = is_local(source);
          const ReadAheadLinks::Page* read = local ? nullptr : ahead.Find(doc_id);
          std::string address = source;
          if (local && !relative.empty()) {
            address = relative;
          } else if (local && !text::StartsWithNoCase(source, "file:")) {
            address = FileAddress(std::filesystem::absolute(source).string());
          }
          if (read) {
            pages_seen.InsertHash(read->page);
            std::size_t spelled = 0;
            for (std::size_t i = 0; i < read->fresh.size(); ++i) {
              const std::string& url = ahead.Text(*read, i, spelled);
              if (links.InsertHash(read->fresh[i])) {
                found.push_back({url, static_cast<std::int16_t>(depth_)});
              }
            }
            if (read->emails) emails.MergeTo(*read->emails);
          } else {
            try {
              auto page = WebPage::Create();
              page->RegExHrefs(TextOf(*docs, "temp_uri"), address);
              pages_seen.Insert(page->url().HashCode());
              if (page->HttpLinks().Count() > 0) {
                // New links in the order first seen; the first sighting of an address wins.
                const auto kept = page->HttpLinks().DivideByRuleset(rules, are_rules_inclusive_);
                for (const auto& [key, item] :
                     acquire_internal::UriListInternal::RawDictionary(*kept)) {
                  if (links.Insert(key)) {
                    found.push_back({item->url(), static_cast<std::int16_t>(depth_)});
                  }
                }
              }
              emails.MergeTo(page->EmailLinks());
            } catch (const Error& failure) {
              // The page costs only itself: it is marked read, so it is not read again.
              Error e = failure;
              e.AddCallStackLine(kCrawlLogName);
              bool ignored = false;
              OnStatusChange.Emit(e.Description(), ignored);
            }
          }
          OnProgressChange.Emit(1, doc_count * 2);
          if (max_doc_count_ > 0 && read_before + pages_seen.Count() >= max_doc_count_) {
            more = false;
            break;
          }
          read_ids.push_back(std::move(doc_id));
        }
        if (cancel_) more = false;
        docs.reset();
        // The addresses are in the file before their pages are marked read: a process killed
        // in between reads those pages again rather than losing what they gave.
        if (!email_output_path_.empty() && emails.Count() != emails_written) {
          acquire_internal::UriListInternal::WriteToFile(emails, email_output_path_, true, true);
          emails_written = emails.Count();
        }
        queue.SaveRound(job_id, task_id, job_start, read_ids, found);
      }
      ahead.Clear();
      if (!email_output_path_.empty())
        acquire_internal::UriListInternal::WriteToFile(emails, email_output_path_, true, true);
    }
    // Every outcome is committed once the passes are over.
    journal.Remove();
    return client;
  });
}

std::string Crawler::Serialize() {
  return ReportAs("Crawler.ISerializable_Serialize", [&] {
    XmlSerializer serializer;
    serializer.SetIgnoreList("Crawler.Ruleset");
    return FrameObjectText(kCrawlerFrame, serializer.Serialize(*this)) +
           FrameObjectText(kRulesetFrame, Ruleset()->Serialize());
  });
}

void Crawler::Deserialize(std::string_view xml) {
  ReportAs("Crawler.ISerializable_Deserialize(xml)", [&] {
    const std::string crawler = UnframeObjectText(xml, kCrawlerFrame);
    const std::string rules = UnframeObjectText(xml, kRulesetFrame);
    if (!rules.empty()) {
      auto ruleset = UriRuleset::Create();  // a ruleset's text adds to its rules
      ruleset->Deserialize(rules);
      ruleset_ = std::move(ruleset);
    }
    if (!crawler.empty()) {
      XmlSerializer serializer;
      serializer.SetIgnoreList("Crawler.Ruleset");
      serializer.Deserialize(*this, crawler);
    }
  });
}

UriListPtr Crawler::GetAllLinksFromHTML(const html::Document& html,
                                        const std::string& RelativeUrl) {
  return ReportAs("Crawler.GetAllLinksFromHTML(html,RelativeUrl)", [&] {
    const web::Uri base(RelativeUrl);
    auto list = UriList::Create();
    for (const html::Element& link : html.links()) {
      const std::optional<std::string> href = link.getAttribute("href");
      if (!href) continue;
      try {
        const web::Uri u(*href, &base);
        if (!list->Exists(u)) list->Add(u);
      } catch (const Error&) {
        // an href that does not resolve is no link
      }
    }
    return list;
  });
}

std::shared_ptr<const html::Document> Crawler::ParseHtml(const std::string& path) {
  return ReportAs("Crawler.ParseHtml(path)", [&] {
    // The tree is built on a thread of its own while this one yields to the host; a tree that
    // comes too late is dropped by that thread when it is done.
    struct Parse {
      std::mutex mutex;
      std::shared_ptr<const html::Document> document;
      std::optional<Error> failure;
      std::atomic<bool> done{false};
    };
    auto parse = std::make_shared<Parse>();
    std::thread([parse, path] {
      try {
        DocumentFile file = ReadDocumentFile(path, "Crawler.ParseHtml");
        auto document = html::Document::Parse(std::move(file.text), path);
        std::lock_guard lock(parse->mutex);
        parse->document = std::move(document);
      } catch (const Error& e) {
        std::lock_guard lock(parse->mutex);
        parse->failure = e;
      } catch (const std::exception& e) {
        std::lock_guard lock(parse->mutex);
        parse->failure = Error(errnum::kProviderError, "Crawler.ParseHtml", e.what());
      }
      parse->done = true;
    }).detach();
    const auto deadline = std::chrono::steady_clock::now() + parse_timeout_;
    while (!parse->done) {
      if (std::chrono::steady_clock::now() >= deadline) {
        throw Error(acquireerr::kParseHtmlTimeout, "Crawler.CHTMLPlugin",
                    "Timeout occurred trying to open the document " + path + ".");
      }
      DoEvents();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    std::lock_guard lock(parse->mutex);
    if (parse->failure) throw *parse->failure;
    return parse->document;
  });
}

}  // namespace gw
