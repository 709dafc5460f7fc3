// gleanwright run: runs a package unattended, as the package executor does.
//
// Ctrl-C asks the package to stop: the next status the package raises is answered with
// flgCancel, so the run ends cleanly at the next step and its history is kept. A second Ctrl-C
// ends the program at once. `--resume` goes on with the package's newest unfinished run (one that
// was stopped, or whose process was killed) instead of starting a new one.
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <vector>

#include "acquire/components.h"
#include "acquire/download_mgr.h"
#include "commands.h"
#include "engine/components.h"
#include "engine/job.h"
#include "package_lookup.h"
#include "platform/event_loop.h"
#include "platform/text.h"
#include "rules/run_resume.h"
#include "run_display.h"
#include "run_package.h"
#include "run_report.h"

namespace gw::app {
namespace {

volatile std::sig_atomic_t g_interrupts = 0;

extern "C" void OnInterrupt(int) {
  if (g_interrupts > 0) {
    // The second Ctrl-C: leave now, without running anything that is not safe in a handler.
    static const char kMessage[] = "\ngleanwright: stopped.\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, kMessage, sizeof kMessage - 1);
    ::_exit(130);
  }
  g_interrupts = 1;
}

// Installs the Ctrl-C handler for the life of the object.
class InterruptGuard {
 public:
  InterruptGuard() {
    g_interrupts = 0;
    struct sigaction sa {};
    sa.sa_handler = OnInterrupt;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGINT, &sa, &old_);
  }
  ~InterruptGuard() { ::sigaction(SIGINT, &old_, nullptr); }
  InterruptGuard(const InterruptGuard&) = delete;
  InterruptGuard& operator=(const InterruptGuard&) = delete;

 private:
  struct sigaction old_ {};
};

}  // namespace

int RunJob(const std::shared_ptr<Job>& job, const std::string& uri, const std::string& source_text,
           bool resume) {
  DateTime resume_from;
  if (resume) {
    resume_from = D_RunResume().NewestUnfinishedRun(job->JobId());
    if (resume_from.IsEmpty()) {
      std::cout << "No unfinished run of " << job->JobName() << " to resume; a new run starts.\n";
    }
  }
  RunDisplay display(stdout);
  InterruptGuard interrupts;
  bool cancel_requested = false;
  // The host's hook sees Ctrl-C at every yield of the run; the answer goes out with the next
  // status.
  EventLoop& loop = EventLoop::Current();
  const auto notice_interrupt = [&] {
    if (g_interrupts > 0 && !cancel_requested) {
      cancel_requested = true;
      display.Note("Stopping at the next step (Ctrl-C again ends at once)...");
    }
  };
  loop.SetHostHook(notice_interrupt);
  struct HookReset {
    EventLoop& loop;
    ~HookReset() { loop.SetHostHook({}); }
  } hook_reset{loop};

  ScopedConnection status = job->OnStatusChange.Connect([&](const std::string& s, bool& cancel) {
    notice_interrupt();
    display.Status(s);
    if (cancel_requested) cancel = true;
  });
  ScopedConnection progress = job->OnMajorProgressChange.Connect(
      [&](long change, long max) { display.Progress(change, max); });
  ScopedConnection downloads = job->OnAllDownloadsBegin.Connect([&] { display.ResetProgress(); });
  ScopedConnection finished =
      job->OnTaskExecuteComplete.Connect([&] { display.CompleteProgress(); });

  // Every download manager of the run reports its counts to the display.
  std::vector<ScopedConnection> transfer_counts;
  RegisterDownloadMgrFactory([&]() -> DownloadMgrPtr {
    auto mgr = DownloadMgr::Create();
    transfer_counts.push_back(mgr->OnTransferCounts.Connect([&](const TransferCounts& c) {
      display.Transfers(c.fetched, c.failed, c.queued, c.bytes);
    }));
    return mgr;
  });
  struct FactoryReset {
    ~FactoryReset() { RegisterAcquireComponents(); }
  } factory_reset;

  const std::string name = text::EscapeControlCharacters(job->JobName());
  if (resume_from.IsEmpty()) {
    display.Note("Running package " + name + " (" + job->JobId() + ")");
  } else {
    display.Note("Resuming the run of " + RunTimeText(resume_from) + " of package " + name + " (" +
                 job->JobId() + ")");
  }
  std::string code;
  try {
    code = resume_from.IsEmpty() ? job->Execute(uri, source_text) : job->Resume(resume_from);
  } catch (...) {
    display.Finish();
    throw;  // the host prints the failure and ends with status 1
  }
  display.Finish();
  if (cancel_requested) std::cout << "Cancelled; what ran so far is kept in the history.\n";
  std::cout << "Run started " << RunTimeText(job->StartTime()) << ", completed "
            << RunTimeText(job->CompleteTime()) << "\n";
  // The success code says how well the datasets matched; what was lost is said beside it.
  const RunTotals totals = ReadRunTotals(job->JobId(), job->StartTime());
  PrintDocumentLosses(std::cout, job->JobId(), job->StartTime());
  std::cout << code << "\n";
  std::cout << TotalsText(totals) << "\n";
  return totals.HasLosses() ? kExitFinishedWithLosses : 0;
}

namespace {

int RunPackage(const std::string& package, const std::string& uri, const std::string& source_text,
               bool resume) {
  auto job = Job::Create();
  job->Load(FindPackageId(package));
  return RunJob(job, uri, source_text, resume);
}

CommandAction SetUpRun(CLI::App& cmd) {
  auto package = std::make_shared<std::string>();
  auto uri = std::make_shared<std::string>();
  auto source_text = std::make_shared<std::string>();
  cmd.add_option("package", *package, "The package's id or name")->required();
  auto* uri_opt = cmd.add_option("--uri", *uri,
                                 "Run every task on this one address or path instead of its "
                                 "document sources");
  auto* text_opt = cmd.add_option("--source-text", *source_text,
                                  "Run every task on this text, written to a file first")
                       ->excludes(uri_opt);
  auto resume = std::make_shared<bool>(false);
  cmd.add_flag("--resume", *resume,
               "Go on with the package's newest unfinished run (stopped, or its process killed): "
               "finished tasks are passed over, the unfinished one goes on from its open "
               "documents, and the history keeps one run")
      ->excludes(uri_opt)
      ->excludes(text_opt);
  return [=] { return RunPackage(*package, *uri, *source_text, *resume); };
}

const CommandRegistration kRun(
    50, "run", SetUpRun,
    "Run a package (by id or name) and print its success code, the documents that failed or had "
    "rows refused, and the totals; exit status 3 when a document failed or a row was refused. "
    "Ctrl-C stops it cleanly at the next step, a second Ctrl-C at once");

}  // namespace
}  // namespace gw::app
