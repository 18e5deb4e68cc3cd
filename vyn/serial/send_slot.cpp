#include "vyn/serial/internal/send_slot.h"

#include <cstring>
#include <mutex>

#include "vyn/core/status.h"

namespace vyn::serial {

void SendSlot::WaitForChange(Clock::time_point deadline) {
  // The condition variable waits on the standard mutex underneath; the
  // scoped lock of the caller keeps owning it.
  std::unique_lock<std::mutex> native(mutex_.native(), std::adopt_lock);
  changed_.wait_until(native, deadline);
  native.release();
}

int32_t SendSlot::Offer(unsigned char* frame, uint32_t length, uint32_t patience_ms,
                        Prepare prepare) {
  if (frame == nullptr || length == 0 || length > kSize) return VYN_STATUS_INVALID_PARAMETER;
  vyn::MutexLock lock(&mutex_);
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(patience_ms);
  while (state_ == LinkState::kUp && length_ != 0 && Clock::now() < deadline) {
    WaitForChange(deadline);
  }
  if (state_ == LinkState::kDown) return VYN_STATUS_NO_CONNECTION;
  if (state_ == LinkState::kStopped || length_ != 0) return VYN_STATUS_BUSY;
  if (prepare != nullptr) prepare(frame);
  std::memcpy(frame_, frame, length);
  length_ = length;
  return VYN_STATUS_SUCCESS;
}

int32_t SendSlot::WaitUntilEmpty(uint32_t milliseconds) {
  vyn::MutexLock lock(&mutex_);
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  while (Clock::now() < deadline) {
    if (length_ == 0) return VYN_STATUS_SUCCESS;
    WaitForChange(deadline);
  }
  return VYN_STATUS_TIMEOUT;
}

uint32_t SendSlot::Peek(unsigned char* out) {
  vyn::MutexLock lock(&mutex_);
  if (length_ != 0) std::memcpy(out, frame_, length_);
  return length_;
}

void SendSlot::Complete() {
  {
    vyn::MutexLock lock(&mutex_);
    length_ = 0;
  }
  changed_.notify_all();
}

uint32_t SendSlot::SetState(LinkState state) {
  uint32_t dropped = 0;
  {
    vyn::MutexLock lock(&mutex_);
    state_ = state;
    if (state != LinkState::kUp) {
      dropped = length_;
      length_ = 0;
    }
  }
  changed_.notify_all();
  return dropped;
}

LinkState SendSlot::GetState() {
  vyn::MutexLock lock(&mutex_);
  return state_;
}

}  // namespace vyn::serial
