// vyn demo: the main job, showing what the library does on this machine.
#include <cstdio>
#include <filesystem>
#include <string>

#include "tools/vyn/commands.h"
#include "vyn/vyn.h"

namespace vyn::tool {
namespace {

void PrintSingletons() {
  std::printf("Singletons:\n");
  const auto show = [](const char* accessor, const void* object) {
    std::printf("  %-24s %p\n", accessor, object);
  };
  show("GetVYNLanguage", &GetVYNLanguage());
  show("GetVYNThreadMonitor", &GetVYNThreadMonitor());
  show("GetVYNSystemLogEx", &GetVYNSystemLogEx());
  show("GetVYNSerialPort", &GetVYNSerialPort());
  show("GetVYNMessageQueue", &GetVYNMessageQueue());
  show("GetVYNPluginManager", &GetVYNPluginManager());
  show("GetVYNCommandSet", &GetVYNCommandSet());
  show("GetVYNCommandDump", &GetVYNCommandDump());
  show("GetVYNCommandHelper", &GetVYNCommandHelper());
  show("GetVYNIniManager", &GetVYNIniManager());
  show("GetVYNMemoryDump", &GetVYNMemoryDump());
  show("GetVYNCommandLine", &GetVYNCommandLine());
  show("GetVYNFileHeader", &GetVYNFileHeader());
  show("GetVYNSTM32BootLoader", &GetVYNSTM32BootLoader());
  show("GetVYNMain", &GetVYNMain());
}

void PrintLanguage() {
  CVYNLanguage& language = GetVYNLanguage();
  std::printf("Language: %d (%s)\n", language.GetLanguage(),
              language.GetLanguage() == 0 ? "German" : "English");
  std::printf("  module 14, text 3: %s\n", language.GetString(14, 3));
}

void PrintIniValues() {
  CVYNIniManager& ini = GetVYNIniManager();
  std::printf("INI file: %s\n", ini.GetDefaultFilePath().c_str());
  for (const char* key : {"DumpType", "DEPPolicy", "DumpAfterHeapCorruption", "MessageBoxAfterDump",
                          "HeapCheckInterval"}) {
    std::string value;
    const int32_t status = ini.GetEntry("VYNMemoryDump", key, &value, "");
    std::printf(
        "  [VYNMemoryDump] %-24s %s\n", key,
        status == VYN_STATUS_SUCCESS ? value.c_str() : GetVYNStatusAsString(status).c_str());
  }
}

void PrintCommandLine() {
  CVYNCommandLine& command_line = GetVYNCommandLine();
  std::printf("Command line:\n");
  std::string argument;
  for (int32_t i = 0; command_line.GetArgument(i, argument) == VYN_STATUS_SUCCESS; ++i) {
    std::printf("  [%d] %s\n", i, argument.c_str());
  }
}

// The view of the log is an in-memory control whose every new line is echoed
// to the terminal, so the lines appear as the log's output thread writes them.
void RunSystemLog() {
  std::printf("System log:\n");
  CMemoryEdit view;
  view.SetLimitText(0);
  view.SetInsertObserver([](const std::string& line) {
    std::string shown = line;
    while (!shown.empty() && (shown.back() == '\n' || shown.back() == '\r')) shown.pop_back();
    std::printf("  view | %s\n", shown.c_str());
    std::fflush(stdout);
  });
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  log.SetEnableOutput(true);
  log.SetControlAutoScroll(true);
  const int32_t status = log.Initialize(&view, "", std::string("V ") + VYN_VERSION);
  if (status != VYN_STATUS_SUCCESS) {
    std::printf("  Initialize: %s\n", GetVYNStatusAsString(status).c_str());
    return;
  }
  // Services log through the same entry point; the watchdog announces itself.
  GetVYNThreadMonitor().Initialize();
  log.AddOutput("Port opened.", VYN_EVENT_COMMAND, "COM3", "CVYNSerialPort", "");
  log.AddOutput("A \"quoted\" word is stored with single quotes.", VYN_EVENT_WARNING, "",
                "vyn demo", "");
  log.AddOutput("Shown and counted as an error.", VYN_EVENT_ERROR, "", "vyn demo", "");
  log.AddOutput("Debug detail.", VYN_EVENT_DEBUG, "", "vyn demo", "");
  GetVYNThreadMonitor().Terminate();
  // Stop the log from this thread, which is not the view's: the view has no
  // thread of its own, so Terminate can wait for the output thread.
  log.Terminate();

  int64_t s[10] = {};
  log.GetLogStatistics(&s[0], &s[1], &s[2], &s[3], &s[4], &s[5], &s[6], &s[7], &s[8], &s[9]);
  std::printf(
      "  statistics: %lld entries; unknown %lld, exception %lld, assert %lld, fatal %lld, "
      "error %lld, warning %lld, information %lld, command %lld, debug %lld\n",
      static_cast<long long>(s[0]), static_cast<long long>(s[1]), static_cast<long long>(s[2]),
      static_cast<long long>(s[3]), static_cast<long long>(s[4]), static_cast<long long>(s[5]),
      static_cast<long long>(s[6]), static_cast<long long>(s[7]), static_cast<long long>(s[8]),
      static_cast<long long>(s[9]));
  std::error_code ignored;
  std::filesystem::path newest;
  for (const auto& item : std::filesystem::directory_iterator("Logs", ignored)) {
    if (newest.empty() || item.last_write_time() > std::filesystem::last_write_time(newest)) {
      newest = item.path();
    }
  }
  if (!newest.empty()) std::printf("  file: %s\n", newest.c_str());
}

int RunDemo() {
  std::printf("vyn demo: library %s loaded\n", VYN_VERSION);
  GetVYNMain().SetApplicationInformation("vyn", VYN_VERSION);
  PrintSingletons();
  PrintLanguage();
  PrintIniValues();
  PrintCommandLine();
  CVYNStopWatch watch;
  watch.Start();
  const int64_t now = GetSystemTimeInMs();
  watch.Stop();
  std::printf("System time: %lld ms since 1601 (read in %.3f us)\n", static_cast<long long>(now),
              watch.GetAsMicroSeconds());
  RunSystemLog();
  return 0;
}

}  // namespace

void AddDemoCommand(CLI::App& app) {
  CLI::App* demo = app.add_subcommand("demo", "Run the main job on this machine");
  demo->callback([] {
    const int result = RunDemo();
    if (result != 0) throw CLI::RuntimeError(result);
  });
}

}  // namespace vyn::tool
