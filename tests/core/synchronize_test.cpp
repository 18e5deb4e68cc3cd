#include "vyn/core/synchronize.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "vyn/core/status.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Takes `lock` on another thread and holds it until `release` is set.
void HoldOnAnotherThread(CRITICAL_SECTION* lock, std::atomic<bool>* release, std::thread* holder) {
  std::atomic<bool> taken{false};
  *holder = std::thread([lock, release, &taken] {
    EnterCriticalSection(lock);
    taken = true;
    while (!*release) std::this_thread::sleep_for(milliseconds(1));
    LeaveCriticalSection(lock);
  });
  while (!taken) std::this_thread::yield();
}

bool FreeForOthers(CRITICAL_SECTION* lock) {
  bool free = false;
  std::thread([&] {
    free = TryEnterCriticalSection(lock) != 0;
    if (free) LeaveCriticalSection(lock);
  }).join();
  return free;
}

// A timed enter gives up after its limit and holds nothing; a limit of zero
// waits for the owner to let go.
TEST(SynchronizeTest, TimedEnterGivesUpAndLimitZeroWaits) {
  CRITICAL_SECTION lock;
  std::atomic<bool> release{false};
  std::thread holder;
  HoldOnAnotherThread(&lock, &release, &holder);
  CVYNSynchronize guard(&lock, false);
  const auto start = Clock::now();
  EXPECT_EQ(guard.Enter(30), VYN_STATUS_TIMEOUT);
  EXPECT_GE(Clock::now() - start, milliseconds(30));
  EXPECT_EQ(guard.Leave(), VYN_STATUS_SUCCESS);  // not entered: nothing to give back
  std::thread releaser([&] {
    std::this_thread::sleep_for(milliseconds(30));
    release = true;
  });
  EXPECT_EQ(guard.Enter(0), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(release);
  EXPECT_FALSE(FreeForOthers(&lock));
  EXPECT_EQ(guard.Leave(), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(FreeForOthers(&lock));
  releaser.join();
  holder.join();
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
