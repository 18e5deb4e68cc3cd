// What the waits' tests share: the time a call takes, a bound for it that a
// loaded machine keeps, and a storm of signals.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace vyn::test {

using std::chrono::milliseconds;

// Far below the ten seconds a storm lasts.
constexpr milliseconds Late(int ms) { return milliseconds(ms + 2500); }

template <typename Call>
milliseconds Timed(Call call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
}

inline std::atomic<int> signals_delivered{0};

// SIGUSR1 at the creating thread every 2 ms for at most 10 s, handled without
// SA_RESTART: its blocking calls return early and must carry on by
// themselves; one that wrongly starts over shows as late, never as a hang.
// The handler stays, so that a signal still in flight ends nothing.
class SignalStorm {
 public:
  SignalStorm() {
    struct sigaction action {};
    action.sa_handler = [](int) { signals_delivered.fetch_add(1, std::memory_order_relaxed); };
    sigaction(SIGUSR1, &action, nullptr);
    sender_ = std::thread([this, target = pthread_self()] {
      for (int i = 0; i < 5000 && !stop_; ++i) {
        pthread_kill(target, SIGUSR1);
        std::this_thread::sleep_for(milliseconds(2));
      }
    });
  }
  ~SignalStorm() {
    stop_ = true;
    sender_.join();  // returns through the kernel: the signals sent have arrived
  }

 private:
  std::atomic<bool> stop_{false};
  std::thread sender_;
};

}  // namespace vyn::test
