#include "platform/event_loop.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
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

EventLoop::Id EventLoop::WatchFd(int fd, bool want_read, bool want_write, FdCallback callback) {
  const Id id = next_id_++;
  watches_.emplace(id, Watch{fd, want_read, want_write, std::move(callback)});
  return id;
}

void EventLoop::UpdateFd(Id id, bool want_read, bool want_write) {
  const auto it = watches_.find(id);
  if (it == watches_.end()) return;
  it->second.want_read = want_read;
  it->second.want_write = want_write;
}

void EventLoop::UnwatchFd(Id id) { watches_.erase(id); }

EventLoop::Id EventLoop::AddPoller(Callback callback) {
  const Id id = next_id_++;
  pollers_.emplace(id, std::move(callback));
  return id;
}

void EventLoop::RemovePoller(Id id) { pollers_.erase(id); }

void EventLoop::Post(Callback callback) { posted_.push_back(std::move(callback)); }

void EventLoop::PollFds() {
  if (watches_.empty()) return;
  std::vector<pollfd> fds;
  std::vector<Id> ids;
  for (const auto& [id, w] : watches_) {
    const short events =
        static_cast<short>((w.want_read ? POLLIN : 0) | (w.want_write ? POLLOUT : 0));
    if (events == 0) continue;
    fds.push_back(pollfd{w.fd, events, 0});
    ids.push_back(id);
  }
  if (fds.empty()) return;
  int rc;
  do {
    rc = ::poll(fds.data(), fds.size(), 0);
  } while (rc < 0 && errno == EINTR);
  if (rc <= 0) return;
  for (std::size_t k = 0; k < fds.size(); ++k) {
    if (fds[k].revents == 0) continue;
    const auto it = watches_.find(ids[k]);
    if (it == watches_.end()) continue;  // removed by an earlier callback of this pass
    const bool readable = (fds[k].revents & (POLLIN | POLLHUP | POLLERR)) != 0;
    const bool writable = (fds[k].revents & (POLLOUT | POLLERR)) != 0;
    FdCallback cb = it->second.callback;  // the callback may unwatch itself
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
  PollFds();
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
  // Timers are due by `Now()`; the wait itself is real time.
  auto deadline = Now() + ms;
  for (const auto& [id, t] : timers_) {
    if (!t.running) deadline = std::min(deadline, t.due);
  }
  if (!posted_.empty()) return;
  std::vector<pollfd> fds;
  for (const auto& [id, w] : watches_) {
    const short events =
        static_cast<short>((w.want_read ? POLLIN : 0) | (w.want_write ? POLLOUT : 0));
    if (events != 0) fds.push_back(pollfd{w.fd, events, 0});
  }
  const auto now = Now();
  if (deadline <= now) return;
  const auto wait = std::chrono::duration_cast<Millis>(deadline - now) + Millis(1);
  if (fds.empty()) {
    std::this_thread::sleep_for(deadline - now);
    return;
  }
  int rc;
  do {
    rc = ::poll(fds.data(), fds.size(), static_cast<int>(wait.count()));
  } while (rc < 0 && errno == EINTR);
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
