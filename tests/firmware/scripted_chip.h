// The chip's side of a pseudo-terminal for the bootloader client's tests: a
// thread on the master that answers by script (after so many more bytes
// have arrived, send these) and records everything the client sent. It
// knows nothing of the protocol, so the tests spell out every byte.
#pragma once

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/pseudo_terminal.h"

namespace vyn::test {

using ByteString = std::vector<unsigned char>;

struct ChipStep {
  size_t after = 0;      // bytes the client sends first (counted from the step before)
  ByteString reply;      // then sent back at once
  bool hang_up = false;  // instead of replying, close the terminal
};

class ScriptedChip {
 public:
  ScriptedChip() {
    opened_ = terminal_.Open();
    path_ = terminal_.slave_path();
  }
  ~ScriptedChip() { Stop(); }
  ScriptedChip(const ScriptedChip&) = delete;
  ScriptedChip& operator=(const ScriptedChip&) = delete;

  bool opened() const { return opened_; }
  const std::string& path() const { return path_; }

  // Starts answering; call once.
  void Run(std::vector<ChipStep> steps) {
    thread_ = std::thread([this, steps = std::move(steps)] { Serve(steps); });
  }
  // Sends bytes now, outside the script.
  void Send(const ByteString& bytes) { Write(bytes); }
  // Stops the thread; everything received is then in received().
  void Stop() {
    stop_.store(true);
    if (thread_.joinable()) thread_.join();
  }
  ByteString received() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
  }

 private:
  void Write(const ByteString& bytes) {
    size_t done = 0;
    while (done < bytes.size()) {
      const ssize_t put =
          write(terminal_.master_descriptor(), bytes.data() + done, bytes.size() - done);
      if (put > 0) {
        done += static_cast<size_t>(put);
      } else {
        pollfd out{terminal_.master_descriptor(), POLLOUT, 0};
        if (poll(&out, 1, 1000) <= 0) return;
      }
    }
  }

  void Serve(const std::vector<ChipStep>& steps) {
    size_t step = 0;
    size_t since_step = 0;
    while (!stop_.load()) {
      while (step < steps.size() && since_step >= steps[step].after) {
        since_step -= steps[step].after;
        if (steps[step].hang_up) {
          terminal_.Close();
          return;
        }
        Write(steps[step++].reply);
      }
      pollfd in{terminal_.master_descriptor(), POLLIN, 0};
      if (poll(&in, 1, 5) <= 0) continue;
      if ((in.revents & POLLIN) == 0) {
        // No client on the slave yet: the master reports a hang-up.
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
        continue;
      }
      unsigned char buffer[512];
      const ssize_t got = read(terminal_.master_descriptor(), buffer, sizeof buffer);
      if (got <= 0) continue;
      std::lock_guard<std::mutex> lock(mutex_);
      received_.insert(received_.end(), buffer, buffer + got);
      since_step += static_cast<size_t>(got);
    }
  }

  support::PseudoTerminal terminal_;
  bool opened_ = false;
  std::string path_;
  std::thread thread_;
  std::atomic<bool> stop_{false};
  mutable std::mutex mutex_;
  ByteString received_;
};

}  // namespace vyn::test
