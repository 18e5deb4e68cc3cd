#include "vyn/core/stop_watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "vyn/core/status.h"

namespace {

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

TEST(StopWatchTest, MeasuresOnePeriodInAllUnits) {
  CVYNStopWatch watch;
  EXPECT_EQ(watch.GetAsSeconds(), 0.0);
  EXPECT_EQ(watch.GetAsMilliSeconds(), 0.0);
  EXPECT_EQ(watch.GetAsMicroSeconds(), 0.0);
  ASSERT_EQ(watch.Start(), VYN_STATUS_SUCCESS);
  SleepMs(100);
  ASSERT_EQ(watch.Stop(), VYN_STATUS_SUCCESS);
  const double ms = watch.GetAsMilliSeconds();
  EXPECT_GE(ms, 99.0);
  EXPECT_LT(ms, 2000.0);  // generous: a loaded machine may oversleep
  EXPECT_DOUBLE_EQ(watch.GetAsMilliSeconds(), ms);
  EXPECT_NEAR(watch.GetAsSeconds() * 1000.0, ms, 1e-6);
  EXPECT_NEAR(watch.GetAsMicroSeconds() / 1000.0, ms, 1e-6);
  EXPECT_EQ(watch.Stop(), VYN_STATUS_INVALID_OPERATION);
  EXPECT_DOUBLE_EQ(watch.GetAsMilliSeconds(), ms);
}

TEST(StopWatchTest, ContinueAccumulatesAndStartDiscards) {
  CVYNStopWatch watch;
  ASSERT_EQ(watch.Continue(), VYN_STATUS_SUCCESS);  // from reset: like Start
  EXPECT_EQ(watch.Continue(), VYN_STATUS_INVALID_OPERATION);
  SleepMs(50);
  ASSERT_EQ(watch.Stop(), VYN_STATUS_SUCCESS);
  const double first = watch.GetAsMilliSeconds();
  SleepMs(200);  // stopped: not counted
  ASSERT_EQ(watch.Continue(), VYN_STATUS_SUCCESS);
  const double running_a = watch.GetAsMicroSeconds();
  SleepMs(50);
  const double running_b = watch.GetAsMicroSeconds();
  EXPECT_GT(running_b, running_a);
  ASSERT_EQ(watch.Stop(), VYN_STATUS_SUCCESS);
  const double total = watch.GetAsMilliSeconds();
  EXPECT_GE(total, first + 49.0);
  EXPECT_LT(total, first + 200.0 + 1500.0);
  ASSERT_EQ(watch.Start(), VYN_STATUS_SUCCESS);
  ASSERT_EQ(watch.Stop(), VYN_STATUS_SUCCESS);
  EXPECT_LT(watch.GetAsMilliSeconds(), 50.0);
  ASSERT_EQ(watch.Reset(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(watch.GetAsSeconds(), 0.0);
}

TEST(StopWatchTest, OneThreadRunsItAnotherReadsIt) {
  CVYNStopWatch watch;
  CVYNStopWatch copy;
  watch.Start();
  double seen = 0.0;
  std::thread reader([&] {
    for (int i = 0; i < 1000; ++i) seen = std::max(seen, watch.GetAsMicroSeconds());
  });
  reader.join();
  watch.Stop();
  EXPECT_GT(seen, 0.0);
  EXPECT_LE(seen, watch.GetAsMicroSeconds());
  copy = watch;
  EXPECT_DOUBLE_EQ(copy.GetAsMicroSeconds(), watch.GetAsMicroSeconds());
}

}  // namespace
