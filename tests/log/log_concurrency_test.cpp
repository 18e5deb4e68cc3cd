// Eight threads logging at once: nothing lost, nothing doubled, each
// thread's entries in its own order, and counters that agree with the files.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/log/log_test_support.h"
#include "vyn/core/status.h"

namespace vyn::test {
namespace {

#if defined(__SANITIZE_THREAD__)
constexpr int kPerThread = 10000;  // ThreadSanitizer is some 20 times slower
#else
constexpr int kPerThread = 100000;
#endif

TEST_F(LogTest, EightThreadsLoseNothingAndKeepTheirOrder) {
  ASSERT_EQ(log_.Initialize(nullptr, "Busy", "V 1"), VYN_STATUS_SUCCESS);
  const std::array<int64_t, 10> before = Statistics();
  const int64_t lost = log_.GetLostEntryCount();
  std::atomic<int> refused{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &refused] {
      const auto type = t % 2 ? VYN_EVENT_DEBUG : VYN_EVENT_COMMAND;
      for (int i = 0; i < kPerThread; ++i) {
        const std::string text = std::to_string(t) + " " + std::to_string(i);
        refused += GetVYNSystemLogEx().AddOutput(text, type, "", "Thread") != VYN_STATUS_SUCCESS;
      }
    });
  }
  for (int i = 0; i < 20; ++i) EXPECT_GE(log_.GetEntryCount(), 0);  // beside the writers
  for (std::thread& thread : threads) thread.join();
  WaitUntilWritten();
  log_.Terminate();

  std::array<int, 8> next{};
  int64_t last = 0;
  int64_t titles = 0;
  const std::vector<std::string> files = LogFiles();
  for (const std::string& file : files) {
    for (const Record& entry : ReadEntries(file)) {
      ASSERT_GT(std::stoll(entry[kNumber]), last) << file;
      last = std::stoll(entry[kNumber]);
      titles += entry[kText] == "Busy V 1";
      if (entry[kCaller] != "Thread") continue;
      const int t = entry[kText][0] - '0';
      ASSERT_EQ(entry[kText].substr(2), std::to_string(next.at(t)++)) << "thread " << t;
    }
  }
  EXPECT_EQ(next, (std::array<int, 8>{kPerThread, kPerThread, kPerThread, kPerThread, kPerThread,
                                      kPerThread, kPerThread, kPerThread}));
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(static_cast<int64_t>(files.size()), titles + 1);
  const std::array<int64_t, 10> after = Statistics();
  EXPECT_EQ(after[0] - before[0], 8 * kPerThread + titles);
  EXPECT_EQ(after[7] - before[7], titles);          // information
  EXPECT_EQ(after[8] - before[8], 4 * kPerThread);  // command
  EXPECT_EQ(after[9] - before[9], 4 * kPerThread);  // debug
  EXPECT_EQ(log_.GetLostEntryCount(), lost);
}

}  // namespace
}  // namespace vyn::test
