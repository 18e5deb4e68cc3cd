#include "vyn/threads/monitored_thread.h"

#include "vyn/core/status.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/system_time.h"
#include "vyn/threads/thread_monitor.h"

namespace {
constexpr uint32_t kFreezeStepMs = 100;
}  // namespace

CVYNMonitoredThread::CVYNMonitoredThread() : sequence_number_(GetVYNThreadMonitor().GetNextID()) {}

CVYNMonitoredThread::~CVYNMonitoredThread() {
  // Stop first: a thread still running could register the object again after
  // it had left the list.
  DestroyThread(true);
  // A thread that released itself may still be in PostProcessThread, which
  // is ours: let it finish before this part of the object goes.
  WaitForProcedureEnd();
  if (registered_) Unregister();
}

void CVYNMonitoredThread::Stamp() {
  last_heartbeat_.store(vyn::platform::GetSystemTimeAsFileTime(), std::memory_order_relaxed);
}

void CVYNMonitoredThread::UpdateStatus() {
  Stamp();
  if (!registered_.load(std::memory_order_relaxed)) Register();
  if (GetVYNThreadMonitor().IsObjectTimeout()) Freeze();
}

void CVYNMonitoredThread::Freeze() {
  // The one way out is the owner's stop of this object's own thread; any
  // other caller (an application thread that uses the object only for its
  // heartbeat, say) stays here for good.
  while (!IsCallingThread() || IsRunning()) {
    // The stop event may already be set (a soft stop, say); sleep then, so
    // that a frozen thread costs no processor time.
    if (Sleep(kFreezeStepMs) != VYN_STATUS_SUCCESS) {
      vyn::platform::SleepMilliseconds(kFreezeStepMs);
    }
  }
}

int64_t CVYNMonitoredThread::GetLastTimestamp() {
  return last_heartbeat_.load(std::memory_order_relaxed);
}

void CVYNMonitoredThread::Register() {
  registered_ = true;
  Stamp();
  GetVYNThreadMonitor().RegisterObject(this);
}

void CVYNMonitoredThread::Unregister() {
  GetVYNThreadMonitor().UnregisterObject(this);
  registered_ = false;
}

int32_t CVYNMonitoredThread::PreProcessThread() {
  Register();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMonitoredThread::PostProcessThread() {
  Unregister();
  return VYN_STATUS_SUCCESS;
}
