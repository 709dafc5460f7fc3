#include "platform/event_loop.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <thread>

namespace gw {

EventLoop& EventLoop::Current() {
  thread_local EventLoop loop;
  return loop;
}

EventLoop::Id EventLoop::StartTimer(Millis interval, Callback callback, bool repeat) {
  const Id id = next_id_++;
  if (interval < Millis(0)) interval = Millis(0);
  timers_.emplace(id, Timer{Now() + interval, interval, repeat, false, std::move(callback)});
  return id;
}

void EventLoop::StopTimer(Id id) { timers_.erase(id); }

bool EventLoop::RescheduleTimer(Id id, Millis interval) {
  const auto it = timers_.find(id);
  if (it == timers_.end() || it->second.running) return false;
  if (interval < Millis(0)) interval = Millis(0);
  it->second.interval = interval;
  it->second.due = Now() + interval;
  return true;
}

EventLoop::~EventLoop() {
  if (epoll_fd_ >= 0) ::close(epoll_fd_);
}

EventLoop::Id EventLoop::WatchFd(int fd, bool want_read, bool want_write, FdCallback callback) {
  const Id id = next_id_++;
  auto& w =
      watches_.emplace(id, Watch{fd, want_read, want_write, std::move(callback)}).first->second;
  Register(id, w);
  return id;
}

void EventLoop::UpdateFd(Id id, bool want_read, bool want_write) {
  const auto it = watches_.find(id);
  if (it == watches_.end()) return;
  Watch& w = it->second;
  if (w.idle) {
    w.idle = false;
    if (w.registered) ++waited_count_;
  }
  w.want_read = want_read;
  w.want_write = want_write;
  Register(id, w);
}

void EventLoop::IdleFd(Id id) {
  const auto it = watches_.find(id);
  if (it == watches_.end()) return;
  Watch& w = it->second;
  if (w.Waited()) --waited_count_;
  w.idle = true;
  w.want_read = w.want_write = false;
}

void EventLoop::UnwatchFd(Id id) {
  const auto it = watches_.find(id);
  if (it == watches_.end()) return;
  Deregister(it->second);
  watches_.erase(it);
}

void EventLoop::Deregister(Watch& w) {
  if (w.registered == 0) return;
  // Fails harmlessly when the descriptor was closed already (the set dropped it then).
  ::epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, w.fd, nullptr);
  if (w.Waited()) --waited_count_;
  w.registered = 0;
}

void EventLoop::Register(Id id, Watch& w) {
  const std::uint32_t wanted = (w.want_read ? EPOLLIN : 0u) | (w.want_write ? EPOLLOUT : 0u);
  if (wanted == w.registered) return;
  if (wanted == 0) {
    Deregister(w);
    return;
  }
  if (epoll_fd_ < 0) {
    epoll_fd_ = ::epoll_create1(EPOLL_CLOEXEC);
    if (epoll_fd_ < 0) return;  // out of descriptors: the watch never fires, like a bad one
  }
  epoll_event ev{};
  ev.events = wanted;
  ev.data.u64 = id;
  int rc = ::epoll_ctl(epoll_fd_, w.registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, w.fd, &ev);
  if (rc != 0 && w.registered && errno == ENOENT) {
    // Closed and opened again under the same number while registered: a new registration.
    rc = ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, w.fd, &ev);
  }
  const bool waited = w.Waited();
  if (rc != 0) {
    // Not a descriptor epoll can watch (or no longer open): it never becomes ready.
    if (waited) --waited_count_;
    w.registered = 0;
    return;
  }
  w.registered = wanted;
  if (!waited && w.Waited()) ++waited_count_;
}

EventLoop::Id EventLoop::AddPoller(Callback callback) {
  const Id id = next_id_++;
  pollers_.emplace(id, std::move(callback));
  return id;
}

void EventLoop::RemovePoller(Id id) { pollers_.erase(id); }

void EventLoop::Post(Callback callback) { posted_.push_back(std::move(callback)); }

void EventLoop::Collect(int timeout_ms) {
  if (ready_count_ > 0 || waited_count_ == 0) return;
  epoll_event events[kMaxReady];
  int n;
  do {
    n = ::epoll_wait(epoll_fd_, events, kMaxReady, timeout_ms);
  } while (n < 0 && errno == EINTR && timeout_ms == 0);
  for (int k = 0; k < n; ++k) ready_[k] = Ready{events[k].data.u64, events[k].events};
  ready_count_ = std::max(n, 0);
}

