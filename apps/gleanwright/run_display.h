// What `gleanwright run` shows while a package runs.
//
// On a terminal: one line, redrawn in place, with a bar of the package's major progress, the
// documents fetched, failed and queued with the transfer rate while a task downloads, and the
// current status. Elsewhere (a pipe, a file): every status on a line of its own, and the download
// counts on a line of their own at most every two seconds and when a pass has no row left.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>

namespace gw::app {

class RunDisplay {
 public:
  // Draws on `out`; a terminal when `out` is one.
  explicit RunDisplay(std::FILE* out);

  // A new stretch of progress (a task begins to fetch): the bar starts again.
  void ResetProgress();
  // Major progress: `change` more out of `max`.
  void Progress(long change, long max);
  // A task finished: its stretch of the bar is full, whatever its weights added up to.
  void CompleteProgress();
  void Status(const std::string& status);
  // How the downloads stand: rows saved and failed so far in this task, rows of the current pass
  // still to do, and the bytes saved (for the rate since the task began to fetch).
  void Transfers(long fetched, long failed, long queued, long long bytes);
  // A line of its own that stays (on a terminal, above the progress line).
  void Note(const std::string& line);
  // Leaves the progress line, so that what follows starts on a fresh line.
  void Finish();

  bool IsTerminal() const { return terminal_; }

 private:
  void Redraw();
  int Width() const;
  std::string TransferText() const;

  std::FILE* out_;
  bool terminal_;
  bool drawn_ = false;
  long done_ = 0;
  long max_ = 0;
  std::string status_;
  using Clock = std::chrono::steady_clock;
  bool transfers_ = false;
  long fetched_ = 0, failed_ = 0, queued_ = 0;
  long long bytes_ = 0;
  Clock::time_point transfers_began_{}, last_transfer_line_{};
};

}  // namespace gw::app
