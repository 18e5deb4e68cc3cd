// CVYNThreadMonitor: the registry of monitored threads and the watchdog that
// supervises them.
//
// Registry: every CVYNMonitoredThread takes its sequence number from GetNextID
// when it is constructed (which is why the monitor is built before every other
// service that owns a thread) and is in the list while its thread runs.
//
// Watchdog: the thread "VYN Thread Monitor" checks every 500 ms; a heartbeat
// more than 300 s old is a hang. Each hung thread is logged as fatal, then the
// timeout flag is set, which freezes every monitored thread at its next
// heartbeat, and, when crash handlers are installed, the process is ended
// through the crash path (vyn/platform/crash.h).
//
// Ownership: the list holds pointers it does not own.
// Thread-safety: the monitor's lock guards the list; it is taken before any
// thread object's own lock (CheckObjects and GetRegisteredThreadNames read
// names and ids under it), never after. A thread object holds its own lock
// only for a few instructions and never while it waits, so a thread that
// unregisters on its way out (monitor lock) never waits behind its owner.
// CheckObjects holds the monitor's lock for the whole check, its log entries
// included: logging only queues the entry under the log's leaf lock. The
// timeout flag and the counter are atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/core/log_event_type.h"
#include "vyn/threads/monitored_thread.h"

class VYN_EXPORT CVYNThreadMonitor {
 public:
  CVYNThreadMonitor();
  ~CVYNThreadMonitor();
  CVYNThreadMonitor(const CVYNThreadMonitor&) = delete;
  CVYNThreadMonitor& operator=(const CVYNThreadMonitor&) = delete;

  // Appends the pointer (no check for duplicates).
  void RegisterObject(CVYNMonitoredThread* object);
  // Removes the first occurrence; an unknown pointer changes nothing.
  void UnregisterObject(CVYNMonitoredThread* object);
  // The counter's value, which is then incremented.
  int32_t GetNextID();
  // True once a hung thread has been detected; never cleared.
  bool IsObjectTimeout();

  // Starts the watchdog thread; VYN_STATUS_BUSY while it runs.
  int32_t Initialize();
  // Stops the watchdog thread and waits for it.
  int32_t Terminate();
  // The body of the watchdog thread.
  int32_t RunMonitorThread();
  // One check of every registered thread.
  void CheckObjects();

  // The names of the registered threads, in registration order (for
  // programs that show what runs).
  std::vector<std::string> GetRegisteredThreadNames();

 private:
  int32_t AddOutput(std::string text, _VYNSystemLogExEventType type);

  CRITICAL_SECTION lock_;
  std::vector<CVYNMonitoredThread*> objects_ VYN_GUARDED_BY(lock_);
  std::atomic<bool> timeout_{false};
  std::atomic<int32_t> sequence_counter_{0};
  // Declared after the counter: constructing it already takes a number.
  CVYNMonitoredThread monitor_thread_;
};

// The process's one CVYNThreadMonitor, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNThreadMonitor& GetVYNThreadMonitor();
