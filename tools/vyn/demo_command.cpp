// vyn demo: the main job, showing what the library does on this machine.
#include <cstdio>
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
