#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "platform/event_loop.h"
#include "platform/signal.h"

namespace gw {
namespace {

using namespace std::chrono_literals;

TEST(Signal, ReferenceArgumentsCarryTheAnswerBack) {
  Signal<const std::string&, bool&> on_status;
  std::string seen;
  auto c = on_status.Connect([&](const std::string& s, bool& cancel) {
    seen = s;
    cancel = true;
  });
  bool cancel = false;
  on_status("Extracting x", cancel);
  EXPECT_TRUE(cancel);
  EXPECT_EQ(seen, "Extracting x");
}

TEST(Signal, HandlersMayDetachThemselvesAndOthersWhileRaised) {
  Signal<int> sig;
  std::vector<std::string> calls;
  Connection second;
  ScopedConnection first = sig.Connect([&](int) {
    calls.push_back("first");
    second.Disconnect();
  });
  second = sig.Connect([&](int) { calls.push_back("second"); });
  Connection self;
  self = sig.Connect([&](int) {
    calls.push_back("third");
    self.Disconnect();
  });
  sig(1);
  sig(2);
  EXPECT_EQ(calls, (std::vector<std::string>{"first", "third", "first"}));
}

TEST(Signal, DroppingTheScopedConnectionDetaches) {
  Signal<> sig;
  int n = 0;
  {
    ScopedConnection c = sig.Connect([&] { ++n; });
    sig();
  }
  sig();
  EXPECT_EQ(n, 1);
  EXPECT_FALSE(sig.HasHandlers());
}

// When a timer is due, and that a late one fires once, is checked through CTimer (c_timer_test).
TEST(EventLoop, ARescheduledTimerCountsFromTheReschedule) {
  EventLoop loop;
  auto now = EventLoop::Clock::now();
  loop.SetTimeSource([&] { return now; });
  int fired = 0;
  const auto id = loop.StartTimer(
      10ms, [&] { ++fired; }, /*repeat=*/false);
  now += 8ms;
  EXPECT_TRUE(loop.RescheduleTimer(id, 10ms));  // due 18 ms from the start now
  now += 9ms;
  loop.DoEvents();
  EXPECT_EQ(fired, 0);
  EXPECT_TRUE(loop.RescheduleTimer(id, 0ms));  // sooner: due now
  loop.DoEvents();
  EXPECT_EQ(fired, 1);
  EXPECT_FALSE(loop.RescheduleTimer(id, 5ms));  // a one-shot timer that fired is gone
  now += 10ms;
  loop.DoEvents();
  EXPECT_EQ(fired, 1);
}

TEST(EventLoop, OneShotTimerAndPostedWork) {
  EventLoop loop;
  std::vector<std::string> order;
  loop.StartTimer(
      0ms, [&] { order.push_back("timer"); }, /*repeat=*/false);
  loop.Post([&] { order.push_back("posted"); });
  loop.SetHostHook([&] { order.push_back("hook"); });
  loop.DoEvents();
  loop.DoEvents();
  EXPECT_EQ(order, (std::vector<std::string>{"timer", "posted", "hook", "hook"}));
}

TEST(EventLoop, TimerDoesNotReenterItsOwnCallback) {
  EventLoop loop;
  int depth = 0, max_depth = 0, calls = 0;
  loop.StartTimer(0ms, [&] {
    ++calls;
    max_depth = std::max(max_depth, ++depth);
    EventLoop::Sleep(2ms);
    loop.DoEvents();  // a handler that pumps must not be called again inside itself
    --depth;
  });
  EventLoop::Sleep(1ms);
  loop.DoEvents();
  EXPECT_EQ(max_depth, 1);
  EXPECT_GE(calls, 1);
}

// A pipe whose read end is watched for reading; both ends closed when it goes.
struct WatchedPipe {
  int fds[2] = {-1, -1};
  EventLoop::Id id = 0;
  int calls = 0;
  WatchedPipe() { EXPECT_EQ(::pipe(fds), 0); }
  WatchedPipe(const WatchedPipe&) = delete;
  WatchedPipe& operator=(const WatchedPipe&) = delete;
  ~WatchedPipe() {
    for (int fd : fds) {
      if (fd >= 0) ::close(fd);
    }
  }
  void Fill() { EXPECT_EQ(::write(fds[1], "x", 1), 1); }
  void Drain() {
    char c;
    EXPECT_EQ(::read(fds[0], &c, 1), 1);
  }
};

TEST(EventLoop, OnePassServesEveryDescriptorReadyAtTheWait) {
  EventLoop loop;
  std::vector<WatchedPipe> pipes(40);
  for (auto& p : pipes) {
    p.id = loop.WatchFd(p.fds[0], true, false, [&p](bool readable, bool) {
      if (readable) ++p.calls;
    });
    p.Fill();
  }
  loop.WaitForActivity(2000ms);
  loop.DoEvents();
  for (std::size_t k = 0; k < pipes.size(); ++k) {
    SCOPED_TRACE(k);
    EXPECT_EQ(pipes[k].calls, 1);
  }
  // Still readable: heard of again at the next pass; once drained, no more.
  loop.DoEvents();
  for (auto& p : pipes) {
    EXPECT_EQ(p.calls, 2);
    p.Drain();
  }
  loop.DoEvents();
  for (auto& p : pipes) EXPECT_EQ(p.calls, 2);
  for (auto& p : pipes) loop.UnwatchFd(p.id);
}

TEST(EventLoop, MoreReadyDescriptorsThanOnePassTakesAreAllServedByLaterPasses) {
  EventLoop loop;
  std::vector<WatchedPipe> pipes(300);
  for (auto& p : pipes) {
    p.id = loop.WatchFd(p.fds[0], true, false, [&p](bool readable, bool) {
      if (readable && p.calls++ == 0) p.Drain();
    });
    p.Fill();
  }
  for (int pass = 0; pass < 10; ++pass) {
    loop.WaitForActivity(100ms);
    loop.DoEvents();
  }
  for (std::size_t k = 0; k < pipes.size(); ++k) {
    SCOPED_TRACE(k);
    EXPECT_EQ(pipes[k].calls, 1);
    loop.UnwatchFd(pipes[k].id);
  }
}

TEST(EventLoop, ASecondWaitBeforeThePassLooksAgain) {
  EventLoop loop;
  WatchedPipe a, b;
  a.id = loop.WatchFd(a.fds[0], true, false, [&](bool, bool) { ++a.calls; });
  b.id = loop.WatchFd(b.fds[0], true, false, [&](bool, bool) { ++b.calls; });
  a.Fill();
  loop.WaitForActivity(2000ms);  // finds a
  a.Drain();
  b.Fill();
  loop.WaitForActivity(2000ms);  // finds b, and a no more
  loop.DoEvents();
  EXPECT_EQ(a.calls, 0);
  EXPECT_EQ(b.calls, 1);
  loop.UnwatchFd(a.id);
  loop.UnwatchFd(b.id);
}

TEST(EventLoop, ADescriptorUnwatchedByAnEarlierCallbackOfThePassIsNotCalled) {
  EventLoop loop;
  WatchedPipe a, b;
  int calls = 0;
  a.id = loop.WatchFd(a.fds[0], true, false, [&](bool, bool) {
    ++calls;
    a.Drain();
    loop.UnwatchFd(b.id);
  });
  b.id = loop.WatchFd(b.fds[0], true, false, [&](bool, bool) {
    ++calls;
    b.Drain();
    loop.UnwatchFd(a.id);
  });
  a.Fill();
  b.Fill();
  loop.WaitForActivity(2000ms);
  loop.DoEvents();
  EXPECT_EQ(calls, 1);
  loop.DoEvents();
  EXPECT_EQ(calls, 1);
  loop.UnwatchFd(a.id);
  loop.UnwatchFd(b.id);
}

TEST(EventLoop, ADescriptorThatWantsNothingIsNotCalledUntilItWantsAgain) {
  EventLoop loop;
  WatchedPipe p;
  p.id = loop.WatchFd(p.fds[0], true, false, [&](bool, bool) { ++p.calls; });
  p.Fill();
  loop.WaitForActivity(2000ms);  // ready now, handed out by the next pass
  loop.UpdateFd(p.id, false, false);
  loop.DoEvents();
  EXPECT_EQ(p.calls, 0);
  loop.UpdateFd(p.id, true, false);
  loop.DoEvents();
  EXPECT_EQ(p.calls, 1);
  loop.UnwatchFd(p.id);
}

TEST(EventLoop, AnIdleDescriptorIsNotCalledAndLeavesTheSetWhenItBecomesReady) {
  EventLoop loop;
  WatchedPipe idle, busy;
  idle.id = loop.WatchFd(idle.fds[0], true, false, [&](bool, bool) { ++idle.calls; });
  busy.id = loop.WatchFd(busy.fds[0], true, false, [&](bool, bool) { ++busy.calls; });
  loop.IdleFd(idle.id);
  idle.Fill();

  // Nobody waits for it: the wait lasts its time (busy is not ready).
  const auto start = std::chrono::steady_clock::now();
  loop.WaitForActivity(150ms);
  EXPECT_GE(std::chrono::steady_clock::now() - start, 100ms);

  // A pass that looks for another descriptor finds it ready and calls nobody for it.
  busy.Fill();
  loop.WaitForActivity(2000ms);
  loop.DoEvents();
  EXPECT_EQ(busy.calls, 1);
  EXPECT_EQ(idle.calls, 0);
  busy.Drain();
  loop.DoEvents();
  EXPECT_EQ(idle.calls, 0);

  // Wanted again, it is watched again (it was taken out of the set) and its callback runs.
  loop.UpdateFd(idle.id, true, false);
  loop.WaitForActivity(2000ms);
  loop.DoEvents();
  EXPECT_EQ(idle.calls, 1);
  loop.UnwatchFd(busy.id);
  loop.UnwatchFd(idle.id);
}

TEST(EventLoop, AnIdleDescriptorWantedAgainBeforeItWasReadyIsCalledWhenReady) {
  EventLoop loop;
  WatchedPipe p;
  p.id = loop.WatchFd(p.fds[0], true, false, [&](bool, bool) { ++p.calls; });
  loop.IdleFd(p.id);
  loop.DoEvents();
  loop.UpdateFd(p.id, true, false);
  p.Fill();
  const auto start = std::chrono::steady_clock::now();
  loop.WaitForActivity(2000ms);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms);
  loop.DoEvents();
  EXPECT_EQ(p.calls, 1);
  loop.UnwatchFd(p.id);
}

TEST(EventLoop, ANumberClosedBeforeItWasUnwatchedCanBeWatchedAgain) {
  EventLoop loop;
  WatchedPipe first;
  const int number = first.fds[0];
  first.id = loop.WatchFd(number, true, false, [&](bool, bool) { ++first.calls; });
  ::close(first.fds[0]);
  first.fds[0] = -1;
  loop.UnwatchFd(first.id);
  WatchedPipe second;  // takes the lowest free number: the one just closed
  EXPECT_EQ(second.fds[0], number);
  second.id = loop.WatchFd(second.fds[0], true, false, [&](bool, bool) { ++second.calls; });
  second.Fill();
  const auto start = std::chrono::steady_clock::now();
  loop.WaitForActivity(2000ms);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms);
  loop.DoEvents();
  EXPECT_EQ(second.calls, 1);
  EXPECT_EQ(first.calls, 0);
  loop.UnwatchFd(second.id);
}

