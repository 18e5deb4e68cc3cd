// Interrupts the thread that creates it with SIGUSR1 every two milliseconds,
// through a handler installed without SA_RESTART: every blocking call that
// thread makes meanwhile returns early (EINTR, or a short count) and has to
// carry on by itself.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace vyn::test {

// Signals handled so far (constant-initialised: the handler may touch it
// before anything else has).
inline std::atomic<int> signals_delivered{0};

class SignalStorm {
 public:
  SignalStorm() {
    struct sigaction action {};
    action.sa_handler = [](int) { signals_delivered.fetch_add(1, std::memory_order_relaxed); };
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    // The handler stays installed afterwards: a signal still in flight when
    // the storm ends must not end the test program.
    sigaction(SIGUSR1, &action, nullptr);
    sender_ = std::thread([this, target = pthread_self()] {
      // A wait that wrongly starts over on every signal ends with the storm,
      // so such a fault shows as a late return, never as a hang.
      const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
      while (!stop_ && std::chrono::steady_clock::now() < limit) {
        pthread_kill(target, SIGUSR1);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
    });
  }
  // Ends the storm; the signals sent to this thread have arrived once the
  // sender is joined, since the join itself returns through the kernel.
  ~SignalStorm() {
    stop_ = true;
    sender_.join();
  }
  SignalStorm(const SignalStorm&) = delete;
  SignalStorm& operator=(const SignalStorm&) = delete;

 private:
  std::atomic<bool> stop_{false};
  std::thread sender_;
};

}  // namespace vyn::test
