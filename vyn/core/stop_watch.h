// CVYNStopWatch: elapsed time over one or more running periods, read from the
// high-resolution counter in seconds, milliseconds or microseconds.
//
// Ownership: owns its lock.
// Thread-safety: every operation takes the instance's lock, so one thread may
// start the watch and another read it.
#pragma once

#include <cstdint>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"

class VYN_EXPORT CVYNStopWatch {
 public:
  CVYNStopWatch();
  ~CVYNStopWatch();
  // Copies the measurement (counts, frequency, running flag); each watch
  // keeps its own lock.
  CVYNStopWatch& operator=(const CVYNStopWatch& other);
  CVYNStopWatch(const CVYNStopWatch&) = delete;

  // Stops the watch and sets the elapsed time to zero; 0.
  int32_t Reset();
  // Resets, then opens a running period.
  int32_t Start();
  // Closes the running period and adds it to the elapsed time;
  // VYN_STATUS_INVALID_OPERATION when not running.
  int32_t Stop();
  // Opens a new running period without resetting;
  // VYN_STATUS_INVALID_OPERATION when already running.
  int32_t Continue();
  // Elapsed time, including the open period of a running watch; 0.0 without
  // a high-resolution counter.
  double GetAsSeconds();
  // GetAsSeconds in milliseconds.
  double GetAsMilliSeconds();
  // GetAsSeconds in microseconds.
  double GetAsMicroSeconds();

 private:
  // Elapsed counts including an open period; false when the counter fails.
  bool ElapsedCounts(int64_t* counts) VYN_REQUIRES(lock_);
  int32_t ResetLocked() VYN_REQUIRES(lock_);

  CRITICAL_SECTION lock_;
  int64_t frequency_ VYN_GUARDED_BY(lock_) = 0;
  double frequency_as_double_ VYN_GUARDED_BY(lock_) = 0.0;
  int64_t start_count_ VYN_GUARDED_BY(lock_) = 0;
  int64_t stop_count_ VYN_GUARDED_BY(lock_) = 0;
  int64_t elapsed_count_ VYN_GUARDED_BY(lock_) = 0;
  bool running_ VYN_GUARDED_BY(lock_) = false;
};
