// CTimer: a repeating timer for the host's thread.
//
// The timer runs on the event loop of the thread that made the object (`EventLoop::Current()` at
// construction) and fires only from that loop's `DoEvents`, never from another thread and never in
// the middle of other work. It repeats every `Interval` milliseconds while `Enabled`; a one-shot
// use disables it in its handler.
//
//  - Setting `Enabled` stops a running timer first, then starts a new one when the new value is
//    true and `Interval` is at least 1: setting true twice restarts the period.
//  - Setting `Interval` ignores a negative value; otherwise it stores it and sets `Enabled` again
//    to its present value, restarting the timer with the new period. So `Enabled` first and
//    `Interval` second works, and `Interval` 0 runs nothing.
//  - Dropping the object stops the timer. A handler may disable, re-enable or even destroy the
//    object that is raising it.
#pragma once

#include <memory>

#include "platform/event_loop.h"
#include "platform/signal.h"

namespace gw {

class CTimer {
 private:
  struct State {
    Signal<> timer;
  };
  // Shared with the loop's callback so that the event stays alive while it is being raised.
  std::shared_ptr<State> state_ = std::make_shared<State>();

 public:
  CTimer();
  ~CTimer();
  CTimer(const CTimer&) = delete;
  CTimer& operator=(const CTimer&) = delete;

  bool Enabled() const noexcept { return enabled_; }
  void SetEnabled(bool enabled);
  long Interval() const noexcept { return interval_; }
  void SetInterval(long interval);

  // Raises `Timer` (the loop calls it each time the period elapses).
  void RaiseTimer();

  // The event.
  Signal<>& Timer = state_->timer;

 private:
  EventLoop& loop_;
  EventLoop::Id timer_id_ = 0;
  bool enabled_ = false;
  long interval_ = 0;
};

}  // namespace gw
