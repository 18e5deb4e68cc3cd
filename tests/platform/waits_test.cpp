// Events, wake-ups and sleeps: who is released, when a wait gives up, and
// that signals arriving meanwhile neither shorten nor stretch a wait.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "tests/platform/signal_storm.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/event.h"
#include "vyn/platform/wake_up_event.h"

namespace {

using vyn::platform::DescriptorReadiness;
using vyn::platform::Event;
using vyn::platform::WaitForDescriptor;
using vyn::platform::WakeUpEvent;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Upper bound of a wait that should take `ms`: generous for a loaded machine,
// far below the ten seconds a storm lasts.
constexpr milliseconds Late(int ms) { return milliseconds(ms + 2500); }

template <typename Wait>
milliseconds Timed(Wait wait) {
  const auto start = Clock::now();
  wait();
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

bool Nothing(const DescriptorReadiness& r) {
  return !r.readable && !r.writable && !r.hung_up && !r.woken;
}

TEST(EventTest, TimeOutsAndWhomASetReleases) {
  Event automatic(false);
  Event manual(true);
  EXPECT_FALSE(automatic.Wait(0));
  milliseconds waited = Timed([&] { EXPECT_FALSE(manual.Wait(150)); });
  EXPECT_GE(waited, milliseconds(150));
  EXPECT_LT(waited, Late(150));

  // An auto-reset event is taken by the one wait it releases; a manual one
  // stays set until Reset.
  automatic.Set();
  EXPECT_TRUE(automatic.Wait(0));
  EXPECT_FALSE(automatic.Wait(0));
  manual.Set();
  EXPECT_TRUE(manual.Wait(0));
  EXPECT_TRUE(manual.Wait(vyn::platform::kInfinite));
  manual.Reset();
  EXPECT_FALSE(manual.IsSet());

  // Three waiters each: one Set releases one of them, or all of them.
  for (Event* event : {&automatic, &manual}) {
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    waiters.reserve(3);
    for (int i = 0; i < 3; ++i) {
      waiters.emplace_back([&] { released += event->Wait(10000) ? 1 : 0; });
    }
    event->Set();
    if (event == &automatic) {
      for (int i = 0; i < 400 && released == 0; ++i) std::this_thread::sleep_for(milliseconds(10));
      std::this_thread::sleep_for(milliseconds(200));
      EXPECT_EQ(released, 1);
      // The others, one Set each.
      for (int i = 0; i < 800 && released < 3; ++i) {
        if (!automatic.IsSet()) automatic.Set();
        std::this_thread::sleep_for(milliseconds(10));
      }
    }
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(released, 3);
  }
}

TEST(WakeUpEventTest, SignalsDoNotCountAndClearTakesThemBack) {
  WakeUpEvent wake;
  ASSERT_TRUE(wake.IsValid());
  EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, 0)));
  wake.Signal();
  wake.Signal();
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, 0).woken);
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, 0).woken);  // seen, still set
  wake.Clear();
  EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, 0)));
  wake.Clear();  // nothing to take back: returns at once
  // Its own wait takes the signal back.
  wake.Signal();
  EXPECT_TRUE(wake.Wait(0));
  EXPECT_FALSE(wake.Wait(0));
  // Neither a descriptor nor a wake-up: only the time can end the wait.
  const milliseconds waited =
      Timed([] { EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, nullptr, 100))); });
  EXPECT_GE(waited, milliseconds(100));
}

TEST(InterruptedWaitTest, SignalsNeitherShortenNorStretchAWait) {
  constexpr int kWait = 300;
  vyn::test::SignalStorm storm;
  WakeUpEvent wake;
  Event event(true);
  const int before = vyn::test::signals_delivered;

  milliseconds waited =
      Timed([&] { EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, kWait))); });
  EXPECT_GE(waited, milliseconds(kWait)) << "descriptor wait";
  EXPECT_LT(waited, Late(kWait)) << "descriptor wait";
  waited = Timed([&] { EXPECT_FALSE(wake.Wait(kWait)); });
  EXPECT_GE(waited, milliseconds(kWait)) << "wake-up wait";
  EXPECT_LT(waited, Late(kWait)) << "wake-up wait";
  waited = Timed([&] { EXPECT_FALSE(event.Wait(kWait)); });
  EXPECT_GE(waited, milliseconds(kWait)) << "event wait";
  EXPECT_LT(waited, Late(kWait)) << "event wait";
  waited = Timed([] { vyn::platform::SleepMilliseconds(kWait); });
  EXPECT_GE(waited, milliseconds(kWait)) << "sleep";
  EXPECT_LT(waited, Late(kWait)) << "sleep";

  // Waits without a limit end for their wake-up, not for a signal.
  std::thread waker([&] {
    std::this_thread::sleep_for(milliseconds(kWait));
    wake.Signal();
    event.Set();
  });
  waited = Timed([&] {
    EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, -1).woken);
    EXPECT_TRUE(event.Wait(vyn::platform::kInfinite));
  });
  waker.join();
  EXPECT_GE(waited, milliseconds(kWait));
  // The storm did reach the waits: dozens of signals in over a second.
  EXPECT_GT(vyn::test::signals_delivered - before, 50);
}

}  // namespace
