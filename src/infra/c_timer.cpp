#include "infra/c_timer.h"

namespace gw {

CTimer::CTimer() : loop_(EventLoop::Current()) {}

CTimer::~CTimer() {
  if (timer_id_ != 0) loop_.StopTimer(timer_id_);
}

void CTimer::SetEnabled(bool enabled) {
  if (enabled_ && timer_id_ != 0) {
    loop_.StopTimer(timer_id_);
    timer_id_ = 0;
  }
  enabled_ = enabled;
  if (enabled_ && interval_ >= 1) {
    // The object may be gone by the time the loop calls; the event lives as long as it is raised.
    std::weak_ptr<State> state = state_;
    timer_id_ = loop_.StartTimer(EventLoop::Millis(interval_), [state] {
      if (const auto s = state.lock()) s->timer.Emit();
    });
  }
}

void CTimer::SetInterval(long interval) {
  if (interval < 0) return;
  interval_ = interval;
  SetEnabled(enabled_);
}

void CTimer::RaiseTimer() {
  const std::shared_ptr<State> keep = state_;
  keep->timer.Emit();
}

}  // namespace gw
