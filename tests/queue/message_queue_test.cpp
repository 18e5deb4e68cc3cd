#include "vyn/queue/message_queue.h"

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "vyn/core/status.h"
#include "vyn/platform/wake_up_event.h"
#include "vyn/queue/internal/idle_ticker.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Keeps a copy of what its dispatch thread hands to ProcessMessage; an
// optional hook runs first (and may throw). Notes its own deletion in
// `deleted`, and leaves its thread alone: whoever owns it terminates it.
class RecordingQueue : public CVYNMessageQueue {
 public:
  explicit RecordingQueue(std::atomic<bool>* deleted = nullptr) : deleted_(deleted) {}
  ~RecordingQueue() override {
    if (deleted_ != nullptr) *deleted_ = true;
  }

  std::function<void(CVYNMessage&)> hook;
  // What has been handled, once there are `count` messages (or `limit` passed).
  std::vector<CVYNMessage> WaitFor(size_t count, Clock::duration limit = std::chrono::seconds(30)) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, limit, [&] { return received_.size() >= count; });
    return received_;
  }

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    if (hook) hook(message);
    std::lock_guard lock(mutex_);
    received_.push_back(message);
    changed_.notify_all();
    return VYN_STATUS_SUCCESS;
  }

 private:
  std::atomic<bool>* deleted_;  // may be null
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<CVYNMessage> received_;
};

std::vector<unsigned char> BytesOf(const CVYNMessage& message) {
  const unsigned char* data = message.GetBuffer();
  return {data, data + (data == nullptr ? 0 : message.GetBufferSize())};
}

int32_t Push(CVYNMessageQueue& queue, uint32_t type, std::vector<unsigned char> bytes) {
  CVYNMessage message(type, bytes.empty() ? nullptr : bytes.data(),
                      static_cast<int32_t>(bytes.size()));
  return queue.PushMessage(message);
}

// Eight producers after three single messages: every message is handled
// once, in the order its sender pushed it; a throwing handler loses only its
// own message.
TEST(MessageQueueTest, HandlesEveryMessageOnceInItsSendersOrderAndOutlivesThrowingHandlers) {
  constexpr int kProducers = 8;
  constexpr int kEach = 2000;
  RecordingQueue queue;
  queue.hook = [](CVYNMessage& message) {
    if (message.GetMessageType() == 101) throw std::runtime_error("refused");
    if (message.GetMessageType() == 102) throw 2;
  };
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(queue.Initialize(true), VYN_STATUS_BUSY);
  Push(queue, 101, {});
  Push(queue, 'A', {1, 2});
  Push(queue, 102, {});
  Push(queue, 'B', {});
  Push(queue, 'C', {3});
  std::vector<std::thread> producers;
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&queue, p] {
      for (int i = 0; i < kEach; ++i) {
        Push(queue, static_cast<uint32_t>(p),
             {static_cast<unsigned char>(i & 0xFF), static_cast<unsigned char>(i >> 8)});
      }
    });
  }
  for (auto& producer : producers) producer.join();
  queue.WaitFor(3 + kProducers * kEach);
  queue.Terminate();  // the thread has ended: nothing can arrive twice later
  const auto received = queue.WaitFor(0);
  ASSERT_EQ(received.size(), 3u + kProducers * kEach);
  std::vector<std::pair<uint32_t, std::vector<unsigned char>>> seen;
  for (size_t i = 0; i < 3; ++i)
    seen.emplace_back(received[i].GetMessageType(), BytesOf(received[i]));
  // B's empty buffer is not the bytes of A left in the loop.
  EXPECT_EQ(seen, (decltype(seen){{'A', {1, 2}}, {'B', {}}, {'C', {3}}}));
  std::vector<int> next(kProducers, 0);
  for (size_t i = 3; i < received.size(); ++i) {
    const uint32_t producer = received[i].GetMessageType() % kProducers;
    ASSERT_EQ(received[i].GetBuffer()[0] | received[i].GetBuffer()[1] << 8, next[producer]++);
  }
  // Pending messages are discarded by the next Terminate, and counted.
  for (int64_t terminated = 1; terminated <= 2; ++terminated) {
    for (uint32_t i = 0; i < 3; ++i) Push(queue, i, {1});
    EXPECT_EQ(queue.GetMessagesCount(), 3);
    queue.Terminate();
    EXPECT_TRUE(queue.GetMessagesCount() == 0 &&
                queue.GetDiscardedMessagesCount() == 3 * terminated);
  }
}

