#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <string>

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

TEST(EventLoop, TimersFireOnlyFromDoEventsWhenDue) {
  EventLoop loop;
  auto now = EventLoop::Clock::now();
  loop.SetTimeSource([&] { return now; });
  int fired = 0;
  const auto id = loop.StartTimer(10ms, [&] { ++fired; });
  now += 9ms;
  loop.DoEvents();
  EXPECT_EQ(fired, 0);  // not due yet
  now += 21ms;
  EXPECT_EQ(fired, 0);  // time passed, but nobody pumped
  loop.DoEvents();
  EXPECT_EQ(fired, 1);  // a late timer fires once, not once per missed period
  loop.StopTimer(id);
  now += 20ms;
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

TEST(EventLoop, WatchedDescriptorWakesTheWaitAndRunsItsCallback) {
  EventLoop loop;
  int fds[2];
  ASSERT_EQ(::pipe(fds), 0);
  bool readable = false;
  const auto id = loop.WatchFd(fds[0], true, false, [&](bool r, bool) { readable = r; });
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(::write(fds[1], "x", 1), 1);
  loop.WaitForActivity(2000ms);
  EXPECT_LT(std::chrono::steady_clock::now() - start, 1000ms);
  loop.DoEvents();
  EXPECT_TRUE(readable);
  loop.UnwatchFd(id);
  ::close(fds[0]);
  ::close(fds[1]);
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
