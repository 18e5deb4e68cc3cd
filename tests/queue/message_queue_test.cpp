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

struct Received {
  uint32_t type;
  bool has_buffer;
  std::vector<unsigned char> bytes;
};

// Records what its dispatch thread hands to ProcessMessage; an optional hook
// runs first (and may throw). Notes its own deletion in `deleted`. Its
// destructor leaves the thread alone: whoever owns it terminates it first.
class RecordingQueue : public CVYNMessageQueue {
 public:
  explicit RecordingQueue(std::atomic<bool>* deleted = nullptr) : deleted_(deleted) {}
  ~RecordingQueue() override {
    if (deleted_ != nullptr) *deleted_ = true;
  }

  std::function<void(CVYNMessage&)> hook;

  bool WaitFor(size_t count, milliseconds limit = milliseconds(30000)) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return received_.size() >= count; });
  }
  std::vector<Received> Snapshot() {
    std::lock_guard lock(mutex_);
    return received_;
  }

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    if (hook) hook(message);
    const unsigned char* data = message.GetBuffer();
    std::lock_guard lock(mutex_);
    received_.push_back({message.GetMessageType(), data != nullptr,
                         data ? std::vector<unsigned char>(data, data + message.GetBufferSize())
                              : std::vector<unsigned char>()});
    changed_.notify_all();
    return VYN_STATUS_SUCCESS;
  }

 private:
  std::atomic<bool>* deleted_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Received> received_;
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
  ASSERT_TRUE(queue.WaitFor(3));
  queue.Terminate();  // the thread has ended: nothing can arrive twice later
  const auto received = queue.Snapshot();
  ASSERT_EQ(received.size(), 3u);
  EXPECT_EQ(received[0].type, 'A');
  EXPECT_EQ(received[0].bytes, (std::vector<unsigned char>{1, 2}));
  EXPECT_EQ(received[1].type, 'B');
  EXPECT_FALSE(received[1].has_buffer);  // not the buffer of A left in the loop's message
  EXPECT_EQ(received[2].bytes, (std::vector<unsigned char>{3}));
}

TEST(MessageQueueTest, IdleThreadWakesAtOnceForAPush) {
  RecordingQueue queue;
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  for (size_t round = 1; round <= 2; ++round) {
    std::this_thread::sleep_for(milliseconds(100));  // well inside the 500 ms idle wait
    const auto start = Clock::now();
    Push(queue, 1, {});
    ASSERT_TRUE(queue.WaitFor(round));
    EXPECT_LT(Clock::now() - start, milliseconds(250)) << "round " << round;
  }
  queue.Terminate();
}

