#include "run_display.h"

#include <signal.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>

#include "platform/text.h"

namespace gw::app {

RunDisplay::RunDisplay(std::FILE* out) : out_(out), terminal_(::isatty(::fileno(out)) == 1) {
  if (terminal_) return;  // every redraw goes out at once
  // The thread takes no signal: Ctrl-C still interrupts the run's own waits.
  sigset_t all, old;
  sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &old);
  flusher_ = std::thread([this] { FlushWhenDue(); });
  ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

RunDisplay::~RunDisplay() {
  if (flusher_.joinable()) {
    {
      std::lock_guard lock(flush_mutex_);
      stopping_ = true;
    }
    flush_wake_.notify_one();
    flusher_.join();
  }
  std::fflush(out_);
}

void RunDisplay::FlushNow() {
  if (!terminal_) {
    std::lock_guard lock(flush_mutex_);
    held_ = false;
    last_flush_ = Clock::now();
  }
  std::fflush(out_);
}

void RunDisplay::LineWritten() {
  const auto now = Clock::now();
  std::unique_lock lock(flush_mutex_);
  if (now - last_flush_ >= kFlushEvery) {
    held_ = false;
    last_flush_ = now;
    lock.unlock();
    std::fflush(out_);
  } else if (!held_) {
    held_ = true;
    lock.unlock();
    flush_wake_.notify_one();
  }
}

void RunDisplay::FlushWhenDue() {
  std::unique_lock lock(flush_mutex_);
  for (;;) {
    flush_wake_.wait(lock, [this] { return held_ || stopping_; });
    if (stopping_) return;
    // Pushed out by then unless a later line (or a Note) did it first.
    const bool done_meanwhile = flush_wake_.wait_until(lock, last_flush_ + kFlushEvery,
                                                       [this] { return stopping_ || !held_; });
    if (stopping_) return;
    if (done_meanwhile) continue;
    held_ = false;
    last_flush_ = Clock::now();
    lock.unlock();
    std::fflush(out_);  // the stream locks itself against the run's own writes
    lock.lock();
  }
}

int RunDisplay::Width() const {
  winsize ws{};
  if (::ioctl(::fileno(out_), TIOCGWINSZ, &ws) == 0 && ws.ws_col > 20) return ws.ws_col;
  return 80;
}

void RunDisplay::ResetProgress() {
  done_ = 0;
  max_ = 0;
  transfers_ = false;
}

void RunDisplay::Transfers(long fetched, long failed, long queued, long long bytes) {
  const auto now = Clock::now();
  if (!transfers_) {
    transfers_ = true;
    transfers_began_ = now;
    last_transfer_line_ = {};
  }
  fetched_ = fetched;
  failed_ = failed;
  queued_ = queued;
  bytes_ = bytes;
  if (terminal_) {
    Redraw();
  } else if (queued == 0 || now - last_transfer_line_ >= std::chrono::seconds(2)) {
    last_transfer_line_ = now;
    std::fprintf(out_, "%s\n", TransferText().c_str());
    LineWritten();
  }
}

std::string RunDisplay::TransferText() const {
  const double seconds = std::chrono::duration<double>(Clock::now() - transfers_began_).count();
  const double rate = seconds > 0.05 ? static_cast<double>(bytes_) / seconds : 0.0;
  char text[160];
  if (rate >= 1024.0 * 1024.0) {
    std::snprintf(text, sizeof text, "fetched %ld, failed %ld, queued %ld, %.1f MB/s", fetched_,
                  failed_, queued_, rate / (1024.0 * 1024.0));
  } else {
    std::snprintf(text, sizeof text, "fetched %ld, failed %ld, queued %ld, %.1f KB/s", fetched_,
                  failed_, queued_, rate / 1024.0);
  }
  return text;
}

void RunDisplay::Progress(long change, long max) {
  done_ += change;
  max_ = max;
  if (terminal_) Redraw();
}

void RunDisplay::CompleteProgress() {
  done_ = max_ > 0 ? max_ : 1;
  max_ = done_;
  if (terminal_) Redraw();
}

void RunDisplay::Status(const std::string& status) {
  status_ = status;
  if (terminal_) {
    Redraw();
  } else {
    std::fprintf(out_, "%s\n", status.c_str());
    LineWritten();
  }
}

void RunDisplay::Note(const std::string& line) {
  if (terminal_ && drawn_) std::fputs("\r\x1b[K", out_);
  std::fprintf(out_, "%s\n", line.c_str());
  if (terminal_ && drawn_) Redraw();
  FlushNow();
}

void RunDisplay::Finish() {
  if (terminal_ && drawn_) std::fputs("\n", out_);
  drawn_ = false;
  FlushNow();
}

void RunDisplay::Redraw() {
  constexpr int kBar = 24;
  const long percent = max_ > 0 ? std::clamp(done_ * 100 / max_, 0L, 100L) : 0;
  const int filled = static_cast<int>(percent * kBar / 100);
  std::string line = "[" + std::string(static_cast<std::size_t>(filled), '#') +
                     std::string(static_cast<std::size_t>(kBar - filled), '.') + "] ";
  const std::string number = std::to_string(percent) + "%";
  line += std::string(4 - std::min<std::size_t>(4, number.size()), ' ') + number + "  ";
  if (transfers_) line += TransferText() + "  ";
  // The status fills what is left of the line, cut at a character's edge.
  const std::size_t room =
      static_cast<std::size_t>(std::max(0, Width() - 1 - static_cast<int>(line.size())));
  std::string status = status_;
  std::replace_if(
      status.begin(), status.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
  line += text::TruncateCodePoints(status, room);
  std::fprintf(out_, "\r\x1b[K%s", line.c_str());
  std::fflush(out_);
  drawn_ = true;
}

}  // namespace gw::app
