#include "vyn/serial/internal/port_requests.h"

#include <chrono>
#include <mutex>

namespace vyn::serial {

void PortRequests::Attach() {
  vyn::MutexLock lock(&mutex_);
  attached_ = true;
  request_ = PortRequest::kNone;
}

bool PortRequests::Attached() {
  vyn::MutexLock lock(&mutex_);
  return attached_;
}

RequestOutcome PortRequests::Submit(PortRequest request, uint32_t limit_ms,
                                    vyn::platform::WakeUpEvent* wake, int32_t* answer) {
  {
    vyn::MutexLock lock(&mutex_);
    if (!attached_) return RequestOutcome::kNoThread;
    request_ = request;
    taken_ = false;
    answered_ = false;
  }
  if (wake != nullptr) wake->Signal();
  vyn::MutexLock lock(&mutex_);
  // The condition variable waits on the standard mutex underneath; the
  // scoped lock keeps owning it.
  std::unique_lock<std::mutex> native(mutex_.native(), std::adopt_lock);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
  RequestOutcome outcome = RequestOutcome::kAnswered;
  for (;;) {
    if (answered_) {
      *answer = answer_;
      break;
    }
    if (!attached_) {
      outcome = RequestOutcome::kNoThread;
      break;
    }
    if (taken_) {
      changed_.wait(native);
    } else if (changed_.wait_until(native, deadline) == std::cv_status::timeout && !taken_ &&
               !answered_ && attached_) {
      request_ = PortRequest::kNone;
      outcome = RequestOutcome::kTimedOut;
      break;
    }
  }
  native.release();
  return outcome;
}

PortRequest PortRequests::Take() {
  vyn::MutexLock lock(&mutex_);
  const PortRequest request = request_;
  if (request != PortRequest::kNone) {
    request_ = PortRequest::kNone;
    taken_ = true;
  }
  return request;
}

void PortRequests::Answer(int32_t answer) {
  {
    vyn::MutexLock lock(&mutex_);
    answer_ = answer;
    answered_ = true;
    taken_ = false;
  }
  changed_.notify_all();
}

void PortRequests::Detach() {
  {
    vyn::MutexLock lock(&mutex_);
    attached_ = false;
    request_ = PortRequest::kNone;
    taken_ = false;
  }
  changed_.notify_all();
}

}  // namespace vyn::serial
