// The per-module text tables behind CVYNLanguage (internal).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyn::language {

struct LanguageText {
  int32_t number;
  const char* english;
  const char* german;
};

struct LanguageTable {
  const LanguageText* texts;
  size_t count;
};

extern const LanguageTable kSystemLogTable;
extern const LanguageTable kThreadMonitorTable;
extern const LanguageTable kMessageQueueTable;
extern const LanguageTable kPluginManagerTable;
extern const LanguageTable kSerialPortTable;
extern const LanguageTable kMemoryDumpTable;
extern const LanguageTable kSTM32BootLoaderTable;

}  // namespace vyn::language
