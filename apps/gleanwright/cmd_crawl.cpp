// gleanwright crawl: an ad hoc crawl for a person who does not want to write a package first.
//
// The command stores a package (named by --package, or after the first start address) with one
// crawling task: its sources are the start addresses, its crawler's rules come from --follow and
// --skip, its file saver writes below --to, one folder per host and path. Then it runs the package
// as `run` does (progress, Ctrl-C) and prints how many pages were saved, failed and refused.
// `--resume` goes on with the package's unfinished run. The package is like any other: it can be
// exported, edited and run.
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "acquire/crawler.h"
#include "acquire/uri_rules.h"
#include "commands.h"
#include "engine/doc_source.h"
#include "engine/failures.h"
#include "engine/job.h"
#include "engine/task.h"
#include "package_lookup.h"
#include "platform/error.h"
#include "platform/text.h"
#include "rules/c_disconn_rs.h"
#include "rules/connection_string.h"
#include "rules/package_data_access.h"
#include "run_package.h"
#include "web/uri.h"

namespace gw::app {
namespace {

struct CrawlOptions {
  std::vector<std::string> starts;
  std::string folder;
  int depth = 0;
  int max_pages = 0;
  std::vector<std::string> follow;
  std::vector<std::string> skip;
  std::string emails;
  std::string package;
  bool resume = false;
  bool any_host = false;
};

// "PART OPERATOR VALUE", such as "[HOST] [EQUALS] example.org": the part and the operator are the
// first two bracketed words (an operator may hold spaces), the value is the rest, trimmed.
UriRulePtr ParseRule(const std::string& text) {
  auto rule = UriRule::Create();
  std::string rest(text::TrimSpaces(text));
  const auto take_bracketed = [&](const char* what) {
    if (rest.empty() || rest[0] != '[' || rest.find(']') == std::string::npos) {
      throw Error(errnum::kInvalidProcedureCall, "gleanwright crawl",
                  "The rule '" + text + "' has no " + what +
                      ": write a rule as PART OPERATOR VALUE, such as "
                      "'[HOST] [EQUALS] example.org'.");
    }
    const std::size_t end = rest.find(']');
    std::string word = text::AsciiUpper(rest.substr(0, end + 1));
    rest = std::string(text::TrimSpaces(std::string_view(rest).substr(end + 1)));
    return word;
  };
  rule->SetPart(take_bracketed("part"));
  rule->SetOperator(take_bracketed("operator"));
  rule->SetValue(rest);
  rule->Validate();
  return rule;
}

// The negation of a rule's operator, for a skip rule that stands beside follow rules; "" when
// it has none.
std::string NegatedOperator(const std::string& op) {
  static const std::vector<std::pair<std::string, std::string>> kPairs = {
      {"[CONTAINS]", "[DOES NOT CONTAIN]"},
      {"[EQUALS]", "[NOT EQUAL]"},
      {"[STARTS WITH]", "[DOES NOT START WITH]"},
      {"[ENDS WITH]", "[DOES NOT END WITH]"}};
  for (const auto& [a, b] : kPairs) {
    if (op == a) return b;
    if (op == b) return a;
  }
  return {};
}

// The crawler's rules:
//  - only --follow: a link is followed when any follow rule matches;
//  - only --skip: a link is followed unless a skip rule matches;
//  - both: a link is followed when it matches every follow rule and no skip rule;
//  - neither: links stay on the hosts of the start addresses (unless --any-host).
void SetRules(Crawler& crawler, const CrawlOptions& o) {
  auto ruleset = UriRuleset::Create();
  const auto add = [&](const UriRulePtr& r) {
    auto rule = ruleset->Add();
    rule->SetPart(r->Part());
    rule->SetOperator(r->Operator());
    rule->SetValue(r->Value());
  };
  if (!o.follow.empty() && !o.skip.empty()) {
    ruleset->SetIsAnd(true);
    crawler.SetAreRulesInclusive(true);
    for (const auto& text : o.follow) add(ParseRule(text));
    for (const auto& text : o.skip) {
      UriRulePtr r = ParseRule(text);
      const std::string negated = NegatedOperator(r->Operator());
      if (negated.empty()) {
        throw Error(errnum::kInvalidProcedureCall, "gleanwright crawl",
                    "The skip rule '" + text + "' cannot stand beside --follow rules: only " +
                        "[CONTAINS], [EQUALS], [STARTS WITH], [ENDS WITH] and their negations "
                        "can.");
      }
      r->SetOperator(negated);
      add(r);
    }
  } else if (!o.follow.empty()) {
    crawler.SetAreRulesInclusive(true);
    for (const auto& text : o.follow) add(ParseRule(text));
  } else if (!o.skip.empty()) {
    crawler.SetAreRulesInclusive(false);
    for (const auto& text : o.skip) add(ParseRule(text));
  } else if (!o.any_host) {
    crawler.SetAreRulesInclusive(true);
    std::vector<std::string> hosts;
    for (const auto& start : o.starts) {
      const web::Uri u(start);
      if (u.Host().empty()) continue;
      bool known = false;
      for (const auto& h : hosts) known = known || text::EqualsNoCase(h, u.Host());
      if (known) continue;
      hosts.push_back(u.Host());
      auto rule = ruleset->Add();
      rule->SetPart("[HOST]");
      rule->SetOperator("[EQUALS]");
      rule->SetValue(u.Host());
    }
  }
  crawler.SetRuleset(ruleset);
}

JobPtr BuildPackage(const CrawlOptions& o, const std::string& name) {
  JobPtr job;
  try {
    const std::string id = FindPackageId(name);
    job = Job::Create();
    job->Load(id);
    if (job->IsAnyInstanceRunning()) {
      throw Error(engineerr::kJobSaveWhileRunning, "gleanwright crawl",
                  "The package " + name +
                      " has an unfinished run: add --resume to go on with it, or close it with "
                      "'gleanwright close-instances " +
                      id + "' first.");
    }
    DJob().DeleteAllTasks(id);
    job->Load(id);
  } catch (const Error& e) {
    if (e.Number() != engineerr::kNoSuchJob) throw;
    job = Job::Create();
    job->SetJobName(name);
  }
  job->SetDescription("Crawl of " + o.starts.front());
  job->Save();

  auto task = Task::Create();
  task->SetTaskName("Crawl");
  task->SetStep(1);
  task->SetTaskType(TaskTypes::CrawlOnly);
  job->GetTasks().Add(task);
  for (const auto& start : o.starts) {
    auto source = DocSource::Create();
    source->SetSourceType(SrcType::path);
    source->SetSource(start);
    task->GetDocSources().Add(source, source->DocSrcId());
  }
  auto crawler = Crawler::Create();
  crawler->SetMaxDepth(o.depth);
  crawler->SetMaxDocCount(o.max_pages);
  if (!o.emails.empty()) {
    crawler->SetEmailOutputPath(std::filesystem::absolute(o.emails).string());
  }
  SetRules(*crawler, o);
  task->SetCrawlerAgent(crawler);
  // A page's file mirrors its address: <folder>/<host>/<path>/<file name>, with the query in the
  // name. (The bare saver would save every page as default(n).htm in one folder.)
  const FileSaverPtr& saver = task->SaveAsTemplate();
  saver->SetRootFolder(std::filesystem::absolute(o.folder).string());
  saver->SetDocFolder("[HOST]/[URLPATH]");
  saver->SetFileName("[FILENAME]?[URLQUERY]");
  task->Save();
  return job;
}

long CountRows(const std::string& sql, const JobPtr& job) {
  auto rs = CDisconnRS(modConnectionString::GetCnStr())
                .RunQuery(sql, true, {Variant(job->JobId()), Variant(job->StartTime())});
  return rs->IsEOF() ? 0 : rs->GetFields().Item(0L).Value().ToLong();
}

int Crawl(const CrawlOptions& o) {
  if (o.depth < 0 || o.max_pages < 0) {
    throw Error(errnum::kInvalidProcedureCall, "gleanwright crawl",
                "--depth and --max-pages take 0 (no limit) or more.");
  }
  const std::string name = o.package.empty() ? o.starts.front() : o.package;
  JobPtr job;
  if (o.resume) {
    job = Job::Create();
    job->Load(FindPackageId(name));
  } else {
    for (const auto& start : o.starts) web::Uri check(start);  // a bad address fails here
    job = BuildPackage(o, name);
  }
  const int status = RunJob(job, "", "", o.resume);
  const char* kRun = " FROM task_instance_docs WHERE job_id = ? AND job_start_time = ?";
  const long saved = CountRows(
      std::string("SELECT COUNT(*)") + kRun +
          " AND copy_completion_code IN ('Success', 'File saved, but path was truncated')",
      job);
  const long refused = CountRows(
      std::string("SELECT COUNT(*)") + kRun + " AND copy_completion_code = 'Refused by robots.txt'",
      job);
  const long failed = CountRows(
      std::string("SELECT COUNT(*)") + kRun +
          " AND copy_completion_code NOT IN ('Success', 'File saved, but path was truncated', "
          "'Refused by robots.txt', 'Queued')",
      job);
  std::cout << "Pages saved: " << saved << ", failed: " << failed << ", refused: " << refused
            << "\n";
  return status;
}

CommandAction SetUpCrawl(CLI::App& cmd) {
  auto o = std::make_shared<CrawlOptions>();
  cmd.add_option("start", o->starts, "Start addresses")->required();
  cmd.add_option("--to", o->folder, "The folder the pages are saved below")->required();
  cmd.add_option("--depth", o->depth,
                 "Rounds of link reading (1: the start pages and the pages they link to); 0 "
                 "for no limit (the default)");
  cmd.add_option("--max-pages", o->max_pages,
                 "Stop reading links once this many pages have been read (the pages already "
                 "queued are still fetched); 0 for no limit (the default)");
  cmd.add_option("--follow", o->follow,
                 "Follow only links matching a rule 'PART OPERATOR VALUE', such as "
                 "'[HOST] [EQUALS] example.org' (any of several; with --skip, all of them)");
  cmd.add_option("--skip", o->skip, "Do not follow links matching a rule (any of several)");
  cmd.add_flag("--any-host", o->any_host,
               "Without --follow or --skip, follow links to any host (by default a crawl stays "
               "on the hosts of its start addresses)");
  cmd.add_option("--emails", o->emails,
                 "Write the e-mail addresses found to this file, each with its page");
  cmd.add_option("--package", o->package,
                 "The package's name (default: the first start address); a package of that "
                 "name is replaced");
  cmd.add_flag("--resume", o->resume,
               "Go on with the package's unfinished run (the other options are those stored)");
  return [=] { return Crawl(*o); };
}

const CommandRegistration kCrawl(
    55, "crawl", SetUpCrawl,
    "Crawl from start addresses, level by level, saving the pages below a folder; stores a package "
    "with one crawling task, runs it (Ctrl-C stops it cleanly) and prints the pages saved, failed "
    "and refused");

}  // namespace
}  // namespace gw::app
