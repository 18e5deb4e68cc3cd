// An application of the installed library: uses a few services through the
// umbrella header and reports what does not hold.
#include <vyn/vyn.h>

#include <cstdio>
#include <string>

int main() {
  int failures = 0;
  const auto check = [&failures](bool ok, const char* what) {
    if (!ok) {
      std::printf("FAILED: %s\n", what);
      ++failures;
    }
  };
  check(GetVYNStatusAsString(VYN_STATUS_BUSY) == "VYN_STATUS_BUSY", "status name");
  check(ConvertDateToMs(SYSTEMTIME{1970, 1, 4, 1, 0, 0, 0, 0}) == 11644473600000, "date");
  check(&GetVYNLanguage() == &GetVYNLanguage(), "one language object");
  check(std::string(GetVYNLanguage().GetString(4, 1)) == "The thread monitor has been started.",
        "language text");
  CRITICAL_SECTION lock;
  {
    CVYNSynchronize guard(&lock, true);
    check(guard.Enter(5) == VYN_STATUS_SUCCESS, "guard");
  }
  // Every accessor links and hands out the same object on every call.
  const void* services[][2] = {
      {&GetVYNLanguage(), &GetVYNLanguage()},
      {&GetVYNThreadMonitor(), &GetVYNThreadMonitor()},
      {&GetVYNSystemLogEx(), &GetVYNSystemLogEx()},
      {&GetVYNSerialPort(), &GetVYNSerialPort()},
      {&GetVYNMessageQueue(), &GetVYNMessageQueue()},
      {&GetVYNPluginManager(), &GetVYNPluginManager()},
      {&GetVYNCommandSet(), &GetVYNCommandSet()},
      {&GetVYNCommandDump(), &GetVYNCommandDump()},
      {&GetVYNCommandHelper(), &GetVYNCommandHelper()},
      {&GetVYNIniManager(), &GetVYNIniManager()},
      {&GetVYNMemoryDump(), &GetVYNMemoryDump()},
      {&GetVYNCommandLine(), &GetVYNCommandLine()},
      {&GetVYNFileHeader(), &GetVYNFileHeader()},
      {&GetVYNSTM32BootLoader(), &GetVYNSTM32BootLoader()},
      {&GetVYNMain(), &GetVYNMain()},
  };
  for (const auto& pair : services) check(pair[0] != nullptr && pair[0] == pair[1], "accessor");
  check(GetVYNSerialPort().GetBaudRate() == 57600, "serial port default baud rate");
  GetVYNMain().SetApplicationInformation("consumer", "1");
  std::string first;
  std::string second;
  GetVYNMain().GetApplicationInformation(first, second);
  check(first == "consumer" && second == "1", "application information");
  std::printf("consumer: %s\n", failures == 0 ? "ok" : "failed");
  return failures == 0 ? 0 : 1;
}