TEST(MessageQueueTest, NotifyCopiesIntoEveryReceiverAndTerminateDeletesOnlyThose) {
  CVYNMessageQueue distributor;
  ASSERT_EQ(distributor.Initialize(false), VYN_STATUS_SUCCESS);
  std::atomic<bool> deleted[3] = {false, false, false};
  auto* first = new RecordingQueue(&deleted[0]);
  auto* running = new RecordingQueue(&deleted[1]);
  auto kept = std::make_unique<RecordingQueue>(&deleted[2]);
  EXPECT_EQ(distributor.Register(nullptr), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(distributor.Register(&distributor), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(distributor.Register(first), VYN_STATUS_SUCCESS);
  EXPECT_EQ(distributor.Register(first), VYN_STATUS_SUCCESS);
  EXPECT_EQ(distributor.Register(kept.get()), VYN_STATUS_SUCCESS);

  unsigned char bytes[2] = {5, 6};
  CVYNMessage message(9, bytes, 2);
  EXPECT_EQ(distributor.Notify(message), VYN_STATUS_SUCCESS);
  message.SetBuffer(bytes, 1);
  EXPECT_EQ(first->GetMessagesCount(), 1);  // registered twice, one entry
  EXPECT_EQ(kept->GetMessagesCount(), 1);
  EXPECT_EQ(distributor.GetMessagesCount(), 0);
  CVYNMessage one;
  CVYNMessage other;
  ASSERT_EQ(first->PopMessage(one), VYN_STATUS_SUCCESS);
  ASSERT_EQ(kept->PopMessage(other), VYN_STATUS_SUCCESS);
  EXPECT_NE(one.GetBuffer(), other.GetBuffer());
  for (const CVYNMessage* copy : {&one, &other}) {
    EXPECT_EQ(copy->GetMessageType(), 9u);
    ASSERT_EQ(copy->GetBufferSize(), 2);
    EXPECT_EQ(copy->GetBuffer()[1], 6);
  }

  EXPECT_EQ(distributor.Unregister(kept.get()), VYN_STATUS_SUCCESS);
  EXPECT_EQ(distributor.Unregister(kept.get()), VYN_STATUS_NOT_FOUND);
  // A receiver still busy with its own thread is stopped before deletion.
  running->hook = [](CVYNMessage&) { std::this_thread::sleep_for(milliseconds(20)); };
  ASSERT_EQ(running->Initialize(true), VYN_STATUS_SUCCESS);
  ASSERT_EQ(distributor.Register(running), VYN_STATUS_SUCCESS);
  for (int i = 0; i < 5; ++i) distributor.Notify(message);
  EXPECT_EQ(distributor.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(deleted[0]);
  EXPECT_TRUE(deleted[1]);
  EXPECT_FALSE(deleted[2]);
}

TEST(MessageQueueTest, PopMessageOnAnEmptyQueueAndBehindABusyLock) {
  CVYNMessageQueue empty;
  CVYNMessage untouched(42, nullptr, 0);
  EXPECT_EQ(empty.PopMessage(untouched), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(untouched.GetMessageType(), 42u);

  // Terminate holds the message lock while it waits for the dispatch thread,
  // whose handler meanwhile keeps asking for a message.
  RecordingQueue queue;
  std::atomic<bool> handling{false};
  int32_t status = VYN_STATUS_SUCCESS;
  Clock::duration waited{};
  queue.hook = [&](CVYNMessage&) {
    handling = true;
    const auto give_up = Clock::now() + std::chrono::seconds(30);
    CVYNMessage target(42, nullptr, 0);
    do {
      std::this_thread::sleep_for(milliseconds(1));
      const auto start = Clock::now();
      status = queue.PopMessage(target);
      waited = Clock::now() - start;
    } while (status == VYN_STATUS_UNSPECIFIC_ERROR && Clock::now() < give_up);
    if (target.GetMessageType() != 42u) status = VYN_STATUS_INVALID_DATA;
  };
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  Push(queue, 1, {});
  while (!handling) std::this_thread::yield();
  queue.Terminate();
  EXPECT_EQ(status, VYN_STATUS_TIMEOUT);
  EXPECT_GE(waited, milliseconds(95));
  EXPECT_LT(waited, milliseconds(1000));
}

TEST(MessageQueueTest, StartsWithOrWithoutThreadAndDiscardsOnTerminate) {
  CVYNMessageQueue queue;
  EXPECT_EQ(queue.Initialize(false), VYN_STATUS_SUCCESS);
  EXPECT_EQ(queue.Initialize(false), VYN_STATUS_SUCCESS);
  for (uint32_t i = 0; i < 3; ++i) Push(queue, i, {1});
  EXPECT_EQ(queue.GetMessagesCount(), 3);
  EXPECT_EQ(queue.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(queue.GetMessagesCount(), 0);
  EXPECT_EQ(queue.GetDiscardedMessagesCount(), 3);

  // The base class's handler drops what its thread takes.
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(queue.Initialize(true), VYN_STATUS_BUSY);
  Push(queue, 7, {});
  const auto give_up = Clock::now() + std::chrono::seconds(30);
  while (queue.GetMessagesCount() != 0 && Clock::now() < give_up) {
    std::this_thread::sleep_for(milliseconds(1));
  }
  EXPECT_EQ(queue.GetMessagesCount(), 0);
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
  ASSERT_TRUE(queue.WaitFor(1));
  queue.Terminate();
  const auto received = queue.Snapshot();
  ASSERT_EQ(received.size(), 1u);
  EXPECT_EQ(received[0].type, 3u);
}

TEST(MessageQueueTest, EightProducersDeliverEveryMessageOnceInTheirOrder) {
  constexpr int kProducers = 8;
  constexpr int kEach = 2000;
  RecordingQueue queue;
  ASSERT_EQ(queue.Initialize(true), VYN_STATUS_SUCCESS);
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
  ASSERT_TRUE(queue.WaitFor(kProducers * kEach, milliseconds(120000)));
  queue.Terminate();
  const auto received = queue.Snapshot();
  ASSERT_EQ(received.size(), static_cast<size_t>(kProducers * kEach));
  std::vector<int> next(kProducers, 0);
  for (const Received& message : received) {
    ASSERT_LT(message.type, static_cast<uint32_t>(kProducers));
    const int sequence = message.bytes[0] | message.bytes[1] << 8;
    ASSERT_EQ(sequence, next[message.type]) << "producer " << message.type;
    ++next[message.type];
  }
}

}  // namespace
