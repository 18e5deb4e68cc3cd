// vyn demo: the main job, showing what the library does on this machine.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
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

const char* MessageTypeName(uint32_t type) {
  switch (type) {
    case MSG_SERIAL_FRAME_RECEIVED:
      return "MSG_SERIAL_FRAME_RECEIVED";
    case MSG_SERIAL_FRAME_SENT:
      return "MSG_SERIAL_FRAME_SENT";
    case MSG_FIRMWARE_TRANSMISSION_PROGRESS:
      return "MSG_FIRMWARE_TRANSMISSION_PROGRESS";
    default:
      return "application message";
  }
}

// Counts what the demo's queue has printed; lives longer than the queue,
// which the library's queue deletes on Terminate.
struct Delivery {
  std::mutex mutex;
  std::condition_variable printed_more;
  int printed = 0;
};

// The demo's receiver: prints every message its dispatch thread takes.
class PrintingQueue : public CVYNMessageQueue {
 public:
  explicit PrintingQueue(Delivery& delivery) : delivery_(delivery) {}

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    constexpr int32_t kShownBytes = 8;
    const unsigned char* bytes = message.GetBuffer();
    std::printf(
        "  received 0x%08X %-34s %3d bytes:", static_cast<unsigned>(message.GetMessageType()),
        MessageTypeName(message.GetMessageType()), message.GetBufferSize());
    if (bytes == nullptr) std::printf(" (no buffer)");
    for (int32_t i = 0; bytes != nullptr && i < message.GetBufferSize() && i < kShownBytes; ++i) {
      std::printf(" %02X", bytes[i]);
    }
    std::printf("%s\n", message.GetBufferSize() > kShownBytes ? " ..." : "");
    std::fflush(stdout);
    {
      std::lock_guard lock(delivery_.mutex);
      ++delivery_.printed;
    }
    delivery_.printed_more.notify_all();
    return VYN_STATUS_SUCCESS;
  }

 private:
  Delivery& delivery_;
};

// The library's queue as distributor (no thread of its own) and a receiver
// queue with its dispatch thread, as an application sets them up.
int ShowMessageQueue() {
  std::printf("Message queue:\n");
  CVYNMessageQueue& library_queue = GetVYNMessageQueue();
  Delivery delivery;
  auto receiver = std::make_unique<PrintingQueue>(delivery);
  int32_t status = library_queue.Initialize(false);
  if (status == VYN_STATUS_SUCCESS) status = receiver->Initialize(true);
  if (status == VYN_STATUS_SUCCESS) status = library_queue.Register(receiver.get());
  if (status != VYN_STATUS_SUCCESS) {
    std::printf("  could not start: %s\n", GetVYNStatusAsString(status).c_str());
    receiver->Terminate();
    library_queue.Terminate();
    return 1;
  }
  // The library's queue owns the receiver now and deletes it on Terminate.
  static_cast<void>(receiver.release());

  unsigned char received[12] = {0x10, 0x21, 0x32, 0x43, 0x54, 0x65,
                                0x76, 0x87, 0x98, 0xA9, 0xBA, 0xCB};
  unsigned char sent[5] = {0x01, 0x02, 0x03, 0x04, 0x05};
  unsigned char percent[1] = {42};
  CVYNMessage messages[] = {
      CVYNMessage(MSG_SERIAL_FRAME_RECEIVED, received, sizeof received),
      CVYNMessage(MSG_SERIAL_FRAME_SENT, sent, sizeof sent),
      CVYNMessage(MSG_FIRMWARE_TRANSMISSION_PROGRESS, percent, sizeof percent),
      CVYNMessage(0x00000001, nullptr, 0),
  };
  const int expected = static_cast<int>(sizeof messages / sizeof messages[0]);
  for (CVYNMessage& message : messages) library_queue.Notify(message);
  bool all_printed;
  {
    std::unique_lock lock(delivery.mutex);
    all_printed = delivery.printed_more.wait_for(lock, std::chrono::seconds(10),
                                                 [&] { return delivery.printed == expected; });
  }
  library_queue.Terminate();
  std::printf("  %d of %d messages delivered; the receiver was deleted by Terminate\n",
              delivery.printed, expected);
  return all_printed ? 0 : 1;
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
  return ShowMessageQueue();
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
