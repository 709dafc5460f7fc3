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

// The thread's loop measures its timers by a clock that moves only when the test moves it.
class CTimerTest : public ::testing::Test {
 protected:
  CTimerTest() {
    EventLoop::Current().SetTimeSource([this] { return now_; });
  }
  ~CTimerTest() override { EventLoop::Current().SetTimeSource({}); }
  void Advance(milliseconds by) { now_ += by; }
  // Moves the clock in steps of `step` and pumps after each, `times` times.
  void Pump(milliseconds step, int times) {
    for (int k = 0; k < times; ++k) {
      Advance(step);
      DoEvents();
    }
  }

 private:
  EventLoop::Clock::time_point now_ = EventLoop::Clock::now();
};

TEST_F(CTimerTest, FiresOnlyFromDoEventsOnItsOwnThread) {
  CTimer timer;
  Counter events(timer);
  EXPECT_FALSE(timer.Enabled());
  EXPECT_EQ(timer.Interval(), 0);
  timer.SetEnabled(true);
  timer.SetInterval(20);
  Advance(milliseconds(80));
  EXPECT_EQ(events.count, 0);  // several periods passed, but nobody pumped
  std::thread([] { EventLoop::Current().DoEvents(); }).join();  // another thread's loop
  EXPECT_EQ(events.count, 0);
  DoEvents();
  EXPECT_EQ(events.count, 1);  // a late timer fires once, not once per missed period
  DoEvents();
  EXPECT_EQ(events.count, 1);  // and its next period counts from then
  Pump(milliseconds(20), 2);
  EXPECT_EQ(events.count, 3);  // it repeats
}

TEST_F(CTimerTest, ZeroIntervalStartsNothingAndANegativeOneIsIgnored) {
  CTimer timer;
  Counter events(timer);
  timer.SetEnabled(true);
  Pump(milliseconds(30), 1);
  EXPECT_EQ(events.count, 0);
  timer.SetInterval(10);
  timer.SetInterval(-5);
  EXPECT_EQ(timer.Interval(), 10);
  Pump(milliseconds(9), 1);
  EXPECT_EQ(events.count, 0);
  Pump(milliseconds(1), 1);
  EXPECT_EQ(events.count, 1);
}

TEST_F(CTimerTest, EnablingAgainRestartsThePeriod) {
  CTimer restarted, steady;
  Counter restarted_events(restarted), steady_events(steady);
  restarted.SetInterval(400);
  steady.SetInterval(400);
  restarted.SetEnabled(true);
  steady.SetEnabled(true);
  Advance(milliseconds(250));
  restarted.SetEnabled(true);
  Pump(milliseconds(150), 1);
  EXPECT_EQ(steady_events.count, 1);     // 400 ms after its start
  EXPECT_EQ(restarted_events.count, 0);  // only 150 ms after its restart
  Pump(milliseconds(249), 1);
  EXPECT_EQ(restarted_events.count, 0);
  Pump(milliseconds(1), 1);
  EXPECT_EQ(restarted_events.count, 1);  // 400 ms after its restart
}

TEST_F(CTimerTest, DisablingOrDroppingStopsIt) {
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
  Pump(milliseconds(10), 5);
  EXPECT_EQ(fired, 0);
  EXPECT_EQ(events.count, 1);
  EXPECT_FALSE(one_shot.Enabled());
}

TEST_F(CTimerTest, AHandlerMayDestroyItsTimer) {
  auto timer = std::make_unique<CTimer>();
  int fired = 0;
  timer->Timer.Connect([&] {
    ++fired;
    timer.reset();
  });
  timer->SetInterval(5);
  timer->SetEnabled(true);
  Pump(milliseconds(5), 1);
  EXPECT_EQ(timer, nullptr);
  Pump(milliseconds(20), 1);
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
