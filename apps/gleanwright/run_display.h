// What `gleanwright run` shows while a package runs.
//
// On a terminal: one line, redrawn in place, with a bar of the package's major progress and the
// current status. Elsewhere (a pipe, a file): every status on a line of its own.
#pragma once

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
  // A line of its own that stays (on a terminal, above the progress line).
  void Note(const std::string& line);
  // Leaves the progress line, so that what follows starts on a fresh line.
  void Finish();

  bool IsTerminal() const { return terminal_; }

 private:
  void Redraw();
  int Width() const;

  std::FILE* out_;
  bool terminal_;
  bool drawn_ = false;
  long done_ = 0;
  long max_ = 0;
  std::string status_;
};

}  // namespace gw::app
