// A wake-up signal that a thread waiting in WaitForDescriptor (descriptor_io.h)
// sees together with its device: another thread calls Signal() to cut the
// wait short, for example because a frame waits to be written or the thread
// is asked to stop. Signals do not count: several Signal() calls before the
// waiter looks are seen as one.
//
// Ownership: the object owns its descriptor and closes it; not copyable.
// Thread-safety: Signal() may be called from any thread, also while another
// thread waits; Clear() belongs to the waiting thread.
#pragma once

namespace vyn::platform {

class WakeUpEvent {
 public:
  WakeUpEvent();
  ~WakeUpEvent();
  WakeUpEvent(const WakeUpEvent&) = delete;
  WakeUpEvent& operator=(const WakeUpEvent&) = delete;

  // False when the system refused a descriptor; Signal and Clear then do
  // nothing and a wait never sees a wake-up.
  bool IsValid() const { return descriptor_ >= 0; }
  void Signal();
  // Takes back a signal that has been seen, so that the next wait blocks again.
  void Clear();
  // For WaitForDescriptor; -1 when invalid.
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace vyn::platform
