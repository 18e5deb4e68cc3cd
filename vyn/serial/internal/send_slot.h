// SendSlot: the serial port's one-frame send slot, shared by any number of
// sending threads and the receiving thread that writes the frames, together
// with the state of the line that decides whether a frame is accepted.
//
// A frame is accepted only while the line is up and the slot is free; a
// sender waits for the slot at most as long as it asks for. Accepting runs
// `prepare` on the sender's frame (the command set fills in the sequence
// number and checksums there) and copies it into the slot in one step under
// the slot's mutex, so every accepted frame is in the slot exactly once and
// the sequence numbers go out in the order of the frames.
//
// The receiving thread copies the waiting frame out (Peek), writes it and
// then frees the slot (Complete). A frame stays waiting until then: a state
// change away from kUp (the line went down, the port was closed, the thread
// stopped) drops it instead, and tells the caller so that the loss is
// counted and logged. A dropped frame is never written later.
//
// Ownership: the slot owns its copy of the frame; frames passed in belong to
// the caller.
// Thread-safety: Offer and WaitUntilEmpty from any thread; Peek, Complete
// and SetState from the receiving thread (and from the port's start and stop
// operations while no receiving thread runs).
// Lock order: the slot's mutex is a leaf except for `prepare`, which runs
// under it and takes the command set's sequence lock. Nothing else is called
// while the mutex is held.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>

#include "vyn/base/mutex.h"
#include "vyn/base/thread_annotations.h"

namespace vyn::serial {

enum class LinkState {
  kStopped,  // no receiving thread: SendCommand answers VYN_STATUS_BUSY
  kUp,       // the port is open: frames are accepted
  kDown,     // the port is closed or gone: VYN_STATUS_NO_CONNECTION
};

class SendSlot {
 public:
  static constexpr uint32_t kSize = 512;
  using Prepare = void (*)(unsigned char* frame);

  SendSlot() = default;
  SendSlot(const SendSlot&) = delete;
  SendSlot& operator=(const SendSlot&) = delete;

  // Waits up to `patience_ms` for a free slot while the line is up, then
  // prepares and takes the frame (`length` 1 to kSize): VYN_STATUS_SUCCESS,
  // VYN_STATUS_BUSY (slot still taken, or kStopped) or
  // VYN_STATUS_NO_CONNECTION (kDown). Refused frames are not prepared.
  int32_t Offer(unsigned char* frame, uint32_t length, uint32_t patience_ms, Prepare prepare)
      VYN_EXCLUDES(mutex_);
  // VYN_STATUS_SUCCESS as soon as no frame waits, VYN_STATUS_TIMEOUT when
  // `milliseconds` ran out (at once for 0).
  int32_t WaitUntilEmpty(uint32_t milliseconds) VYN_EXCLUDES(mutex_);

  // The waiting frame copied to `out` (kSize bytes); its length, 0 for none.
  uint32_t Peek(unsigned char* out) VYN_EXCLUDES(mutex_);
  // The frame Peek gave has been written (or its write failed): free the slot.
  void Complete() VYN_EXCLUDES(mutex_);
  // Moves the line to `state`. Leaving kUp drops a waiting frame: its length
  // is returned (0 when none was dropped).
  uint32_t SetState(LinkState state) VYN_EXCLUDES(mutex_);
  LinkState GetState() VYN_EXCLUDES(mutex_);

 private:
  using Clock = std::chrono::steady_clock;
  // Waits for a change until `deadline`; the mutex is held again on return.
  void WaitForChange(Clock::time_point deadline) VYN_REQUIRES(mutex_);

  vyn::Mutex mutex_;
  std::condition_variable changed_;
  LinkState state_ VYN_GUARDED_BY(mutex_) = LinkState::kStopped;
  uint32_t length_ VYN_GUARDED_BY(mutex_) = 0;
  unsigned char frame_[kSize] VYN_GUARDED_BY(mutex_) = {};
};

}  // namespace vyn::serial
