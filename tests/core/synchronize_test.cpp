#include "vyn/core/synchronize.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "vyn/core/status.h"

namespace {

using Clock = std::chrono::steady_clock;

// Holds `lock` on another thread for `hold`, once the test has seen it taken.
class Holder {
 public:
  Holder(CRITICAL_SECTION* lock, std::chrono::milliseconds hold)
      : thread_([this, lock, hold] {
          EnterCriticalSection(lock);
          taken_ = true;
          std::this_thread::sleep_for(hold);
          LeaveCriticalSection(lock);
        }) {
    while (!taken_) std::this_thread::yield();
  }
  ~Holder() { thread_.join(); }

 private:
  std::atomic<bool> taken_{false};
  std::thread thread_;
};

bool FreeForOthers(CRITICAL_SECTION* lock) {
  bool free = false;
  std::thread([&] {
    free = TryEnterCriticalSection(lock) != 0;
    if (free) LeaveCriticalSection(lock);
  }).join();
  return free;
}

TEST(SynchronizeTest, TimedEnterGivesUpAfterItsLimitAndHoldsNothing) {
  CRITICAL_SECTION lock;
  Holder holder(&lock, std::chrono::milliseconds(400));
  CVYNSynchronize guard(&lock, false);
  const auto start = Clock::now();
  EXPECT_EQ(guard.Enter(50), VYN_STATUS_TIMEOUT);
  const auto waited = Clock::now() - start;
  EXPECT_GE(waited, std::chrono::milliseconds(50));
  EXPECT_LT(waited, std::chrono::milliseconds(390));
  // Not entered: Leave has nothing to give back.
  EXPECT_EQ(guard.Leave(), VYN_STATUS_SUCCESS);
}

TEST(SynchronizeTest, LimitZeroWaitsUntilTheOwnerLetsGo) {
  CRITICAL_SECTION lock;
  const auto start = Clock::now();
  Holder holder(&lock, std::chrono::milliseconds(150));
  CVYNSynchronize guard(&lock, false);
  EXPECT_EQ(guard.Enter(0), VYN_STATUS_SUCCESS);
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(140));
  EXPECT_EQ(guard.Leave(), VYN_STATUS_SUCCESS);
}

TEST(SynchronizeTest, TakesItsLockOnceAndIsReentrantAcrossGuards) {
  CRITICAL_SECTION lock;
  {
    CVYNSynchronize outer(&lock, true);
    EXPECT_EQ(outer.Enter(0), VYN_STATUS_SUCCESS);  // already held: no second count
    {
      CVYNSynchronize inner(&lock, true);
      EXPECT_FALSE(FreeForOthers(&lock));
    }
    EXPECT_FALSE(FreeForOthers(&lock));
    EXPECT_EQ(outer.Leave(), VYN_STATUS_SUCCESS);
    EXPECT_TRUE(FreeForOthers(&lock));
    EXPECT_EQ(outer.Enter(10), VYN_STATUS_SUCCESS);
  }
  EXPECT_TRUE(FreeForOthers(&lock));
}

TEST(SynchronizeTest, AbsentLockAndSwitchingLocks) {
  CVYNSynchronize none;
  EXPECT_EQ(none.Enter(0), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(none.Enter(5), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(none.Leave(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(none.Initialize(nullptr, true), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(none.Initialize(nullptr, false), VYN_STATUS_SUCCESS);
  CVYNSynchronize constructed(nullptr, true);  // does nothing, must not crash

  CRITICAL_SECTION a;
  CRITICAL_SECTION b;
  CVYNSynchronize guard(&a, true);
  EXPECT_EQ(guard.Initialize(&b, true), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(FreeForOthers(&a));
  EXPECT_FALSE(FreeForOthers(&b));
  EXPECT_EQ(guard.Initialize(nullptr, false), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(FreeForOthers(&b));
}

}  // namespace