TEST(EventLoop, ATimerAndADescriptorReadyAtTheSameWaitBothRun) {
  EventLoop loop;
  WatchedPipe p;
  p.id = loop.WatchFd(p.fds[0], true, false, [&](bool, bool) { ++p.calls; });
  int fired = 0;
  loop.StartTimer(
      20ms, [&] { ++fired; }, false);
  p.Fill();
  EventLoop::Sleep(40ms);
  loop.WaitForActivity(2000ms);
  loop.DoEvents();
  EXPECT_EQ(p.calls, 1);
  EXPECT_EQ(fired, 1);

  // A wait that ends for the descriptor leaves the timer to a later wait, which it ends.
  p.Drain();
  loop.StartTimer(
      300ms, [&] { ++fired; }, false);
  p.Fill();
  loop.WaitForActivity(3000ms);
  loop.DoEvents();
  EXPECT_EQ(p.calls, 2);
  EXPECT_EQ(fired, 1);
  p.Drain();
  const auto start = std::chrono::steady_clock::now();
  loop.WaitForActivity(5000ms);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2500ms);
  loop.DoEvents();
  EXPECT_EQ(fired, 2);
  EXPECT_EQ(p.calls, 2);
  loop.UnwatchFd(p.id);
}

TEST(EventLoop, RunUntilStopsWhenDoneOrTimedOut) {
  EventLoop loop;
  int ticks = 0;
  loop.StartTimer(5ms, [&] { ++ticks; });
  EXPECT_TRUE(loop.RunUntil([&] { return ticks >= 3; }, 2000ms, 5ms));
  EXPECT_FALSE(loop.RunUntil([] { return false; }, 30ms, 5ms));
}

}  // namespace
}  // namespace gw
