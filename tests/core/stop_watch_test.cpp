#include "vyn/core/stop_watch.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "vyn/core/status.h"

namespace {

void SleepMs(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

TEST(StopWatchTest, MeasuresInAllUnitsAndAccumulatesOnlyWhileRunning) {
  CVYNStopWatch watch;
  EXPECT_EQ(watch.GetAsMicroSeconds(), 0.0);
  ASSERT_EQ(watch.Start(), VYN_STATUS_SUCCESS);
  SleepMs(30);
  ASSERT_EQ(watch.Stop(), VYN_STATUS_SUCCESS);
  const double ms = watch.GetAsMilliSeconds();
  EXPECT_GE(ms, 29.0);
  EXPECT_LT(ms, 2000.0);  // generous: a loaded machine may oversleep
  EXPECT_NEAR(watch.GetAsSeconds() * 1000.0, ms, 1e-6);
  EXPECT_NEAR(watch.GetAsMicroSeconds() / 1000.0, ms, 1e-6);
  EXPECT_EQ(watch.Stop(), VYN_STATUS_INVALID_OPERATION);
  EXPECT_DOUBLE_EQ(watch.GetAsMilliSeconds(), ms);

  SleepMs(40);  // stopped: not counted
  ASSERT_EQ(watch.Continue(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(watch.Continue(), VYN_STATUS_INVALID_OPERATION);
  const double running = watch.GetAsMicroSeconds();
  SleepMs(10);
  EXPECT_GT(watch.GetAsMicroSeconds(), running);  // read while running, from another thread too
  double seen = 0.0;
  std::thread([&] { seen = watch.GetAsMicroSeconds(); }).join();
  EXPECT_GT(seen, running);
  ASSERT_EQ(watch.Stop(), VYN_STATUS_SUCCESS);
  const double total = watch.GetAsMilliSeconds();
  EXPECT_GE(total, ms + 9.0);
  EXPECT_LT(total, ms + 40.0 + 1500.0);
  CVYNStopWatch copy;
  copy = watch;
  EXPECT_DOUBLE_EQ(copy.GetAsMicroSeconds(), watch.GetAsMicroSeconds());

  ASSERT_EQ(watch.Start(), VYN_STATUS_SUCCESS);  // discards what was measured
  ASSERT_EQ(watch.Stop(), VYN_STATUS_SUCCESS);
  EXPECT_LT(watch.GetAsMilliSeconds(), 25.0);
  ASSERT_EQ(watch.Reset(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(watch.GetAsSeconds(), 0.0);
  ASSERT_EQ(watch.Continue(), VYN_STATUS_SUCCESS);  // from reset: like Start
}

}  // namespace
