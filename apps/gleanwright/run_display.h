// What `gleanwright run` shows while a package runs.
//
// On a terminal: one line, redrawn in place, with a bar of the package's major progress, the
// documents fetched, failed and queued with the transfer rate while a task downloads, and the
// current status. Elsewhere (a pipe, a file): every status on a line of its own, and the download
// counts on a line of their own at most every two seconds and when a pass has no row left.
//
// Lines to a pipe or a file are not pushed out one by one (a run of a thousand documents would
// make three thousand writes): they go out at most `kFlushEvery` after they were written, by the
// next line or, when the run waits on something slow, by a thread of the display's own; a Note,
// Finish and the display's end push out everything at once. What a process killed outright can
// lose is the lines of its last `kFlushEvery`.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <string>
#include <thread>

namespace gw::app {

class RunDisplay {
 public:
  // Draws on `out`; a terminal when `out` is one.
  explicit RunDisplay(std::FILE* out);
  // Pushes out what is still held (also when a failure unwinds the run).
  ~RunDisplay();
  RunDisplay(const RunDisplay&) = delete;
  RunDisplay& operator=(const RunDisplay&) = delete;

  // The longest a line written to a pipe or a file is held before it goes out.
  static constexpr std::chrono::milliseconds kFlushEvery{200};

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
  using Clock = std::chrono::steady_clock;

  void Redraw();
  int Width() const;
  std::string TransferText() const;
  // A line went to a pipe or a file: out now when the last push is `kFlushEvery` ago, else by the
  // flushing thread by then.
  void LineWritten();
  void FlushNow();
  void FlushWhenDue();

  std::FILE* out_;
  bool terminal_;
  bool drawn_ = false;
  long done_ = 0;
  long max_ = 0;
  std::string status_;
  bool transfers_ = false;
  long fetched_ = 0, failed_ = 0, queued_ = 0;
  long long bytes_ = 0;
  Clock::time_point transfers_began_{}, last_transfer_line_{};

  // Shared with the flushing thread (only when not on a terminal).
  std::mutex flush_mutex_;
  std::condition_variable flush_wake_;
  bool held_ = false;  // lines written since the last push
  bool stopping_ = false;
  Clock::time_point last_flush_{};
  std::thread flusher_;
};

}  // namespace gw::app
