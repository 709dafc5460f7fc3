// The host's message pump.
//
// The library runs on one thread with no locks. Every long loop calls `DoEvents()`; that is where
// timers fire, where I/O completions (transfers, child processes) are delivered, and where the
// host's own hook runs (a command-line host reads Ctrl-C there and answers the next status event
// with `flgCancel`). Nothing is ever called back from another thread.
//
// `DoEvents` never blocks. A polling loop waits between passes with `WaitForActivity(ms)`, which
// returns as soon as watched I/O is ready or a timer is due; `Sleep(ms)` always waits the full time
// (throttling), without dispatching anything.
//
// Watched descriptors sit in one epoll set. The readiness that `WaitForActivity` waited for is
// kept and handed out by the next `DoEvents` (one system call for both), so a pass serves every
// descriptor that was ready at the wait (a second wait before that pass looks again). A callback
// may therefore hear of readiness that an earlier callback of the same pass used up: watched
// descriptors are read without blocking.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <vector>

namespace gw {

class EventLoop {
 public:
  using Callback = std::function<void()>;
  using Id = std::uint64_t;
  using Millis = std::chrono::milliseconds;

  // The loop of the calling thread.
  static EventLoop& Current();

  EventLoop() = default;
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // A timer that fires `callback` from `DoEvents` every `interval` (once if not `repeat`). The
  // period counts from when the timer is started. A timer never fires inside its own callback.
  Id StartTimer(Millis interval, Callback callback, bool repeat = true);
  void StopTimer(Id id);
  // The timer fires `interval` from now (and then every `interval` if it repeats); false when
  // there is no such timer (a one-shot timer that fired is gone) or it is running its callback.
  bool RescheduleTimer(Id id, Millis interval);
  bool IsTimerRunning(Id id) const { return timers_.count(id) != 0; }

  // Watches a file descriptor; `callback(readable, writable)` runs from `DoEvents` when it is
  // ready. A descriptor is watched once at a time, and unwatched before it is closed.
  using FdCallback = std::function<void(bool readable, bool writable)>;
  Id WatchFd(int fd, bool want_read, bool want_write, FdCallback callback);
  void UpdateFd(Id id, bool want_read, bool want_write);
  // The owner wants nothing from the descriptor for now but will likely want it again soon (an
  // idle kept-alive connection): it stays in the epoll set, so that neither this nor the next
  // `UpdateFd` asking for the same events costs a system call. Nobody waits for it: a wait does
  // not wake for it and a pass does not look for it alone. If it becomes ready meanwhile (the
  // peer closed), it is taken out of the set quietly and its callback is not called.
  void IdleFd(Id id);
  void UnwatchFd(Id id);

  // Work that runs at every `DoEvents` (driving transfers, checking whether a process ended).
  Id AddPoller(Callback callback);
  void RemovePoller(Id id);

  // Runs once, at the next `DoEvents`.
  void Post(Callback callback);

  // The host's hook, run at the end of every `DoEvents`. An empty function removes it.
  void SetHostHook(Callback hook) { host_hook_ = std::move(hook); }

  // One pass: ready I/O, due timers, posted work, pollers, the host hook. Never blocks.
  void DoEvents();
  // Blocks for `ms` without dispatching.
  static void Sleep(Millis ms);
  // Blocks for at most `ms`: returns early when watched I/O is ready or a timer is due. Does not
  // dispatch.
  void WaitForActivity(Millis ms);
  // Runs `DoEvents` and waits until `done()` is true or `timeout` passed; true if done.
  bool RunUntil(const std::function<bool()>& done, Millis timeout, Millis step = Millis(50));

  // The clock that timers are measured by: the steady clock, unless a test sets its own (an
  // empty function puts the steady clock back). Waiting always takes real time.
  using Clock = std::chrono::steady_clock;
  using TimeSource = std::function<Clock::time_point()>;
  void SetTimeSource(TimeSource now) { now_ = std::move(now); }
  Clock::time_point Now() const { return now_ ? now_() : Clock::now(); }

 private:
  struct Timer {
    Clock::time_point due;
    Millis interval;
    bool repeat;
    bool running = false;
    Callback callback;
  };
  struct Watch {
    int fd;
    bool want_read;
    bool want_write;
    FdCallback callback;
    std::uint32_t registered = 0;  // the events the epoll set holds for it; 0: not in the set
    bool idle = false;             // in the set (or not) without anyone waiting for it
    // Counted in `waited_count_`: in the set, and someone waits for it.
    bool Waited() const noexcept { return registered != 0 && !idle; }
  };
  struct Ready {
    Id id;
    std::uint32_t events;
  };
  static constexpr int kMaxReady = 128;

  void RunDueTimers();
  // Brings the epoll set in line with what `w` wants.
  void Register(Id id, Watch& w);
  // Takes `w` out of the epoll set (it may be closed already).
  void Deregister(Watch& w);
  // Waits up to `timeout_ms` (0: not at all) and keeps what is ready in `ready_`.
  void Collect(int timeout_ms);
  // Takes idle descriptors out of what a wait found (and out of the set); true when nothing else
  // was found.
  bool DropIdleReady();
  void DispatchReady();

  Id next_id_ = 1;
  int epoll_fd_ = -1;
  int waited_count_ = 0;  // watches in the epoll set that someone waits for (not idle)
  // Readiness collected by a wait and not yet dispatched.
  std::array<Ready, kMaxReady> ready_{};
  int ready_count_ = 0;
  std::map<Id, Timer> timers_;
  std::map<Id, Watch> watches_;
  std::map<Id, Callback> pollers_;
  std::vector<Callback> posted_;
  Callback host_hook_;
  TimeSource now_;
};

// Shorthands for the current thread's loop.
inline void DoEvents() { EventLoop::Current().DoEvents(); }
inline void Sleep(std::chrono::milliseconds ms) { EventLoop::Sleep(ms); }

}  // namespace gw
