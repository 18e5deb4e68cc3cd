// The settings of the crash-dump service, the cyclic heap check and the
// operations that provoke faults on purpose.
#include <new>
#include <vector>

#include "vyn/core/ini_manager.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/diagnostics/internal/decimal_value.h"
#include "vyn/diagnostics/memory_dump.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/crash_signals.h"
#include "vyn/platform/guarded_heap.h"

namespace {

constexpr const char* kSection = "VYNMemoryDump";
constexpr uint32_t kHeapCheckCycleMs = 500;
// Seconds whose milliseconds still fit in 32 bits.
constexpr int32_t kLongestHeapCheckInterval = 4294967;

const char* Text(int32_t number) {
  return GetVYNLanguage().GetString(VYN_MODULE_MEMORY_DUMP, number);
}

// The value of `key`, or false when the key is missing or empty.
bool ReadSetting(const char* key, int32_t* value) {
  std::string text;
  if (GetVYNIniManager().GetEntry(kSection, key, &text, "") != VYN_STATUS_SUCCESS) return false;
  if (text.empty()) return false;
  *value = vyn::diagnostics::DecimalValue(text);
  return true;
}

}  // namespace

int32_t CVYNMemoryDump::ApplyIniSettings() {
  int32_t value = 0;
  if (ReadSetting("DumpType", &value)) SetDumpType(static_cast<uint32_t>(value));
  if (ReadSetting("DEPPolicy", &value)) SetDEPPolicy(static_cast<uint32_t>(value));
  if (ReadSetting("DumpAfterHeapCorruption", &value) && value != 0 &&
      !dump_after_heap_corruption_) {
    SetDumpAfterHeapCorruption(true);
  }
  if (ReadSetting("MessageBoxAfterDump", &value)) SetShowMessageBoxAfterDump(value != 0);
  if (ReadSetting("HeapCheckInterval", &value)) {
    if (value < 0) value = 0;
    if (value > kLongestHeapCheckInterval) value = kLongestHeapCheckInterval;
    SetCyclicHeapCheck(static_cast<uint32_t>(value) * 1000);
  }
  return VYN_STATUS_SUCCESS;
}

void CVYNMemoryDump::SetDumpType(uint32_t dump_type) { dump_type_ = dump_type; }

int32_t CVYNMemoryDump::SetDEPPolicy(uint32_t flags) {
  if (dep_policy_ != 0) {
    return flags == dep_policy_ ? VYN_STATUS_SUCCESS : VYN_STATUS_UNSPECIFIC_ERROR;
  }
  if (!vyn::platform::SetProcessDEPPolicy(flags)) return VYN_STATUS_NOT_FOUND;
  dep_policy_ = flags;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMemoryDump::SetDumpAfterHeapCorruption(bool on) {
  if (!on) return dump_after_heap_corruption_ ? VYN_STATUS_UNSPECIFIC_ERROR : VYN_STATUS_SUCCESS;
  if (dump_after_heap_corruption_) return VYN_STATUS_SUCCESS;
  vyn::platform::EnableTerminationOnHeapCorruption();
  dump_after_heap_corruption_ = true;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMemoryDump::HeapCheckThreadFunction(void* service) {
  return static_cast<CVYNMemoryDump*>(service)->RunHeapCheckThread();
}

int32_t CVYNMemoryDump::SetCyclicHeapCheck(uint32_t interval_ms) {
  if (interval_ms == heap_check_interval_) return VYN_STATUS_SUCCESS;
  heap_check_interval_ = interval_ms;
  if (interval_ms == 0) {
    if (heap_check_thread_.IsRunning()) heap_check_thread_.DestroyThread(true);
    return VYN_STATUS_SUCCESS;
  }
  if (heap_check_thread_.IsRunning()) return VYN_STATUS_SUCCESS;
  heap_check_thread_.SetThreadName("VYN Heap Check");
  const int32_t status =
      heap_check_thread_.CreateThread(&HeapCheckThreadFunction, this, nullptr, 0, 0, false);
  if (status == VYN_STATUS_SUCCESS) {
    AddOutput(Text(16), VYN_EVENT_INFORMATION);
  } else {
    AddOutput(Text(17), VYN_EVENT_ERROR);
  }
  return status;
}

int32_t CVYNMemoryDump::RunHeapCheckThread() {
  if (!heap_check_thread_.IsRunning()) return VYN_STATUS_NOT_INITIALIZED;
  heap_check_thread_.SignalStart();
  uint32_t last_check = 0;
  while (heap_check_thread_.IsRunning()) {
    heap_check_thread_.UpdateStatus();
    const uint32_t now = vyn::platform::GetTickCount();
    if (now - last_check > heap_check_interval_.load()) {
      CheckHeapConsistency();
      last_check = now;
    }
    heap_check_thread_.Sleep(kHeapCheckCycleMs);
  }
  AddOutput(Text(18), VYN_EVENT_INFORMATION);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMemoryDump::CheckHeapConsistency() {
  if (!initialized_) return VYN_STATUS_NOT_INITIALIZED;
  try {
    const size_t count = vyn::platform::GetProcessHeaps(nullptr, 0);
    if (count == 0) return VYN_STATUS_SUCCESS;
    std::vector<uint64_t> heaps(count);
    if (vyn::platform::GetProcessHeaps(heaps.data(), heaps.size()) != count) {
      return VYN_STATUS_UNSPECIFIC_ERROR;
    }
    for (const uint64_t heap : heaps) {
      // A heap that went away since the count cannot be damaged any more.
      if (vyn::platform::ValidateProcessHeap(heap) != vyn::platform::HeapValidity::kDamaged) {
        continue;
      }
      AddOutput(Text(9), VYN_EVENT_FATAL);
      if (dump_after_heap_corruption_ && handlers_installed_) {
        CrashFast(VYN_END_OF_PROCESS_HEAP_CORRUPTION);
      }
      return VYN_STATUS_INVALID_BUFFER;
    }
    return VYN_STATUS_SUCCESS;
  } catch (const std::bad_alloc&) {
    return VYN_STATUS_NO_MEMORY;
  } catch (...) {
    return VYN_STATUS_EXCEPTION_CAUGHT;
  }
}

int32_t CVYNMemoryDump::ProvokeCrash() {
  if (!handlers_installed_) return VYN_STATUS_NOT_INITIALIZED;
  AddOutput(Text(19), VYN_EVENT_FATAL);
  vyn::platform::SleepMilliseconds(1);
  vyn::platform::WriteToAddressZero(0x2A);
}

int32_t CVYNMemoryDump::ProvokeHang() {
  if (!handlers_installed_) return VYN_STATUS_NOT_INITIALIZED;
  AddOutput(Text(20), VYN_EVENT_FATAL);
  vyn::platform::SleepMilliseconds(1);
  for (;;) vyn::platform::SleepMilliseconds(1);
}

int32_t CVYNMemoryDump::ProvokeHeapCorruption() {
  if (!handlers_installed_) return VYN_STATUS_NOT_INITIALIZED;
  AddOutput(Text(21), VYN_EVENT_FATAL);
  vyn::platform::SleepMilliseconds(1);
  // A block of the library's own heap that nothing else uses, damaged as an
  // overrun by one word would damage it, and kept: freeing it would be the
  // very thing that termination on corruption reacts to.
  vyn::platform::GuardedHeap& heap = vyn::platform::ProcessHeap();
  void* block = heap.Allocate(16);
  if (block == nullptr) return VYN_STATUS_NO_MEMORY;
  heap.DamageBlockEnd(block);
  return VYN_STATUS_SUCCESS;
}
