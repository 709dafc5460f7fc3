// Crawler: follows the links of a task's documents, level by level, until nothing new is found, a
// limit is met or the user cancels.
//
// The queue is the task's document rows in the rules store (rules/crawl_queue.h), never a list in
// memory, so a crawl is breadth-first, visible to the rest of the engine and restartable. A round:
//  1. the run's open rows (not "Success", tried fewer than ten times) go to a new
//     `AdvancedDownloadMgr`; the client it returns is the next round's, so cookies carry over.
//     The hosts' state (robots.txt, the limit per host, Retry-After) lasts for the whole crawl;
//  2. unless a limit is met (`MaxDepth` rounds of link reading, `MaxDocCount` pages read) or the
//     crawl was cancelled, the depth goes up and the links of every fetched page not yet read are
//     taken, in queue order, from what was read of its response as it was saved in the round
//     (a web page) or else from its saved file (`WebPage::RegExHrefs`, no document tree), with
//     the same result either way. A page whose row says
//     it is a local file resolves its links against the client's `StaticRelativeUrlString` when
//     there is one. Web links are filtered by `Ruleset` (`AreRulesInclusive`: keep those that
//     match; otherwise drop them, so an empty ruleset follows everything), e-mail addresses
//     gathered, status "Extracting links from <uri>" and progress (1, pages x 2) per page;
//  3. the new links become rows of the run, and the pages are marked read (code 100), in one
//     transaction; links the run knows already (by their normal form, and by the address in the
//     store's index) are not stored again. With `EmailOutputPath` the whole list of addresses is
//     written again: one line per address, ", " and the page it was found on;
//  4. the next round begins while rows are open or fetched pages are unread.
// A round in which no page was read does not count as a level. A failed row stays open and is
// tried again in the next round, until its tenth try.
//
// Starting again: `Crawl` on a run that has rows goes on from them: the depth is the deepest
// level stored, the pages read count toward `MaxDocCount`, and every address of the run is known;
// with `EmailOutputPath`, the addresses its file holds already start the list, and the file is
// written before each slice of pages is marked read, so no address found is lost from it.
//
// Events: the download manager's progress as it is, its statuses with "  Crawl Depth:  <n>"
// added; an answer of flgCancel to any status stops the crawl at the next page or status (the
// transfers under way finish). Failures of one page (a file that cannot be read) are raised as a
// status and cost only that page; the crawl fails on a failure of the store.
//
// Text form: "[!CR!]" the object XML of the crawler (without its ruleset) "[iCRi]" "[!RS!]" the
// ruleset's text "[iRSi]".
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "acquire/download_mgr.h"
#include "acquire/failures.h"
#include "acquire/politeness.h"
#include "acquire/uri_list.h"
#include "acquire/uri_rules.h"
#include "infra/xml_serializer.h"
#include "platform/error.h"
#include "platform/html/document.h"

namespace gw {

class Crawler : public Object, public ICrawlAgent, public ISerializable {
 public:
  static std::shared_ptr<Crawler> Create() { return std::make_shared<Crawler>(); }
  std::string TypeName() const override { return "Crawler"; }
  const PropertyTable* GetPropertyTable() const override;

  // The file for harvested e-mail addresses; "" for none.
  const std::string& EmailOutputPath() const { return email_output_path_; }
  void SetEmailOutputPath(std::string v) { email_output_path_ = std::move(v); }
  // Rounds of link reading; 0 for no limit.
  std::int32_t MaxDepth() const { return max_depth_; }
  void SetMaxDepth(std::int32_t v) { max_depth_ = v; }
  // Pages whose links are read; 0 for no limit.
  std::int32_t MaxDocCount() const { return max_doc_count_; }
  void SetMaxDocCount(std::int32_t v) { max_doc_count_ = v; }
  // Made (empty) on first read.
  const UriRulesetPtr& Ruleset();
  void SetRuleset(UriRulesetPtr v) { ruleset_ = std::move(v); }
  bool AreRulesInclusive() const { return are_rules_inclusive_; }
  void SetAreRulesInclusive(bool v) { are_rules_inclusive_ = v; }

  // Crawls the running task `tsk` (see the file comment); returns the client of the last round
  // (`TemplateHttpClient` when nothing was downloaded). Reports under
  // "Crawler.Crawl(tsk,TemplateHttpClient,SaveAsTemplate)".
  HttpClientPtr Crawl(const std::shared_ptr<Task>& tsk, const HttpClientPtr& TemplateHttpClient,
                      const FileSaverPtr& SaveAsTemplate) override;

  std::string Serialize() override;
  // Replaces the settings and the ruleset with those of the text; an empty text does nothing.
  void Deserialize(std::string_view xml) override;

  // ---- inside the library ----
  // The links of the document's A and AREA elements with an href, resolved against
  // `RelativeUrl`, each once; an href that does not resolve is skipped.
  static UriListPtr GetAllLinksFromHTML(const html::Document& html, const std::string& RelativeUrl);
  // Reads the file at `path` into a document tree, yielding to the host while it is built. A
  // document not ready within the time-out (five minutes unless set) fails with
  // `acquireerr::kParseHtmlTimeout`, source "Crawler.CHTMLPlugin".
  std::shared_ptr<const html::Document> ParseHtml(const std::string& path);
  void SetParseTimeout(std::chrono::milliseconds t) { parse_timeout_ = t; }
  // The rounds of link reading done.
  int CurrentDepth() const { return depth_; }
  // The hosts' state of the crawls; one for each crawl unless set.
  void SetPoliteness(std::shared_ptr<Politeness> p) { politeness_ = std::move(p); }

 private:
  // Raises a status of the download manager with the depth, and keeps its answer.
  void RelayStatus(const std::string& status, bool& cancel);

  std::string email_output_path_;
  std::int32_t max_depth_ = 0;
  std::int32_t max_doc_count_ = 0;
  UriRulesetPtr ruleset_;
  bool are_rules_inclusive_ = false;
  bool cancel_ = false;
  int depth_ = 0;
  std::chrono::milliseconds parse_timeout_{300000};
  std::shared_ptr<Politeness> politeness_;
};

using CrawlerPtr = std::shared_ptr<Crawler>;

}  // namespace gw
