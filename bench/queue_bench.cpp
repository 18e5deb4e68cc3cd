// Message queue costs: PushMessage-to-ProcessMessage latency against a plain
// mutex-and-condition-variable queue, and Notify throughput to 1 and 4
// receivers.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "vyn/core/status.h"
#include "vyn/queue/message_queue.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int32_t kMessageBytes = 64;

int64_t Now() { return Clock::now().time_since_epoch().count(); }

// What the receiving side of a latency run records: the time from the
// stamp written into the message until the handler saw it.
class LatencyProbe {
 public:
  void Receive(const unsigned char* bytes) {
    int64_t stamp;
    std::memcpy(&stamp, bytes, sizeof stamp);
    last_ns_.store(Now() - stamp, std::memory_order_relaxed);
    received_.fetch_add(1, std::memory_order_release);
  }
  // Waits for the next message and returns its latency in nanoseconds.
  int64_t AwaitNext() {
    while (received_.load(std::memory_order_acquire) == seen_) std::this_thread::yield();
    ++seen_;
    return last_ns_.load(std::memory_order_relaxed);
  }

 private:
  std::atomic<int64_t> received_{0};
  std::atomic<int64_t> last_ns_{0};
  int64_t seen_ = 0;
};

class ProbeQueue : public CVYNMessageQueue {
 public:
  explicit ProbeQueue(LatencyProbe& probe) : probe_(probe) {}

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    probe_.Receive(message.GetBuffer());
    return VYN_STATUS_SUCCESS;
  }

 private:
  LatencyProbe& probe_;
};

// The yardstick: one mutex, one condition variable, a deque of byte vectors
// and a consumer thread that hands each message to `handle`. With
// `timed_wait` the consumer's wait ends after 500 ms at the latest, as the
// dispatch thread's idle wait does (so that it can stamp its heartbeat); a
// timed wait costs a wake-up more than an unlimited one.
template <typename Handler>
class PlainQueue {
 public:
  explicit PlainQueue(Handler handle, bool timed_wait = false)
      : handle_(handle), timed_wait_(timed_wait), consumer_([this] { Consume(); }) {}
  ~PlainQueue() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    ready_.notify_one();
    consumer_.join();
  }
  void Push(const unsigned char* bytes, size_t size) {
    std::vector<unsigned char> copy(bytes, bytes + size);
    {
      std::lock_guard lock(mutex_);
      pending_.push_back(std::move(copy));
    }
    ready_.notify_one();
  }

 private:
  void Consume() {
    for (;;) {
      std::vector<unsigned char> message;
      {
        std::unique_lock lock(mutex_);
        const auto ready = [this] { return stop_ || !pending_.empty(); };
        if (!timed_wait_) {
          ready_.wait(lock, ready);
        } else if (!ready_.wait_for(lock, std::chrono::milliseconds(500), ready)) {
          continue;
        }
        if (stop_) return;
        message = std::move(pending_.front());
        pending_.pop_front();
      }
      handle_(message.data());
    }
  }

  Handler handle_;
  const bool timed_wait_;
  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::vector<unsigned char>> pending_;
  bool stop_ = false;
  std::thread consumer_;
};

