// Message queue costs: PushMessage-to-ProcessMessage latency as an
// application sends, against a plain mutex-and-condition-variable queue, and
// Notify throughput to 1 and 4 receivers.
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
#include <string>
#include <thread>
#include <vector>

#include "vyn/core/status.h"
#include "vyn/queue/message_queue.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr int32_t kMessageBytes = 64;

int64_t Now() { return Clock::now().time_since_epoch().count(); }

// The receiving side of a delivery run: each message carries the time it
// was sent and its number in the round; the handler notes the latency under
// that number.
class DeliveryLog {
 public:
  void Start(size_t count) {
    latencies_.assign(count, 0);
    received_.store(0, std::memory_order_relaxed);
  }
  void Receive(const unsigned char* bytes) {
    const int64_t now = Now();
    int64_t stamp;
    uint32_t index;
    std::memcpy(&stamp, bytes, sizeof stamp);
    std::memcpy(&index, bytes + sizeof stamp, sizeof index);
    latencies_[index] = now - stamp;
    received_.fetch_add(1, std::memory_order_release);
  }
  // Sleeps until the whole round has arrived, then hands its latencies over.
  void Collect(std::vector<int64_t>& into) {
    while (received_.load(std::memory_order_acquire) < latencies_.size()) {
      std::this_thread::sleep_for(std::chrono::microseconds(200));
    }
    into.insert(into.end(), latencies_.begin(), latencies_.end());
  }

 private:
  std::vector<int64_t> latencies_;
  std::atomic<size_t> received_{0};
};

class LoggingQueue : public CVYNMessageQueue {
 public:
  explicit LoggingQueue(DeliveryLog& log) : log_(log) {}

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    log_.Receive(message.GetBuffer());
    return VYN_STATUS_SUCCESS;
  }

 private:
  DeliveryLog& log_;
};

// The yardstick: one mutex, one condition variable, a deque of byte vectors
// and a consumer thread that hands each message to `handle`. With
// `timed_wait` the consumer's wait ends after 500 ms at the latest, as the
// dispatch thread's idle wait does (so that it can stamp its heartbeat).
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

// One round of `count` sends, 100 us apart, as an application sends events:
// a message is built for every send, and the sender goes on at once rather
// than waiting for the arrival.
template <typename Send>
void SendRound(size_t count, Send send) {
  unsigned char bytes[kMessageBytes] = {};
  for (size_t i = 0; i < count; ++i) {
    std::this_thread::sleep_for(std::chrono::microseconds(100));
    const int64_t stamp = Now();
    const auto index = static_cast<uint32_t>(i);
    std::memcpy(bytes, &stamp, sizeof stamp);
    std::memcpy(bytes + sizeof stamp, &index, sizeof index);
    send(bytes);
  }
}

double PercentileUs(std::vector<int64_t>& latencies, double share) {
  std::sort(latencies.begin(), latencies.end());
  return static_cast<double>(latencies[static_cast<size_t>(share * (latencies.size() - 1))]) * 1e-3;
}

// PushMessage-to-ProcessMessage latency against the plain queue (untimed and
// timed wait), all three fed in alternating rounds within one run so that the
// load of a shared machine falls on each alike. Counters: p50/p90/p99 in
// microseconds per queue and the ratios of the message queue's to the plain
// queue's (untimed wait).
void BM_DeliveryAsApplicationSends(benchmark::State& state) {
  constexpr size_t kRoundSends = 10;
  const auto rounds = static_cast<int>(state.range(0));
  DeliveryLog vyn_log;
  DeliveryLog plain_log;
  DeliveryLog timed_log;
  LoggingQueue queue(vyn_log);
  queue.Initialize(true);
  const auto to = [](DeliveryLog& log) {
    return [&log](const unsigned char* bytes) { log.Receive(bytes); };
  };
  PlainQueue plain(to(plain_log));
  PlainQueue timed(to(timed_log), true);
  std::vector<int64_t> vyn_ns;
  std::vector<int64_t> plain_ns;
  std::vector<int64_t> timed_ns;
  for (auto _ : state) {
    for (int round = 0; round < rounds; ++round) {
      vyn_log.Start(kRoundSends);
      SendRound(kRoundSends, [&](unsigned char* bytes) {
        CVYNMessage message(1, bytes, kMessageBytes);
        queue.PushMessage(message);
      });
      vyn_log.Collect(vyn_ns);
      plain_log.Start(kRoundSends);
      SendRound(kRoundSends, [&](unsigned char* bytes) { plain.Push(bytes, kMessageBytes); });
      plain_log.Collect(plain_ns);
      timed_log.Start(kRoundSends);
      SendRound(kRoundSends, [&](unsigned char* bytes) { timed.Push(bytes, kMessageBytes); });
      timed_log.Collect(timed_ns);
    }
  }
  queue.Terminate();
  const struct {
    double share;
    const char* tag;
  } percentiles[] = {{0.50, "p50"}, {0.90, "p90"}, {0.99, "p99"}};
  for (const auto& [share, tag] : percentiles) {
    const double vyn_us = PercentileUs(vyn_ns, share);
    const double plain_us = PercentileUs(plain_ns, share);
    state.counters[std::string("vyn_") + tag + "_us"] = vyn_us;
    state.counters[std::string("plain_") + tag + "_us"] = plain_us;
    state.counters[std::string("timed_") + tag + "_us"] = PercentileUs(timed_ns, share);
    state.counters[std::string("ratio_") + tag] = vyn_us / plain_us;
  }
}
// Argument: rounds of 10 sends per queue.
BENCHMARK(BM_DeliveryAsApplicationSends)->Arg(1000)->Iterations(1)->UseRealTime();

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
