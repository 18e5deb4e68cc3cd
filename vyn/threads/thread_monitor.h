// CVYNThreadMonitor: the registry of monitored threads and its watchdog.
// Every monitored thread object takes its sequence number from GetNextID when
// it is constructed, which is why the monitor is built before every other
// service that owns a thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "vyn/core/export.h"

class VYN_EXPORT CVYNThreadMonitor {
 public:
  CVYNThreadMonitor();
  ~CVYNThreadMonitor();
  CVYNThreadMonitor(const CVYNThreadMonitor&) = delete;
  CVYNThreadMonitor& operator=(const CVYNThreadMonitor&) = delete;

  // The counter's value, which is then incremented.
  int32_t GetNextID();
  // True once a hung thread has been detected; never cleared.
  bool IsObjectTimeout();

 private:
  std::atomic<bool> timeout_{false};
  std::atomic<int32_t> sequence_counter_{0};
};

VYN_EXPORT CVYNThreadMonitor& GetVYNThreadMonitor();
