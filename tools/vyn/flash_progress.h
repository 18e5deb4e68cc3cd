// What `vyn firmware flash` shows while it runs: the system log's lines as
// they come, and the progress of the programming fed by the library's
// progress messages. On a terminal the progress is a bar redrawn in place
// (percentage, bytes, rate, time left) below the log lines; elsewhere it is
// a plain line every ten percent.
//
// Thread-safety: every method may be called from any thread (the log's
// output thread, the progress queue's dispatch thread, the main thread); one
// lock keeps lines whole and the bar below them, and nothing else is called
// while it is held but the writes to standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "vyn/queue/message_queue.h"

namespace vyn::tool {

class FlashConsole {
 public:
  // `image_size` 0: unknown, the bar shows the percentage alone.
  FlashConsole(bool terminal, uint32_t image_size);

  // A line of the log (Windows-1252, shown as UTF-8) or of the program.
  void ShowLine(const std::string& line);
  void ShowProgress(unsigned percentage);
  // Ends the bar's line; later lines start on a fresh one.
  void Finish();
  unsigned last_percentage() const;
  // Seconds since anything was shown.
  double QuietSeconds() const;

 private:
  using Clock = std::chrono::steady_clock;

  std::string ProgressText(unsigned percentage) const;
  void DrawBar() const;

  const bool terminal_;
  const uint32_t image_size_;
  mutable std::mutex mutex_;
  bool bar_shown_ = false;
  unsigned percentage_ = 0;
  unsigned next_plain_line_ = 10;
  // The first progress message starts the clock of the rate.
  bool started_ = false;
  Clock::time_point first_time_;
  unsigned first_percentage_ = 0;
  Clock::time_point last_time_;
  Clock::time_point last_shown_ = Clock::now();
};

// A receiver queue that hands the progress messages to a console.
class ProgressReceiver : public CVYNMessageQueue {
 public:
  explicit ProgressReceiver(FlashConsole* console) : console_(console) {}

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override;

 private:
  FlashConsole* console_;  // not owned; outlives the queue's dispatch thread
};

}  // namespace vyn::tool