void EventLoop::DispatchReady() {
  if (ready_count_ == 0) return;
  // Taken out first: a callback may pump the loop again.
  std::array<Ready, kMaxReady> ready;
  const int count = ready_count_;
  std::copy_n(ready_.begin(), count, ready.begin());
  ready_count_ = 0;
  for (int k = 0; k < count; ++k) {
    const auto it = watches_.find(ready[k].id);
    if (it == watches_.end()) continue;  // unwatched since
    Watch& w = it->second;
    if (w.registered == 0) continue;  // wants nothing now
    if (w.idle) {
      // Nobody waits for it and it will stay ready (a closed peer): out of the set.
      Deregister(w);
      continue;
    }
    const std::uint32_t ev = ready[k].events;
    const bool failed = (ev & (EPOLLHUP | EPOLLERR)) != 0;
    const bool readable = failed || (w.want_read && (ev & EPOLLIN) != 0);
    const bool writable = (ev & EPOLLERR) != 0 || (w.want_write && (ev & EPOLLOUT) != 0);
    if (!readable && !writable) continue;
    FdCallback cb = w.callback;  // the callback may unwatch itself
    cb(readable, writable);
  }
}

void EventLoop::RunDueTimers() {
  if (timers_.empty()) return;
  const auto now = Now();
  std::vector<std::pair<Clock::time_point, Id>> due;
  for (const auto& [id, t] : timers_) {
    if (!t.running && t.due <= now) due.emplace_back(t.due, id);
  }
  std::sort(due.begin(), due.end());
  for (const auto& [when, id] : due) {
    auto it = timers_.find(id);
    if (it == timers_.end() || it->second.running) continue;
    Callback cb = it->second.callback;
    if (it->second.repeat) {
      it->second.running = true;
      it->second.due = now + std::max(it->second.interval, Millis(1));
    } else {
      timers_.erase(it);
    }
    cb();
    it = timers_.find(id);
    if (it != timers_.end()) it->second.running = false;
  }
}

void EventLoop::DoEvents() {
  Collect(0);
  DispatchReady();
  RunDueTimers();
  if (!posted_.empty()) {
    std::vector<Callback> work;
    work.swap(posted_);
    for (auto& cb : work) cb();
  }
  if (!pollers_.empty()) {
    std::vector<Id> ids;
    ids.reserve(pollers_.size());
    for (const auto& p : pollers_) ids.push_back(p.first);
    for (Id id : ids) {
      const auto it = pollers_.find(id);
      if (it == pollers_.end()) continue;
      Callback cb = it->second;
      cb();
    }
  }
  if (host_hook_) {
    Callback hook = host_hook_;
    hook();
  }
}

void EventLoop::Sleep(Millis ms) {
  if (ms > Millis(0)) std::this_thread::sleep_for(ms);
}

void EventLoop::WaitForActivity(Millis ms) {
  if (ms <= Millis(0)) return;
  if (ready_count_ > 0) {
    // What an earlier wait found was not handed out yet: look again, so that the next pass
    // serves what is ready now (and not what was ready then).
    ready_count_ = 0;
    Collect(0);
    return;
  }
  if (!posted_.empty()) return;
  // Timers are due by `Now()`; the wait itself is real time.
  auto deadline = Now() + ms;
  for (const auto& [id, t] : timers_) {
    if (!t.running) deadline = std::min(deadline, t.due);
  }
  while (true) {
    const auto now = Now();
    if (deadline <= now) return;
    if (waited_count_ == 0) {
      std::this_thread::sleep_for(deadline - now);
      return;
    }
    const auto wait = std::chrono::duration_cast<Millis>(deadline - now) + Millis(1);
    Collect(static_cast<int>(std::min<Millis::rep>(wait.count(), INT_MAX)));
    // Woken only by idle descriptors (closed by their peers): out of the set, and wait on.
    if (!DropIdleReady()) return;
  }
}

bool EventLoop::DropIdleReady() {
  if (ready_count_ == 0) return false;
  int kept = 0;
  for (int k = 0; k < ready_count_; ++k) {
    const auto it = watches_.find(ready_[k].id);
    if (it != watches_.end() && it->second.idle) {
      Deregister(it->second);
      continue;
    }
    ready_[kept++] = ready_[k];
  }
  ready_count_ = kept;
  return kept == 0;
}

bool EventLoop::RunUntil(const std::function<bool()>& done, Millis timeout, Millis step) {
  const auto deadline = Clock::now() + timeout;
  while (true) {
    DoEvents();
    if (done()) return true;
    const auto now = Clock::now();
    if (now >= deadline) return false;
    WaitForActivity(std::min(step, std::chrono::duration_cast<Millis>(deadline - now)));
  }
}

}  // namespace gw
