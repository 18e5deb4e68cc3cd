// Many threads logging at once: nothing lost, nothing doubled, each
// thread's entries in its own order, and counters that agree with the files.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
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
constexpr int kThreads = 8;

TEST_F(LogTest, EightThreadsLoseNothingAndKeepTheirOrder) {
  ASSERT_EQ(log_.Initialize(nullptr, "Busy", "V 1"), VYN_STATUS_SUCCESS);
  const std::array<int64_t, 10> before = Statistics();
  const int64_t lost_before = log_.GetLostEntryCount();
  std::atomic<int> refused{0};
  std::atomic<int> running{kThreads};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t, &refused, &running] {
      const auto type = t % 2 == 0 ? VYN_EVENT_COMMAND : VYN_EVENT_DEBUG;
      for (int i = 0; i < kPerThread; ++i) {
        const std::string text = std::to_string(t) + " " + std::to_string(i);
        if (GetVYNSystemLogEx().AddOutput(text, type, "", "Thread") != VYN_STATUS_SUCCESS) {
          ++refused;
        }
      }
      --running;
    });
  }
  while (running > 0) {  // readers beside the writers
    EXPECT_GE(log_.GetEntryCount(), 0);
    EXPECT_GE(Statistics()[0], before[0]);
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  for (std::thread& thread : threads) thread.join();
  WaitUntilWritten();  // the title entries of new files are accepted only while running
  log_.Terminate();

  std::array<int, kThreads> next{};
  int64_t last_number = 0;
  int64_t titles = 0;
  const std::vector<std::string> files = LogFiles();
  for (const std::string& file : files) {
    for (const Record& entry : ReadEntries(file)) {
      const int64_t number = std::stoll(entry[kNumber]);
      ASSERT_GT(number, last_number) << file;
      last_number = number;
      if (entry[kCaller] != "Thread") {
        titles += entry[kText] == "Busy V 1";
        continue;
      }
      const size_t blank = entry[kText].find(' ');
      const int t = std::stoi(entry[kText].substr(0, blank));
      ASSERT_EQ(std::stoi(entry[kText].substr(blank + 1)), next.at(t)++) << "thread " << t;
    }
  }
  for (int t = 0; t < kThreads; ++t) EXPECT_EQ(next[t], kPerThread) << "thread " << t;
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(static_cast<int64_t>(files.size()), titles + 1);
  const std::array<int64_t, 10> after = Statistics();
  EXPECT_EQ(after[0] - before[0], kThreads * kPerThread + titles);
  EXPECT_EQ(after[7] - before[7], titles);                     // information
  EXPECT_EQ(after[8] - before[8], kThreads / 2 * kPerThread);  // command
  EXPECT_EQ(after[9] - before[9], kThreads / 2 * kPerThread);  // debug
  EXPECT_EQ(log_.GetLostEntryCount(), lost_before);
}

}  // namespace
}  // namespace vyn::test
