// vyn firmware: firmware files (pack, unpack, verify, info) and the update of
// a processor through its STM32 bootloader (flash), with live progress.
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <thread>

#include "support/interrupt_watch.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/flash_progress.h"
#include "tools/vyn/number_grammar.h"
#include "vyn/vyn.h"

namespace vyn::tool {
namespace {

constexpr double kQuietHintSeconds = 10;

struct FirmwareOptions {
  std::string source;
  std::string destination;
  std::string type;
  std::string application_data;
  std::string port;
  bool german = false;
};

const char* Explain(int32_t status) {
  switch (status) {
    case VYN_STATUS_FILE_ERROR:
      return "the file cannot be opened, created or written";
    case VYN_STATUS_NOT_FOUND:
      return "not a firmware file (wrong magic number)";
    case VYN_STATUS_OPERATION_BROKEN:
      return "the file ends before its data do";
    case VYN_STATUS_NO_MEMORY:
      return "the data do not fit into memory";
    case VYN_STATUS_INVALID_CRC:
      return "the data do not match their CRC";
    case VYN_STATUS_BUSY:
      return "another transmission is running";
    case VYN_STATUS_UNSPECIFIC_ERROR:
      return "the transmission failed; the log lines above say where";
    default:
      return "";
  }
}

[[noreturn]] void Fail(const std::string& what, int32_t status) {
  std::fprintf(stderr, "%s: %s (%s)\n", what.c_str(), GetVYNStatusAsString(status).c_str(),
               Explain(status));
  throw CLI::RuntimeError(1);
}

// A file type: 1 to 6, a processor's name, or any number (types without a
// key of their own leave the data unscrambled).
uint32_t ParseFileType(const std::string& text) {
  static const char* const kNames[] = {"ccpu-remote", "ccpu-head", "kcpu", "lcpu", "mcpu", "ecpu"};
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  std::replace(lower.begin(), lower.end(), ' ', '-');
  for (uint32_t i = 0; i < 6; ++i) {
    if (lower == kNames[i]) return i + 1;
  }
  std::string refusal;
  if (const std::optional<int64_t> value = ParseNumber(text, 0, 0xFFFFFFFF, &refusal)) {
    return static_cast<uint32_t>(*value);
  }
  throw CLI::ValidationError("--type", refusal +
                                           ", nor one of ccpu-remote, ccpu-head, kcpu, lcpu, "
                                           "mcpu, ecpu");
}

std::string Printable(const unsigned char* bytes, size_t size) {
  std::string text;
  for (size_t i = 0; i < size && bytes[i] != 0; ++i) {
    text += bytes[i] >= 0x20 && bytes[i] < 0x7F ? static_cast<char>(bytes[i]) : '.';
  }
  return text;
}

void RunPack(const FirmwareOptions& options) {
  _FILE_HEADER header{};
  header.dwFileType = ParseFileType(options.type);
  std::memcpy(header.abApplicationData, options.application_data.data(),
              std::min(options.application_data.size(), sizeof header.abApplicationData));
  CVYNFileHeader& files = GetVYNFileHeader();
  const int32_t status = files.CreateNewFile(options.source, options.destination, &header);
  if (status != VYN_STATUS_SUCCESS) Fail(options.source, status);
  std::printf("%s: %u bytes for %s, CRC 0x%08X\n", options.destination.c_str(), header.dwDataLength,
              files.GetFileTypeAsString(header.dwFileType).c_str(), header.dwCRC);
}

void RunUnpack(const FirmwareOptions& options) {
  const int32_t status = GetVYNFileHeader().DecryptFileA(options.source, options.destination);
  if (status != VYN_STATUS_SUCCESS) Fail(options.source, status);
  _FILE_HEADER header{};
  GetVYNFileHeader().ReadFileHeader(options.source, &header);
  std::printf("%s: %u bytes of plain image\n", options.destination.c_str(), header.dwDataLength);
}

void RunVerify(const FirmwareOptions& options) {
  _FILE_HEADER header{};
  const int32_t status = GetVYNFileHeader().ReadFileHeader(options.source, &header);
  if (status != VYN_STATUS_SUCCESS) Fail(options.source, status);
  std::printf("%s: ok\n", options.source.c_str());
}

void RunInfo(const FirmwareOptions& options) {
  CVYNFileHeader& files = GetVYNFileHeader();
  _FILE_HEADER header{};
  const int32_t status = files.ReadFileHeader(options.source, &header);
  if (status == VYN_STATUS_FILE_ERROR || status == VYN_STATUS_NOT_FOUND)
    Fail(options.source, status);
  const std::string text = Printable(header.abApplicationData, sizeof header.abApplicationData);
  std::printf("file         %s\n", options.source.c_str());
  std::printf("file type    %u (%s), key %u\n", header.dwFileType,
              files.GetFileTypeAsString(header.dwFileType).c_str(), header.dwFileType & 0xFF);
  std::printf("data         %u bytes\n", header.dwDataLength);
  std::printf("CRC          0x%08X\n", header.dwCRC);
  std::printf("application  \"%s\"", text.c_str());
  const int32_t version = files.GetVersionAsInteger(text.c_str());
  if (version != 0) {
    std::printf(" (version %d.%d.%d)", version >> 16, (version >> 8) & 0xFF, version & 0xFF);
  }
  for (size_t i = 0; i < sizeof header.abApplicationData; ++i) {
    std::printf(i % 32 == 0 ? "\n            %02X" : " %02X", header.abApplicationData[i]);
  }
  std::printf("\ncheck        %s%s%s\n", GetVYNStatusAsString(status).c_str(),
              status == VYN_STATUS_SUCCESS ? "" : ": ", Explain(status));
  if (status != VYN_STATUS_SUCCESS) throw CLI::RuntimeError(1);
}

int RunFlash(const FirmwareOptions& options) {
  // Before any thread starts, so that Ctrl-C reaches this thread as an event.
  support::InterruptWatch interrupts;
  // A reader of the output that goes away (`| head`, a closed terminal
  // session) cancels the transmission as Ctrl-C does.
  interrupts.WatchOutputClosed(STDOUT_FILENO);
  if (options.german) GetVYNLanguage().SetLanguage(0);
  _FILE_HEADER header{};
  GetVYNFileHeader().ReadFileHeader(options.source, &header);
  FlashConsole console(support::StandardErrorIsTerminal(), header.dwDataLength);

  CMemoryEdit view;
  view.SetLimitText(0);
  view.SetInsertObserver([&console](const std::string& line) {
    std::string shown = line;
    while (!shown.empty() && (shown.back() == '\n' || shown.back() == '\r')) shown.pop_back();
    console.ShowLine(shown);
  });
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  log.SetEnableOutput(true);
  log.SetOutputFilter(0xFFFFFFFF & ~static_cast<uint32_t>(VYN_EVENT_DEBUG));
  if (log.Initialize(&view, "vyn firmware", std::string("V ") + VYN_VERSION) !=
      VYN_STATUS_SUCCESS) {
    std::fprintf(stderr, "the system log could not start: the steps are not shown\n");
  }

  CVYNMessageQueue& library_queue = GetVYNMessageQueue();
  library_queue.Initialize(false);
  auto* receiver = new ProgressReceiver(&console);  // owned by the library's queue
  receiver->Initialize(true);
  library_queue.Register(receiver);

  std::atomic<int32_t> result{VYN_STATUS_UNSPECIFIC_ERROR};
  std::thread transmission([&] {
    result = GetVYNSTM32BootLoader().TransmitFirmware(options.port, options.source);
    interrupts.Wake();
  });
  // A chip that does not answer keeps the bootloader waiting for a long
  // time; say so now and then, so that nobody takes it for a hang.
  support::InterruptWatch::Event event = support::InterruptWatch::Event::kTimedOut;
  while ((event = interrupts.Wait(1000)) == support::InterruptWatch::Event::kTimedOut) {
    if (console.QuietSeconds() >= kQuietHintSeconds) {
      console.ShowLine("still waiting for the chip to answer (Ctrl-C cancels)");
    }
  }
  const bool output_closed = event == support::InterruptWatch::Event::kOutputClosed;
  const bool interrupted = event == support::InterruptWatch::Event::kInterrupted || output_closed;
  if (interrupted) {
    console.ShowLine(output_closed ? "output closed: the transmission is cancelled"
                                   : "interrupted: the transmission is cancelled");
    GetVYNSTM32BootLoader().CancelTransmission();
  }
  transmission.join();

  // Let the last progress messages show before the queues go.
  for (int i = 0; i < 100 && receiver->GetMessagesCount() > 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  receiver->Terminate();
  library_queue.Terminate();
  log.Terminate();
  console.Finish();

  const int32_t status = result;
  if (status == VYN_STATUS_SUCCESS) {
    std::printf("%s flashed through %s\n", options.source.c_str(), options.port.c_str());
    return 0;
  }
  std::fprintf(stderr, "%s: %s (%s)\n", interrupted ? "cancelled" : "flash failed",
               GetVYNStatusAsString(status).c_str(), Explain(status));
  return interrupted && !output_closed ? 130 : 1;
}

}  // namespace

void AddFirmwareCommand(CLI::App& app) {
  CLI::App* firmware =
      app.add_subcommand("firmware", "Firmware files, and firmware update through the bootloader");
  firmware->require_subcommand(1);
  static FirmwareOptions options;

  CLI::App* pack = firmware->add_subcommand("pack", "Make a firmware file from a plain image");
  pack->add_option("IMAGE", options.source, "Plain image (or a firmware file to pack again)")
      ->required()
      ->check(NonEmptyPath());
  pack->add_option("FILE", options.destination, "Firmware file to write")
      ->required()
      ->check(NonEmptyPath());
  pack->add_option("-t,--type", options.type,
                   "Processor: ccpu-remote, ccpu-head, kcpu, lcpu, mcpu, ecpu or a number")
      ->required();
  pack->add_option("-d,--data", options.application_data,
                   "Application data, up to 64 characters (for example \"V 01.02.03\")");
  pack->callback([] { RunPack(options); });

  CLI::App* unpack = firmware->add_subcommand("unpack", "Check a firmware file, write its image");
  unpack->add_option("FILE", options.source, "Firmware file")->required()->check(NonEmptyPath());
  unpack->add_option("IMAGE", options.destination, "Plain image to write")
      ->required()
      ->check(NonEmptyPath());
  unpack->callback([] { RunUnpack(options); });

  CLI::App* verify = firmware->add_subcommand("verify", "Check a firmware file's magic and CRC");
  verify->add_option("FILE", options.source, "Firmware file")->required()->check(NonEmptyPath());
  verify->callback([] { RunVerify(options); });

  CLI::App* info = firmware->add_subcommand("info", "Show a firmware file's header");
  info->add_option("FILE", options.source, "Firmware file")->required()->check(NonEmptyPath());
  info->callback([] { RunInfo(options); });

  CLI::App* flash = firmware->add_subcommand(
      "flash", "Send a firmware file to a processor's bootloader (Ctrl-C cancels)");
  flash->add_option("PORT", options.port, "Port name or path (COM1, ttyUSB0, /dev/pts/3)")
      ->required()
      ->check(NonEmptyPath());
  flash->add_option("FILE", options.source, "Firmware file")->required()->check(NonEmptyPath());
  flash->add_flag("--german", options.german, "Log texts in German");
  flash->callback([] {
    const int result = RunFlash(options);
    if (result != 0) throw CLI::RuntimeError(result);
  });
}

}  // namespace vyn::tool
