#include "vyn/queue/message_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <vector>

#include "vyn/core/status.h"

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

  // What has been handled, once there are `count` messages (or 30 s passed).
  std::vector<CVYNMessage> WaitFor(size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(30), [&] { return received_.size() >= count; });
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
  std::atomic<bool>* deleted_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<CVYNMessage> received_;
};

int32_t Push(CVYNMessageQueue& queue, uint32_t type, std::vector<unsigned char> bytes) {
  CVYNMessage message(type, bytes.empty() ? nullptr : bytes.data(),
                      static_cast<int32_t>(bytes.size()));
  return queue.PushMessage(message);
}

TEST(MessageQueueTest, ProcessesInArrivalOrderExactlyOnce) {
  RecordingQueue queue;
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  Push(queue, 'A', {1, 2});
  Push(queue, 'B', {});
  Push(queue, 'C', {3});
  queue.WaitFor(3);
  queue.Terminate();  // the thread has ended: nothing can arrive twice later
  const auto received = queue.WaitFor(0);
  ASSERT_EQ(received.size(), 3u);
  EXPECT_EQ(received[0].GetMessageType(), 'A');
  EXPECT_EQ(received[0].GetBuffer()[1], 2);
  EXPECT_EQ(received[1].GetMessageType(), 'B');
  EXPECT_EQ(received[1].GetBuffer(), nullptr);  // not the bytes of A left in the loop
  EXPECT_EQ(received[2].GetBuffer()[0], 3);
}

TEST(MessageQueueTest, IdleThreadWakesAtOnceForAPush) {
  RecordingQueue queue;
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  for (size_t round = 1; round <= 2; ++round) {
    std::this_thread::sleep_for(milliseconds(100));  // well inside the 500 ms idle wait
    const auto start = Clock::now();
    Push(queue, 1, {});
    ASSERT_EQ(queue.WaitFor(round).size(), round);
    EXPECT_LT(Clock::now() - start, milliseconds(250)) << "round " << round;
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
  EXPECT_EQ(distributor.Register(first.get()), VYN_STATUS_SUCCESS);
  EXPECT_EQ(distributor.Register(first.get()), VYN_STATUS_SUCCESS);
  EXPECT_EQ(distributor.Register(kept.get()), VYN_STATUS_SUCCESS);

  unsigned char bytes[2] = {5, 6};
  CVYNMessage message(9, bytes, 2);
  EXPECT_EQ(distributor.Notify(message), VYN_STATUS_SUCCESS);
  message.GetBuffer()[1] = 7;
  EXPECT_EQ(first->GetMessagesCount(), 1);  // registered twice, one entry
  EXPECT_EQ(distributor.GetMessagesCount(), 0);
  CVYNMessage one;
  CVYNMessage other;
  ASSERT_EQ(first->PopMessage(one), VYN_STATUS_SUCCESS);
  ASSERT_EQ(kept->PopMessage(other), VYN_STATUS_SUCCESS);
  EXPECT_NE(one.GetBuffer(), other.GetBuffer());
  EXPECT_EQ(one.GetBuffer()[1], 6);
  EXPECT_EQ(other.GetBuffer()[1], 6);

  EXPECT_EQ(distributor.Unregister(kept.get()), VYN_STATUS_SUCCESS);
  EXPECT_EQ(distributor.Unregister(kept.get()), VYN_STATUS_NOT_FOUND);
  // A receiver still busy with its own thread is stopped before deletion.
  running->hook = [](CVYNMessage&) { std::this_thread::sleep_for(milliseconds(20)); };
  ASSERT_EQ(running->Initialize(true), VYN_STATUS_SUCCESS);
  ASSERT_EQ(distributor.Register(running.get()), VYN_STATUS_SUCCESS);
  static_cast<void>(first.release());  // both belong to the distributor now
  static_cast<void>(running.release());
  for (int i = 0; i < 5; ++i) distributor.Notify(message);
  EXPECT_EQ(distributor.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(deleted[0]);
  EXPECT_TRUE(deleted[1]);
  EXPECT_FALSE(deleted[2]);
}

TEST(MessageQueueTest, PopMessageOnAnEmptyQueueAndFromItsOwnHandlerDuringTerminate) {
  RecordingQueue queue;
  CVYNMessage untouched(42, nullptr, 0);
  EXPECT_EQ(queue.PopMessage(untouched), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(untouched.GetMessageType(), 42u);

  // A handler that calls into its own queue while Terminate waits for the
  // dispatch thread is not kept waiting: no lock is held across that wait.
  std::atomic<bool> handling{false};
  std::atomic<int> calls{0};
  queue.hook = [&](CVYNMessage&) {
    handling = true;
    const auto until = Clock::now() + milliseconds(300);
    CVYNMessage target(42, nullptr, 0);
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
  EXPECT_EQ(queue.GetMessagesCount(), 0);
}

TEST(MessageQueueTest, StartsWithOrWithoutThreadAndDiscardsOnTerminate) {
  CVYNMessageQueue queue;
  EXPECT_EQ(queue.Initialize(false), VYN_STATUS_SUCCESS);
  for (uint32_t i = 0; i < 3; ++i) Push(queue, i, {1});
  EXPECT_EQ(queue.GetMessagesCount(), 3);
  EXPECT_EQ(queue.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(queue.GetMessagesCount(), 0);
  EXPECT_EQ(queue.GetDiscardedMessagesCount(), 3);

  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(queue.Initialize(true), VYN_STATUS_BUSY);
  queue.Terminate();
}

TEST(MessageQueueTest, ThrowingHandlerLosesOnlyItsMessage) {
  RecordingQueue queue;
  queue.hook = [](CVYNMessage& message) {
    if (message.GetMessageType() == 1) throw std::runtime_error("refused");
    if (message.GetMessageType() == 2) throw 2;
  };
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  for (uint32_t type : {1u, 2u, 3u}) Push(queue, type, {});
  queue.WaitFor(1);
  queue.Terminate();
  const auto received = queue.WaitFor(0);
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].GetMessageType(), 3u);
}

TEST(MessageQueueTest, EightProducersDeliverEveryMessageOnceInTheirOrder) {
  constexpr int kProducers = 8;
  constexpr int kEach = 2000;
  RecordingQueue queue;
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  std::vector<std::thread> producers;
  producers.reserve(kProducers);
  for (int p = 0; p < kProducers; ++p) {
    producers.emplace_back([&queue, p] {
      for (int i = 0; i < kEach; ++i) {
        Push(queue, static_cast<uint32_t>(p),
             {static_cast<unsigned char>(i & 0xFF), static_cast<unsigned char>(i >> 8)});
      }
    });
  }
  for (auto& producer : producers) producer.join();
  queue.WaitFor(static_cast<size_t>(kProducers) * kEach);
  queue.Terminate();
  const auto received = queue.WaitFor(0);
  ASSERT_EQ(received.size(), static_cast<size_t>(kProducers) * kEach);
  std::vector<int> next(kProducers, 0);
  for (const CVYNMessage& message : received) {
    const uint32_t producer = message.GetMessageType();
    ASSERT_LT(producer, static_cast<uint32_t>(kProducers));
    const int sequence = message.GetBuffer()[0] | message.GetBuffer()[1] << 8;
    ASSERT_EQ(sequence, next[producer]) << "producer " << producer;
    ++next[producer];
  }
}

}  // namespace
