// CVYNMonitoredThread: a thread that the thread monitor supervises. It is in
// the monitor's list from the start of its thread until its function has
// returned, and its function stamps a heartbeat (UpdateStatus) once per round
// of its loop; a round must last less than the monitor's hang threshold.
//
// Once the monitor has found a hung thread, every monitored thread freezes in
// its next heartbeat: it waits on its stop event 100 ms at a time and does not
// return, so that nothing changes while the process is being ended. The one
// way out is a stop request (DestroyThread) for the object's own thread: that
// thread then returns, so that its owner's stop does not wait for ever. Any
// other thread that stamps heartbeats through the object stays frozen.
//
// Ownership: the monitor keeps a pointer, not ownership; the destructor stops
// the thread first and then leaves the monitor's list.
// Thread-safety: the heartbeat is one atomic 64-bit value, written by the
// thread and read by the watchdog without a lock. Registration takes the
// monitor's lock; the thread object's own lock is never held across a wait,
// so the thread can register and unregister while its owner waits for it.
// Lock order: the monitor's lock before the thread object's own lock.
#pragma once

#include <atomic>
#include <cstdint>

#include "vyn/base/export.h"
#include "vyn/threads/thread.h"

class VYN_EXPORT CVYNMonitoredThread : public CVYNThread {
 public:
  // Takes the next sequence number of the thread monitor.
  CVYNMonitoredThread();
  virtual ~CVYNMonitoredThread();

  // Heartbeat: stamps the current UTC time in 100 ns units since 1601,
  // registers a thread that is not yet registered, and freezes the caller
  // while the monitor's timeout flag is set.
  void UpdateStatus();
  // The last heartbeat, in the units of UpdateStatus; 0 before the first.
  // Read without a lock, from any thread.
  int64_t GetLastTimestamp();
  // Takes the object off the monitor's list, so that it is no longer
  // watched; the next heartbeat registers it again.
  void Unregister();
  // The number the monitor handed out when this object was made: each
  // monitored thread object of the process gets the next one.
  int32_t GetSequenceNumber() const { return sequence_number_; }

 protected:
  // Registers with the monitor (with a first heartbeat) as the thread starts.
  int32_t PreProcessThread() override;
  // Leaves the monitor's list once the thread function has returned.
  int32_t PostProcessThread() override;

 private:
  friend class CVYNThreadMonitor;

  void Register();
  void Stamp();
  void Freeze();

  int32_t sequence_number_;
  std::atomic<bool> registered_{false};
  std::atomic<int64_t> last_heartbeat_{0};
};
