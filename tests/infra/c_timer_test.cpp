#include "infra/c_timer.h"

#include <gtest/gtest.h>

#include <thread>

namespace gw {
namespace {

using std::chrono::milliseconds;

// Counts the timer's events for the life of the object.
struct Counter {
  explicit Counter(CTimer& timer) : connection(timer.Timer.Connect([this] { ++count; })) {}
  int count = 0;
  ScopedConnection connection;
};

bool PumpUntil(const std::function<bool()>& done) {
  return EventLoop::Current().RunUntil(done, milliseconds(5000), milliseconds(5));
}

TEST(CTimer, FiresOnlyFromDoEventsOnItsOwnThread) {
  CTimer timer;
  Counter events(timer);
  EXPECT_FALSE(timer.Enabled());
  EXPECT_EQ(timer.Interval(), 0);
  timer.SetEnabled(true);
  timer.SetInterval(20);
  EventLoop::Sleep(milliseconds(80));
  EXPECT_EQ(events.count, 0);  // several periods passed, but nobody pumped
  std::thread([] { EventLoop::Current().DoEvents(); }).join();  // another thread's loop
  EXPECT_EQ(events.count, 0);
  DoEvents();
  EXPECT_EQ(events.count, 1);
  EXPECT_TRUE(PumpUntil([&] { return events.count >= 3; }));  // it repeats
}

TEST(CTimer, ZeroIntervalStartsNothingAndANegativeOneIsIgnored) {
  CTimer timer;
  Counter events(timer);
  timer.SetEnabled(true);
  EventLoop::Sleep(milliseconds(30));
  DoEvents();
  EXPECT_EQ(events.count, 0);
  timer.SetInterval(10);
  timer.SetInterval(-5);
  EXPECT_EQ(timer.Interval(), 10);
  EXPECT_TRUE(PumpUntil([&] { return events.count >= 1; }));
}

TEST(CTimer, EnablingAgainRestartsThePeriod) {
  CTimer restarted, steady;
  Counter restarted_events(restarted), steady_events(steady);
  restarted.SetInterval(400);
  steady.SetInterval(400);
  restarted.SetEnabled(true);
  steady.SetEnabled(true);
  EventLoop::Sleep(milliseconds(250));
  restarted.SetEnabled(true);
  EventLoop::Sleep(milliseconds(250));
  DoEvents();
  EXPECT_EQ(steady_events.count, 1);     // 500 ms after its start
  EXPECT_EQ(restarted_events.count, 0);  // only 250 ms after its restart
  EXPECT_TRUE(PumpUntil([&] { return restarted_events.count >= 1; }));
}

TEST(CTimer, DisablingOrDroppingStopsIt) {
  int fired = 0;
  {
    CTimer timer;
    timer.Timer.Connect([&] { ++fired; });
    timer.SetInterval(5);
    timer.SetEnabled(true);
  }
  CTimer one_shot;
  Counter events(one_shot);
  one_shot.Timer.Connect([&] { one_shot.SetEnabled(false); });
  one_shot.SetInterval(5);
  one_shot.SetEnabled(true);
  for (int k = 0; k < 5; ++k) {
    EventLoop::Sleep(milliseconds(10));
    DoEvents();
  }
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(events.count, 1);
  EXPECT_FALSE(one_shot.Enabled());
}

TEST(CTimer, AHandlerMayDestroyItsTimer) {
  auto timer = std::make_unique<CTimer>();
  int fired = 0;
  timer->Timer.Connect([&] {
    ++fired;
    timer.reset();
  });
  timer->SetInterval(5);
  timer->SetEnabled(true);
  EXPECT_TRUE(PumpUntil([&] { return timer == nullptr; }));
  EventLoop::Sleep(milliseconds(20));
  DoEvents();
  EXPECT_EQ(fired, 1);
}

TEST(CTimer, RaiseTimerRaisesTheEvent) {
  CTimer timer;
  Counter events(timer);
  timer.RaiseTimer();
  timer.RaiseTimer();
  EXPECT_EQ(events.count, 2);
}

}  // namespace
}  // namespace gw
