#include "vyn/core/language.h"

#include "vyn/core/internal/language_tables.h"
#include "vyn/core/status.h"

namespace {

constexpr const char* kUnknownText = "???";

const char* Lookup(const vyn::language::LanguageTable& table, int32_t language, int32_t text) {
  if (language != 0 && language != 1) return kUnknownText;
  for (size_t i = 0; i < table.count; ++i) {
    if (table.texts[i].number == text) {
      return language == 0 ? table.texts[i].german : table.texts[i].english;
    }
  }
  return kUnknownText;
}

}  // namespace

int32_t CVYNLanguage::SetLanguage(int32_t language) {
  language_.store(language == 0 || language == 2 ? language : 1, std::memory_order_relaxed);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNLanguage::GetLanguage() { return language_.load(std::memory_order_relaxed); }

const char* CVYNLanguage::GetString(int32_t module, int32_t text) {
  switch (module) {
    case VYN_MODULE_SYSTEM_LOG:
      return GetStringVYNSystemLog(text);
    case VYN_MODULE_THREAD_MONITOR:
      return GetStringVYNThreadMonitor(text);
    case VYN_MODULE_MESSAGE_QUEUE:
      return GetStringVYNMessageQueue(text);
    case VYN_MODULE_PLUGIN_MANAGER:
      return GetStringVYNPluginManager(text);
    case VYN_MODULE_SERIAL_PORT:
      return GetStringVYNSerialPort(text);
    case VYN_MODULE_MEMORY_DUMP:
      return GetStringVYNMemoryDump(text);
    case VYN_MODULE_SYSTEM_LOG_EX:
      return GetStringVYNSystemLogEx(text);
    case VYN_MODULE_STM32_BOOT_LOADER:
      return GetStringVYNSTM32BootLoader(text);
    default:
      return kUnknownText;
  }
}

const char* CVYNLanguage::GetStringVYNSystemLog(int32_t text) {
  return Lookup(vyn::language::kSystemLogTable, GetLanguage(), text);
}

const char* CVYNLanguage::GetStringVYNThreadMonitor(int32_t text) {
  return Lookup(vyn::language::kThreadMonitorTable, GetLanguage(), text);
}

const char* CVYNLanguage::GetStringVYNMessageQueue(int32_t text) {
  return Lookup(vyn::language::kMessageQueueTable, GetLanguage(), text);
}

const char* CVYNLanguage::GetStringVYNPluginManager(int32_t text) {
  return Lookup(vyn::language::kPluginManagerTable, GetLanguage(), text);
}

const char* CVYNLanguage::GetStringVYNSerialPort(int32_t text) {
  return Lookup(vyn::language::kSerialPortTable, GetLanguage(), text);
}

const char* CVYNLanguage::GetStringVYNMemoryDump(int32_t text) {
  return Lookup(vyn::language::kMemoryDumpTable, GetLanguage(), text);
}

// Modules 1 and 14 share one table.
const char* CVYNLanguage::GetStringVYNSystemLogEx(int32_t text) {
  return Lookup(vyn::language::kSystemLogTable, GetLanguage(), text);
}

const char* CVYNLanguage::GetStringVYNSTM32BootLoader(int32_t text) {
  return Lookup(vyn::language::kSTM32BootLoaderTable, GetLanguage(), text);
}
