#include "vyn/core/stop_watch.h"

#include <mutex>

#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/status.h"
#include "vyn/core/synchronize.h"
#include "vyn/platform/clock.h"

using vyn::platform::QueryPerformanceCounter;

CVYNStopWatch::CVYNStopWatch() {
  if (!vyn::platform::QueryPerformanceFrequency(&frequency_)) frequency_ = 0;
  frequency_as_double_ = static_cast<double>(frequency_);
  ResetLocked();
}

CVYNStopWatch::~CVYNStopWatch() = default;

// Two locks at once, which the analysis cannot follow through scoped_lock.
CVYNStopWatch& CVYNStopWatch::operator=(const CVYNStopWatch& other) VYN_NO_THREAD_SAFETY_ANALYSIS {
  if (this == &other) return *this;
  // Both locks at once, in an order that cannot deadlock against a
  // simultaneous assignment the other way round.
  std::scoped_lock both(lock_.mutex, const_cast<CRITICAL_SECTION&>(other.lock_).mutex);
  frequency_ = other.frequency_;
  frequency_as_double_ = other.frequency_as_double_;
  start_count_ = other.start_count_;
  stop_count_ = other.stop_count_;
  elapsed_count_ = other.elapsed_count_;
  running_ = other.running_;
  return *this;
}

int32_t CVYNStopWatch::ResetLocked() {
  start_count_ = 0;
  stop_count_ = 0;
  elapsed_count_ = 0;
  running_ = false;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNStopWatch::Reset() {
  vyn::ScopedLock guard(&lock_);
  return ResetLocked();
}

int32_t CVYNStopWatch::Start() {
  vyn::ScopedLock guard(&lock_);
  ResetLocked();
  if (frequency_ == 0) return VYN_STATUS_OPERATION_BROKEN;
  if (!QueryPerformanceCounter(&start_count_)) {
    start_count_ = 0;
    return VYN_STATUS_OPERATION_BROKEN;
  }
  running_ = true;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNStopWatch::Stop() {
  vyn::ScopedLock guard(&lock_);
  if (!running_) return VYN_STATUS_INVALID_OPERATION;
  running_ = false;
  if (frequency_ == 0) return VYN_STATUS_OPERATION_BROKEN;
  if (!QueryPerformanceCounter(&stop_count_)) {
    stop_count_ = 0;
    return VYN_STATUS_OPERATION_BROKEN;
  }
  elapsed_count_ += stop_count_ - start_count_;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNStopWatch::Continue() {
  vyn::ScopedLock guard(&lock_);
  if (frequency_ == 0) return VYN_STATUS_OPERATION_BROKEN;
  if (running_) return VYN_STATUS_INVALID_OPERATION;
  stop_count_ = 0;
  if (!QueryPerformanceCounter(&start_count_)) {
    start_count_ = 0;
    return VYN_STATUS_OPERATION_BROKEN;
  }
  running_ = true;
  return VYN_STATUS_SUCCESS;
}

bool CVYNStopWatch::ElapsedCounts(int64_t* counts) {
  *counts = elapsed_count_;
  if (!running_) return true;
  int64_t now = 0;
  if (!QueryPerformanceCounter(&now)) return false;
  *counts += now - start_count_;
  return true;
}

double CVYNStopWatch::GetAsSeconds() {
  vyn::ScopedLock guard(&lock_);
  int64_t counts = 0;
  if (frequency_ == 0 || !ElapsedCounts(&counts)) return 0.0;
  return static_cast<double>(counts) / frequency_as_double_;
}

double CVYNStopWatch::GetAsMilliSeconds() {
  vyn::ScopedLock guard(&lock_);
  int64_t counts = 0;
  if (frequency_ == 0 || !ElapsedCounts(&counts)) return 0.0;
  return static_cast<double>(counts) * 1000.0 / frequency_as_double_;
}

double CVYNStopWatch::GetAsMicroSeconds() {
  vyn::ScopedLock guard(&lock_);
  int64_t counts = 0;
  if (frequency_ == 0 || !ElapsedCounts(&counts)) return 0.0;
  return static_cast<double>(counts) * 1000000.0 / frequency_as_double_;
}
