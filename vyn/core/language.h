// CVYNLanguage: the current language and the message texts of every module.
// Language 0 is German, 1 English (the default); 2 is accepted and stored but
// has no texts; every other value selects English.
//
// Ownership: the texts are constants of the library; the returned pointers
// stay valid while the library is loaded and must not be freed.
// Thread-safety: the language is one atomic value; lookups may run on any
// thread and, during a change, yield the text of the old or the new language.
#pragma once

#include <atomic>
#include <cstdint>

#include "vyn/base/export.h"

// Module numbers of GetString.
constexpr int32_t VYN_MODULE_SYSTEM_LOG = 1;
constexpr int32_t VYN_MODULE_THREAD_MONITOR = 4;
constexpr int32_t VYN_MODULE_MESSAGE_QUEUE = 5;
constexpr int32_t VYN_MODULE_PLUGIN_MANAGER = 7;
constexpr int32_t VYN_MODULE_SERIAL_PORT = 9;
constexpr int32_t VYN_MODULE_MEMORY_DUMP = 13;
constexpr int32_t VYN_MODULE_SYSTEM_LOG_EX = 14;
constexpr int32_t VYN_MODULE_STM32_BOOT_LOADER = 15;

class VYN_EXPORT CVYNLanguage {
 public:
  CVYNLanguage() = default;
  CVYNLanguage(const CVYNLanguage&) = delete;
  CVYNLanguage& operator=(const CVYNLanguage&) = delete;

  // Selects the language of every later lookup (see the values above); 0.
  virtual int32_t SetLanguage(int32_t language);
  // The language in force: 0, 1 or 2; 1 until SetLanguage is called.
  virtual int32_t GetLanguage();
  // The text of a module, or "???" for an unknown module or text number and
  // for a language without texts.
  virtual const char* GetString(int32_t module, int32_t text);
  // GetString for VYN_MODULE_SYSTEM_LOG.
  virtual const char* GetStringVYNSystemLog(int32_t text);
  // GetString for VYN_MODULE_THREAD_MONITOR.
  virtual const char* GetStringVYNThreadMonitor(int32_t text);
  // GetString for VYN_MODULE_MESSAGE_QUEUE.
  virtual const char* GetStringVYNMessageQueue(int32_t text);
  // GetString for VYN_MODULE_PLUGIN_MANAGER.
  virtual const char* GetStringVYNPluginManager(int32_t text);
  // GetString for VYN_MODULE_SERIAL_PORT.
  virtual const char* GetStringVYNSerialPort(int32_t text);
  // GetString for VYN_MODULE_MEMORY_DUMP.
  virtual const char* GetStringVYNMemoryDump(int32_t text);
  // GetString for VYN_MODULE_SYSTEM_LOG_EX.
  virtual const char* GetStringVYNSystemLogEx(int32_t text);
  // GetString for VYN_MODULE_STM32_BOOT_LOADER.
  virtual const char* GetStringVYNSTM32BootLoader(int32_t text);

 private:
  std::atomic<int32_t> language_{1};
};

// The process's one CVYNLanguage, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNLanguage& GetVYNLanguage();
