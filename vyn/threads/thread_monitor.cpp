#include "vyn/threads/thread_monitor.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "vyn/core/internal/log_output.h"
#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/core/synchronize.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/crash.h"
#include "vyn/platform/system_time.h"
#include "vyn/threads/internal/thread_monitor_testing.h"

namespace {

constexpr int64_t kHangThreshold100ns = 3000000000;  // 300 s
constexpr uint32_t kCheckPeriodMs = 500;
constexpr uint32_t kPauseBeforeEndMs = 1;

std::atomic<int64_t> g_hang_threshold{kHangThreshold100ns};
std::atomic<uint32_t> g_check_period{kCheckPeriodMs};
std::atomic<int64_t> g_fixed_now{0};  // 0: the real clock

int64_t WatchdogNow() {
  const int64_t fixed = g_fixed_now.load();
  return fixed != 0 ? fixed : vyn::platform::GetSystemTimeAsFileTime();
}

int32_t MonitorThreadFunction(void* /*parameter*/) {
  return GetVYNThreadMonitor().RunMonitorThread();
}

}  // namespace

namespace vyn::seams {

void SetThreadMonitorTiming(int64_t hang_threshold_100ns, uint32_t check_period_ms) {
  g_hang_threshold = hang_threshold_100ns;
  g_check_period = check_period_ms;
}

void ResetThreadMonitorTiming() { SetThreadMonitorTiming(kHangThreshold100ns, kCheckPeriodMs); }

void SetThreadMonitorClock(int64_t now_100ns) { g_fixed_now = now_100ns; }

}  // namespace vyn::seams

CVYNThreadMonitor::CVYNThreadMonitor() = default;

CVYNThreadMonitor::~CVYNThreadMonitor() {
  {
    vyn::ScopedLock guard(&lock_);
    for (CVYNMonitoredThread* object : objects_) object->registered_ = false;
    objects_.clear();
  }
  // monitor_thread_ goes next (members in reverse order) and stops the
  // watchdog if it still runs, while the lock still exists.
}

void CVYNThreadMonitor::RegisterObject(CVYNMonitoredThread* object) {
  vyn::ScopedLock guard(&lock_);
  objects_.push_back(object);
}

void CVYNThreadMonitor::UnregisterObject(CVYNMonitoredThread* object) {
  vyn::ScopedLock guard(&lock_);
  const auto found = std::find(objects_.begin(), objects_.end(), object);
  if (found != objects_.end()) objects_.erase(found);
}

int32_t CVYNThreadMonitor::GetNextID() {
  return sequence_counter_.fetch_add(1, std::memory_order_relaxed);
}

bool CVYNThreadMonitor::IsObjectTimeout() { return timeout_.load(std::memory_order_relaxed); }

int32_t CVYNThreadMonitor::Initialize() {
  if (monitor_thread_.IsRunning()) return VYN_STATUS_BUSY;
  monitor_thread_.SetThreadName("VYN Thread Monitor");
  const int32_t status =
      monitor_thread_.CreateThread(&MonitorThreadFunction, nullptr, nullptr, 0, 0, false);
  if (status == VYN_STATUS_SUCCESS) {
    AddOutput(GetVYNLanguage().GetString(VYN_MODULE_THREAD_MONITOR, 1), VYN_EVENT_INFORMATION);
  } else {
    AddOutput(GetVYNLanguage().GetString(VYN_MODULE_THREAD_MONITOR, 2), VYN_EVENT_ERROR);
  }
  return status;
}

int32_t CVYNThreadMonitor::Terminate() {
  monitor_thread_.DestroyThread(true);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThreadMonitor::RunMonitorThread() {
  if (!monitor_thread_.IsRunning()) return VYN_STATUS_NOT_INITIALIZED;
  monitor_thread_.SignalStart();
  while (monitor_thread_.IsRunning()) {
    monitor_thread_.UpdateStatus();
    CheckObjects();
    monitor_thread_.Sleep(g_check_period.load());
  }
  return VYN_STATUS_SUCCESS;
}

void CVYNThreadMonitor::CheckObjects() {
  vyn::ScopedLock guard(&lock_);
  if (timeout_) return;
  const int64_t now = WatchdogNow();
  const int64_t threshold = g_hang_threshold.load();
  bool hung = false;
  for (CVYNMonitoredThread* object : objects_) {
    const int64_t last = object->GetLastTimestamp();
    // A heartbeat from the future (the clock was set back) is in order.
    if (now - last <= threshold) continue;
    std::string name;
    if (object->GetThreadName(name) != VYN_STATUS_SUCCESS) name.clear();
    const uint32_t id = object->GetThreadID();
    int64_t local = last;
    SYSTEMTIME at{};
    vyn::platform::FileTimeToLocalFileTime(last, &local);
    vyn::platform::FileTimeToSystemTime(local, &at);
    std::vector<char> text(name.size() + 160);
    std::snprintf(text.data(), text.size(),
                  "CheckObjects(); a thread has stopped to respond; thread name; %s; thread ID; "
                  "%d; last response; %04i-%02i-%02i; %02i:%02i:%02i",
                  name.c_str(), static_cast<int>(id), at.wYear, at.wMonth, at.wDay, at.wHour,
                  at.wMinute, at.wSecond);
    AddOutput(text.data(), VYN_EVENT_FATAL);
    hung = true;
  }
  if (!hung) return;
  timeout_ = true;
  AddOutput(GetVYNLanguage().GetString(VYN_MODULE_THREAD_MONITOR, 3), VYN_EVENT_FATAL);
  vyn::platform::SleepMilliseconds(kPauseBeforeEndMs);
  if (vyn::platform::AreCrashHandlersInstalled()) {
    vyn::platform::RaiseEndOfProcess(VYN_END_OF_PROCESS_HUNG_THREAD);
  }
}

std::vector<std::string> CVYNThreadMonitor::GetRegisteredThreadNames() {
  vyn::ScopedLock guard(&lock_);
  std::vector<std::string> names;
  for (CVYNMonitoredThread* object : objects_) {
    std::string name;
    object->GetThreadName(name);
    names.push_back(name);
  }
  return names;
}

int32_t CVYNThreadMonitor::AddOutput(std::string text, _VYNSystemLogExEventType type) {
  return vyn::LogAddOutput(text, type, "", "CVYNThreadMonitor", "");
}