// Runs one push per iteration and waits for its arrival. range(0) is the
// pause in microseconds before each push: 0 sends back to back, a pause lets
// the receiving thread fall asleep first, as it does between real events.
template <typename Send>
void MeasureLatency(benchmark::State& state, LatencyProbe& probe, Send send) {
  const auto pause = std::chrono::microseconds(state.range(0));
  std::vector<int64_t> latencies;
  latencies.reserve(static_cast<size_t>(state.max_iterations));
  unsigned char bytes[kMessageBytes] = {};
  for (auto _ : state) {
    if (pause.count() > 0) std::this_thread::sleep_for(pause);
    const int64_t stamp = Now();
    std::memcpy(bytes, &stamp, sizeof stamp);
    send(bytes);
    const int64_t latency = probe.AwaitNext();
    latencies.push_back(latency);
    state.SetIterationTime(static_cast<double>(latency) * 1e-9);
  }
  std::sort(latencies.begin(), latencies.end());
  const auto at = [&](double share) {
    return static_cast<double>(latencies[static_cast<size_t>(share * (latencies.size() - 1))]) *
           1e-3;
  };
  state.counters["p50_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
}

void BM_LatencyCVYNMessageQueue(benchmark::State& state) {
  LatencyProbe probe;
  ProbeQueue queue(probe);
  queue.Initialize(true);
  unsigned char initial[kMessageBytes] = {};
  CVYNMessage message(1, initial, kMessageBytes);
  MeasureLatency(state, probe, [&](unsigned char* bytes) {
    std::memcpy(message.GetBuffer(), bytes, kMessageBytes);
    queue.PushMessage(message);
  });
  queue.Terminate();
}
BENCHMARK(BM_LatencyCVYNMessageQueue)->Arg(0)->Arg(100)->Iterations(20000)->UseManualTime();

void BM_LatencyPlainQueue(benchmark::State& state) {
  LatencyProbe probe;
  PlainQueue queue([&probe](const unsigned char* bytes) { probe.Receive(bytes); },
                   state.range(1) != 0);
  MeasureLatency(state, probe, [&](unsigned char* bytes) { queue.Push(bytes, kMessageBytes); });
}
// Arguments: pause before each push (us), timed wait (0 or 1).
BENCHMARK(BM_LatencyPlainQueue)
    ->Args({0, 0})
    ->Args({100, 0})
    ->Args({0, 1})
    ->Args({100, 1})
    ->Iterations(20000)
    ->UseManualTime();

// Receivers without dispatch threads: the cost of the distribution alone.
// The receivers are emptied outside the measured time every 1024 messages.
// items_per_second is the rate at which every single receiver is fed.
void BM_NotifyToIdleReceivers(benchmark::State& state) {
  const auto receivers = static_cast<size_t>(state.range(0));
  CVYNMessageQueue distributor;
  distributor.Initialize(false);
  std::vector<CVYNMessageQueue*> owned;
  for (size_t i = 0; i < receivers; ++i) {
    owned.push_back(new CVYNMessageQueue);
    owned.back()->Initialize(false);
    distributor.Register(owned.back());
  }
  unsigned char bytes[kMessageBytes] = {};
  CVYNMessage message(2, bytes, kMessageBytes);
  CVYNMessage taken;
  int64_t sent = 0;
  for (auto _ : state) {
    distributor.Notify(message);
    if ((++sent & 1023) == 0) {
      state.PauseTiming();
      for (CVYNMessageQueue* queue : owned) {
        while (queue->PopMessage(taken) == VYN_STATUS_SUCCESS) {
        }
      }
      state.ResumeTiming();
    }
  }
  state.SetItemsProcessed(state.iterations());
  distributor.Terminate();  // deletes the receivers
}
BENCHMARK(BM_NotifyToIdleReceivers)->Arg(1)->Arg(4);

// Waits, sleeping, until `count` reaches `target`: a spinning sender would
// take the processor from the receivers' threads on a small machine.
void AwaitCount(const std::atomic<int64_t>& count, int64_t target) {
  while (count.load(std::memory_order_relaxed) < target) {
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
}

class CountingQueue : public CVYNMessageQueue {
 public:
  std::atomic<int64_t> processed{0};

 protected:
  int32_t ProcessMessage(CVYNMessage& /*message*/) override {
    processed.fetch_add(1, std::memory_order_relaxed);
    return VYN_STATUS_SUCCESS;
  }
};

// Receivers with dispatch threads, end to end: one iteration notifies a
// batch of 4096 messages and waits until every receiver has processed all of
// them. items_per_second is the rate at which every single receiver is fed.
void BM_NotifyToDispatchingReceivers(benchmark::State& state) {
  constexpr int64_t kBatch = 4096;
  const auto receivers = static_cast<size_t>(state.range(0));
  CVYNMessageQueue distributor;
  distributor.Initialize(false);
  std::vector<CountingQueue*> counting;
  for (size_t i = 0; i < receivers; ++i) {
    counting.push_back(new CountingQueue);
    counting.back()->Initialize(true);
    distributor.Register(counting.back());
  }
  unsigned char bytes[kMessageBytes] = {};
  CVYNMessage message(3, bytes, kMessageBytes);
  int64_t sent = 0;
  for (auto _ : state) {
    for (int64_t i = 0; i < kBatch; ++i) distributor.Notify(message);
    sent += kBatch;
    for (CountingQueue* queue : counting) AwaitCount(queue->processed, sent);
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  distributor.Terminate();
}
BENCHMARK(BM_NotifyToDispatchingReceivers)->Arg(1)->Arg(4)->UseRealTime();

// The same fan-out over plain queues, as a yardstick for the one above.
void BM_FanOutToPlainQueues(benchmark::State& state) {
  constexpr int64_t kBatch = 4096;
  const auto receivers = static_cast<size_t>(state.range(0));
  std::vector<std::atomic<int64_t>> processed(receivers);
  using Counter = std::function<void(const unsigned char*)>;
  std::vector<std::unique_ptr<PlainQueue<Counter>>> queues;
  for (size_t i = 0; i < receivers; ++i) {
    queues.push_back(std::make_unique<PlainQueue<Counter>>(
        [&processed, i](const unsigned char*) { processed[i].fetch_add(1); }));
  }
  unsigned char bytes[kMessageBytes] = {};
  int64_t sent = 0;
  for (auto _ : state) {
    for (int64_t i = 0; i < kBatch; ++i) {
      for (auto& queue : queues) queue->Push(bytes, kMessageBytes);
    }
    sent += kBatch;
    for (auto& count : processed) AwaitCount(count, sent);
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_FanOutToPlainQueues)->Arg(1)->Arg(4)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