// Each push finds the thread asleep, or on its way to sleep when it comes
// right after the handler of the one before: either way it is handled at
// once, not when the idle thread comes round for its heartbeat (500 ms).
TEST(MessageQueueTest, EveryPushWakesTheIdleThreadAtOnce) {
  RecordingQueue queue;
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  for (size_t round = 1; round <= 1000; ++round) {
    if (round % 500 == 1) std::this_thread::sleep_for(milliseconds(50));
    Push(queue, 1, {});
    ASSERT_EQ(queue.WaitFor(round, milliseconds(400)).size(), round) << "round " << round;
  }
  queue.Terminate();
}

TEST(MessageQueueTest, NotifyCopiesIntoEveryReceiverAndTerminateDeletesOnlyThose) {
  CVYNMessageQueue distributor;
  ASSERT_EQ(distributor.Initialize(false), VYN_STATUS_SUCCESS);
  std::atomic<bool> deleted[3] = {false, false, false};
  auto first = std::make_unique<RecordingQueue>(&deleted[0]);
  auto running = std::make_unique<RecordingQueue>(&deleted[1]);
  auto kept = std::make_unique<RecordingQueue>(&deleted[2]);
  EXPECT_EQ(distributor.Register(nullptr), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(distributor.Register(&distributor), VYN_STATUS_INVALID_PARAMETER);
  for (auto* queue : {first.get(), first.get(), kept.get()}) {
    EXPECT_EQ(distributor.Register(queue), VYN_STATUS_SUCCESS);
  }
  unsigned char bytes[2] = {5, 6};
  CVYNMessage message(9, bytes, 2);
  distributor.Notify(message);
  message.GetBuffer()[1] = 7;               // the receivers have copies of their own
  EXPECT_EQ(first->GetMessagesCount(), 1);  // registered twice, one entry
  CVYNMessage one;
  CVYNMessage other;
  ASSERT_EQ(first->PopMessage(one), VYN_STATUS_SUCCESS);
  ASSERT_EQ(kept->PopMessage(other), VYN_STATUS_SUCCESS);
  EXPECT_EQ(first->GetMessagesCount(), 0);
  EXPECT_EQ(one.GetBuffer()[1] + other.GetBuffer()[1], 12);
  EXPECT_EQ(distributor.Unregister(kept.get()), VYN_STATUS_SUCCESS);
  EXPECT_EQ(distributor.Unregister(kept.get()), VYN_STATUS_NOT_FOUND);
  // A receiver still busy with its own thread is stopped before deletion.
  running->hook = [](CVYNMessage&) { std::this_thread::sleep_for(milliseconds(20)); };
  ASSERT_EQ(running->Initialize(true), VYN_STATUS_SUCCESS);
  ASSERT_EQ(distributor.Register(running.get()), VYN_STATUS_SUCCESS);
  static_cast<void>(first.release());  // both belong to the distributor now
  static_cast<void>(running.release());
  for (int i = 0; i < 5; ++i) distributor.Notify(message);
  distributor.Terminate();
  EXPECT_TRUE(deleted[0] && deleted[1] && !deleted[2]);
}

TEST(MessageQueueTest, PopMessageOnAnEmptyQueueAndFromItsOwnHandlerDuringTerminate) {
  RecordingQueue queue;
  CVYNMessage target(42, nullptr, 0);
  EXPECT_EQ(queue.PopMessage(target), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(target.GetMessageType(), 42u);  // untouched
  // A handler that calls into its own queue while Terminate waits for the
  // dispatch thread is not kept waiting: no lock is held across that wait.
  std::atomic<bool> handling{false};
  std::atomic<int> calls{0};
  queue.hook = [&](CVYNMessage&) {
    handling = true;
    const auto until = Clock::now() + milliseconds(300);
    while (Clock::now() < until) {
      const auto start = Clock::now();
      queue.PopMessage(target);
      queue.PushMessage(target);
      if (Clock::now() - start < milliseconds(50)) ++calls;
    }
  };
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  Push(queue, 1, {});
  while (!handling) std::this_thread::yield();
  queue.Terminate();
  EXPECT_GT(calls.load(), 10);
}

// The ticker is what ends an idle dispatch thread's wait for its heartbeat.
TEST(IdleTickerTest, RaisesEveryRegisteredEventEachPeriodUntilRemoved) {
  vyn::IdleTicker ticker(20);
  vyn::platform::WakeUpEvent kept;
  vyn::platform::WakeUpEvent removed;
  ASSERT_TRUE(ticker.Add(&kept) && ticker.Add(&removed));
  for (int period = 0; period < 2; ++period) EXPECT_TRUE(kept.Wait(2000) && removed.Wait(2000));
  ticker.Remove(&removed);
  removed.Wait(0);  // a raise from just before the removal
  EXPECT_TRUE(kept.Wait(2000));
  EXPECT_FALSE(removed.Wait(100));
}

TEST(MessageTest, CopiesOwnTheirBytesMovesHandThemOverAndBuffersResize) {
  unsigned char sent[4] = {4, 3, 2, 1};
  auto source = std::make_unique<CVYNMessage>(1, sent, 4);
  sent[0] = 9;
  CVYNMessage copy(*source);
  CVYNMessage assigned(2, sent, 1);
  assigned = *source;
  source.reset();
  EXPECT_EQ(BytesOf(copy), (std::vector<unsigned char>{4, 3, 2, 1}));
  EXPECT_TRUE(BytesOf(assigned) == BytesOf(copy) && assigned.GetMessageType() == 1u);
  assigned = CVYNMessage(6, nullptr, 5);  // absent data: no buffer
  EXPECT_TRUE(assigned.GetBufferSize() == 0 && assigned.GetMessageType() == 6u);
  const unsigned char* bytes = copy.GetBuffer();
  assigned = std::move(copy);
  EXPECT_EQ(assigned.GetBuffer(), bytes);
  // NOLINTNEXTLINE(bugprone-use-after-move,clang-analyzer-cplusplus.Move)
  EXPECT_EQ(copy.GetBufferSize(), 0);  // the moved-from state: without buffer
  CVYNMessage message(1, sent, 4);
  EXPECT_TRUE(message.SetBuffer(nullptr, 2) == VYN_STATUS_SUCCESS && message.GetBufferSize() == 4);
  // The source may lie in the message's own buffer.
  EXPECT_EQ(message.SetBuffer(message.GetBuffer() + 1, 3), VYN_STATUS_SUCCESS);
  EXPECT_EQ(BytesOf(message), (std::vector<unsigned char>{3, 2, 1}));
  const unsigned char* kept = message.GetBuffer();
  EXPECT_EQ(message.SetBufferSize(-1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_TRUE(message.SetBufferSize(3) == 3 && message.GetBuffer() == kept);
  EXPECT_TRUE(message.SetBufferSize(2) == 2 && message.SetBufferSize(4) == 4);
  EXPECT_EQ(BytesOf(message).at(1), 2);  // kept through shrinking and growing
  EXPECT_EQ(message.SetBuffer(sent, 0), VYN_STATUS_SUCCESS);
  EXPECT_NE(CVYNMessage(message).GetBuffer(), nullptr);  // an empty buffer is still one
  EXPECT_EQ(message.SetBuffer(sent, -1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(message.GetBuffer(), nullptr);
  EXPECT_TRUE(message.SetBufferSize(2) == 2 && message.GetBuffer() != nullptr);  // from none
}

// Runs in a child in which a request of 2 GiB fails: its address space is
// capped at 1 GiB or, under a sanitizer (which reserves far more), the
// sanitizer's allocator refuses requests above 1 GiB.
[[noreturn]] void AllocateBeyondTheCap(bool sanitized) {
  const rlimit cap{1UL << 30, 1UL << 30};
  if (!sanitized && setrlimit(RLIMIT_AS, &cap) != 0) std::_Exit(2);
  unsigned char small[4] = {1, 2, 3, 4};
  CVYNMessage message(1, small, 4);
  const bool refused = CVYNMessage(1, small, INT_MAX).GetBuffer() == nullptr &&
                       message.SetBufferSize(INT_MAX) == VYN_STATUS_NO_MEMORY &&
                       message.GetBufferSize() == 4 && message.GetBuffer()[3] == 4 &&
                       message.SetBuffer(small, INT_MAX) == VYN_STATUS_NO_MEMORY &&
                       message.GetBuffer() == nullptr;
  std::_Exit(refused ? 0 : 1);
}

TEST(MessageDeathTest, RefusedAllocationsBecomeNoMemory) {
  // The child is a fresh run of this program, started with this environment;
  // death tests run before any other, while no other thread runs.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const char* name : {"ASAN_OPTIONS", "TSAN_OPTIONS"}) {
    const char* options = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    const std::string refusing = std::string(options ? options : "") +
                                 ":allocator_may_return_null=1:max_allocation_size_mb=1024";
    setenv(name, refusing.c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
  }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  EXPECT_EXIT(AllocateBeyondTheCap(true), ::testing::ExitedWithCode(0), "");
#else
  EXPECT_EXIT(AllocateBeyondTheCap(false), ::testing::ExitedWithCode(0), "");
#endif
}

}  // namespace
