#include "vyn/threads/thread_monitor.h"

CVYNThreadMonitor::CVYNThreadMonitor() = default;

CVYNThreadMonitor::~CVYNThreadMonitor() = default;

int32_t CVYNThreadMonitor::GetNextID() {
  return sequence_counter_.fetch_add(1, std::memory_order_relaxed);
}

bool CVYNThreadMonitor::IsObjectTimeout() { return timeout_.load(std::memory_order_relaxed); }
