// The library frame: every singleton of the library, in the one order in which
// they must come into being at load and, reversed, go away at unload.
//
// All of them are defined in this one translation unit, where the language
// guarantees construction in definition order and destruction in reverse.
// The thread monitor comes before every service that owns a thread, because
// each thread object takes its sequence number from the monitor. This is the
// only file that includes every service; keep it small.
#include "vyn/core/command_line.h"
#include "vyn/core/ini_manager.h"
#include "vyn/core/language.h"
#include "vyn/core/main.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/command_helper.h"
#include "vyn/device/command_set.h"
#include "vyn/diagnostics/memory_dump.h"
#include "vyn/firmware/file_header.h"
#include "vyn/firmware/stm32_boot_loader.h"
#include "vyn/internal/app.h"
#include "vyn/log/system_log.h"
#include "vyn/plugins/plugin_manager.h"
#include "vyn/queue/message_queue.h"
#include "vyn/serial/serial_port.h"
#include "vyn/threads/thread_monitor.h"

// A process that defines this function (exported from its executable) is
// told of every singleton right after its construction and right before its
// destruction. Only lifecycle tests define it; elsewhere the weak reference
// stays null and the frame costs nothing.
extern "C" __attribute__((weak, visibility("default"))) void vyn_test_lifecycle_probe(
    const char* name, int constructed);

namespace {

void NoteLifecycle(const char* name, int constructed) {
  if (vyn_test_lifecycle_probe != nullptr) vyn_test_lifecycle_probe(name, constructed);
}

template <typename Service>
class Singleton {
 public:
  explicit Singleton(const char* name) : name_(name) { NoteLifecycle(name_, 1); }
  ~Singleton() { NoteLifecycle(name_, 0); }
  Singleton(const Singleton&) = delete;
  Singleton& operator=(const Singleton&) = delete;

  Service object;

 private:
  const char* name_;
};

Singleton<CVYNApp> g_app("CVYNApp");
Singleton<CVYNLanguage> g_language("CVYNLanguage");
Singleton<CVYNThreadMonitor> g_thread_monitor("CVYNThreadMonitor");
Singleton<CVYNSystemLogEx> g_system_log("CVYNSystemLogEx");
Singleton<CVYNSerialPort> g_serial_port("CVYNSerialPort");
Singleton<CVYNMessageQueue> g_message_queue("CVYNMessageQueue");
Singleton<CVYNPluginManager> g_plugin_manager("CVYNPluginManager");
Singleton<CVYNCommandSet> g_command_set("CVYNCommandSet");
Singleton<CVYNCommandDump> g_command_dump("CVYNCommandDump");
Singleton<CVYNCommandHelper> g_command_helper("CVYNCommandHelper");
Singleton<CVYNIniManager> g_ini_manager("CVYNIniManager");
Singleton<CVYNMemoryDump> g_memory_dump("CVYNMemoryDump");
Singleton<CVYNCommandLine> g_command_line("CVYNCommandLine");
Singleton<CVYNFileHeader> g_file_header("CVYNFileHeader");
Singleton<CVYNSTM32BootLoader> g_stm32_boot_loader("CVYNSTM32BootLoader");
Singleton<CVYNMain> g_main("CVYNMain");

// Start-up and shut-down of the application object bracket the lifetime of
// all singletons above: InitInstance after the last construction, ExitInstance
// before the first destruction.
class LibraryEntry {
 public:
  LibraryEntry() { g_app.object.InitInstance(); }
  ~LibraryEntry() { g_app.object.ExitInstance(); }
};
LibraryEntry g_library_entry;

}  // namespace

CVYNLanguage& GetVYNLanguage() { return g_language.object; }
CVYNThreadMonitor& GetVYNThreadMonitor() { return g_thread_monitor.object; }
CVYNSystemLogEx& GetVYNSystemLogEx() { return g_system_log.object; }
CVYNSerialPort& GetVYNSerialPort() { return g_serial_port.object; }
CVYNMessageQueue& GetVYNMessageQueue() { return g_message_queue.object; }
CVYNPluginManager& GetVYNPluginManager() { return g_plugin_manager.object; }
CVYNCommandSet& GetVYNCommandSet() { return g_command_set.object; }
CVYNCommandDump& GetVYNCommandDump() { return g_command_dump.object; }
CVYNCommandHelper& GetVYNCommandHelper() { return g_command_helper.object; }
CVYNIniManager& GetVYNIniManager() { return g_ini_manager.object; }
CVYNMemoryDump& GetVYNMemoryDump() { return g_memory_dump.object; }
CVYNCommandLine& GetVYNCommandLine() { return g_command_line.object; }
CVYNFileHeader& GetVYNFileHeader() { return g_file_header.object; }
CVYNSTM32BootLoader& GetVYNSTM32BootLoader() { return g_stm32_boot_loader.object; }
CVYNMain& GetVYNMain() { return g_main.object; }
