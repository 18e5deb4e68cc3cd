// PortRequests: how the application's threads hand the opening and closing
// of the serial port to the receiving thread, which owns the device while it
// runs, and wait for the answer. Nobody else touches a device that a thread
// may be waiting on or reading from.
//
// The receiving thread is attached from just before it starts until it is
// done with the device (Detach, the last thing it does with it). While it
// is attached, Submit leaves the request for it, wakes it and waits for its
// answer. Otherwise Submit answers kNoThread at once, and the caller, which
// holds the port's lifecycle lock, works on the device itself: the thread
// has let go of it, and taking this object's mutex orders the caller's use
// after the thread's last one.
//
// A request that the thread has not taken within the caller's limit (the
// thread is frozen after a hang, say) is withdrawn: kTimedOut. One that it
// has taken is always answered, because carrying one out never waits.
//
// Ownership: holds only the request and its answer.
// Thread-safety: Attach, Submit and Attached from the owner's threads (one
// at a time, under the port's lifecycle lock); Take, Answer and Detach from
// the receiving thread.
// Lock order: the mutex is a leaf; the wake-up is signalled after giving it
// back.
#pragma once

#include <condition_variable>
#include <cstdint>

#include "vyn/base/mutex.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/platform/wake_up_event.h"

namespace vyn::serial {

enum class PortRequest {
  kNone,
  kOpenQuietly,    // OpenSerialPort(false)
  kOpenReporting,  // OpenSerialPort(true)
  kClose,          // CloseSerialPort
};

enum class RequestOutcome {
  kAnswered,  // the thread carried it out; the answer is set
  kNoThread,  // no thread owns the device: the caller carries it out
  kTimedOut,  // the thread did not take it in time; it is withdrawn
};

class PortRequests {
 public:
  PortRequests() = default;
  PortRequests(const PortRequests&) = delete;
  PortRequests& operator=(const PortRequests&) = delete;

  void Attach() VYN_EXCLUDES(mutex_);
  bool Attached() VYN_EXCLUDES(mutex_);
  RequestOutcome Submit(PortRequest request, uint32_t limit_ms, vyn::platform::WakeUpEvent* wake,
                        int32_t* answer) VYN_EXCLUDES(mutex_);

  // The request waiting for the thread (kNone for none); it is the thread's
  // to answer from now on.
  PortRequest Take() VYN_EXCLUDES(mutex_);
  void Answer(int32_t answer) VYN_EXCLUDES(mutex_);
  void Detach() VYN_EXCLUDES(mutex_);

 private:
  vyn::Mutex mutex_;
  std::condition_variable changed_;
  bool attached_ VYN_GUARDED_BY(mutex_) = false;
  PortRequest request_ VYN_GUARDED_BY(mutex_) = PortRequest::kNone;
  bool taken_ VYN_GUARDED_BY(mutex_) = false;
  bool answered_ VYN_GUARDED_BY(mutex_) = false;
  int32_t answer_ VYN_GUARDED_BY(mutex_) = 0;
};

}  // namespace vyn::serial
