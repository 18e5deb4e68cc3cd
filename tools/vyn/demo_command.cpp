// vyn demo: the main job on the embedded default, a simulated device on a
// pseudo-terminal. It starts the system log (its view echoed to the
// terminal), the watchdog and the message queue, opens the device through the
// library, runs a scripted session of requests with the traffic dump shown
// live, damages and unplugs the link on purpose, and ends with the link
// statistics, a firmware update of a simulated processor, and the CSV file
// its log wrote; it fails when the log could write no file at all.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "sim/device_simulator.h"
#include "support/interrupt_watch.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/demo_firmware.h"
#include "tools/vyn/link_session.h"
#include "tools/vyn/number_grammar.h"
#include "tools/vyn/output.h"
#include "tools/vyn/request_table.h"
#include "vyn/vyn.h"

namespace vyn::tool {
namespace {

using std::chrono::milliseconds;

struct DemoOptions {
  bool german = false;
  int pause_ms = 150;
};

// Ctrl-C, SIGTERM, SIGHUP or a closed output end the demo early: from then
// on pauses and requests return at once, so the steps left run through
// quickly and everything started is stopped and removed on the way out.
class Pacer {
 public:
  Pacer() { watch_.WatchOutputClosed(STDOUT_FILENO); }

  // False once the demo is to stop.
  bool Pause(int ms) {
    const auto end = std::chrono::steady_clock::now() + milliseconds(ms);
    while (!stopped_) {
      const auto left =
          std::chrono::duration_cast<milliseconds>(end - std::chrono::steady_clock::now());
      if (left.count() <= 0) return true;
      const support::InterruptWatch::Event event = watch_.Wait(static_cast<int>(left.count()));
      if (event == support::InterruptWatch::Event::kInterrupted ||
          event == support::InterruptWatch::Event::kOutputClosed) {
        stopped_ = true;
      }
    }
    return false;
  }
  bool stopped() const { return stopped_; }
  void MarkStopped() { stopped_ = true; }
  support::InterruptWatch& watch() { return watch_; }

 private:
  support::InterruptWatch watch_;
  bool stopped_ = false;
};

Pacer* pacer = nullptr;  // the running demo's, set by RunDemo

bool Pause(int ms) { return pacer->Pause(ms); }

void PrintHeader(const char* title) { PrintOutput("\n== %s\n", title); }

void PrintLibrary() {
  PrintHeader("Library");
  PrintOutput("vyn %s; status names: %s, %s\n", VYN_VERSION,
              GetVYNStatusAsString(VYN_STATUS_SUCCESS).c_str(),
              GetVYNStatusAsString(VYN_STATUS_BUSY).c_str());
  PrintOutput("language %d; INI file %s\n", GetVYNLanguage().GetLanguage(),
              GetVYNIniManager().GetDefaultFilePath().c_str());
  std::string value;
  if (GetVYNIniManager().GetEntry("VYNMemoryDump", "DumpType", &value, "") == VYN_STATUS_SUCCESS) {
    PrintOutput("[VYNMemoryDump] DumpType=%s\n", value.c_str());
  }
  std::string argument;
  PrintOutput("command line:");
  for (int32_t i = 0; GetVYNCommandLine().GetArgument(i, argument) == VYN_STATUS_SUCCESS; ++i) {
    PrintOutput(" [%s]", argument.c_str());
  }
  PrintOutput("\n");
}

void PrintThreads() {
  PrintOutput("threads running under the watchdog:");
  for (const std::string& name : GetVYNThreadMonitor().GetRegisteredThreadNames()) {
    PrintOutput(" \"%s\"", name.c_str());
  }
  PrintOutput("\n");
}

// Sends a request and waits until its reply (any received frame) is shown.
void Request(LinkSession& session, const char* name, const std::vector<std::string>& args,
             int pause_ms) {
  if (pacer->stopped()) return;
  unsigned char frame[SERIAL_FRAME_BUFFER_SIZE] = {};
  const uint16_t length = BuildRequestFrame(name, args, GetVYNCommandSet(), frame);
  const uint32_t before = session.printer().ReceivedFrames();
  const int32_t status = GetVYNSerialPort().SendCommand(frame, length);
  if (status != VYN_STATUS_SUCCESS) {
    PrintOutput("   %s not sent: %s\n", name, GetVYNStatusAsString(status).c_str());
    return;
  }
  for (int i = 0; i < 200 && session.printer().ReceivedFrames() == before; ++i) {
    if (!Pause(5)) return;
  }
  Pause(pause_ms);
}

int RunDemo(const DemoOptions& options) {
  // Before any thread starts, so that the signals reach the pacer.
  Pacer demo_pacer;
  pacer = &demo_pacer;
  if (options.german) GetVYNLanguage().SetLanguage(0);
  GetVYNMain().SetApplicationInformation("vyn demo", VYN_VERSION);
  PrintLibrary();

  PrintHeader("System log (its view, live)");
  CMemoryEdit view;
  view.SetLimitText(0);
  view.SetInsertObserver([](const std::string& line) {
    std::string shown = line;
    while (!shown.empty() && (shown.back() == '\n' || shown.back() == '\r')) shown.pop_back();
    WriteOutputLine("   log | " + shown);
  });
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  log.SetEnableOutput(true);
  log.SetControlAutoScroll(true);
  // Debug entries (the link statistics) go to the file only.
  log.SetOutputFilter(0xFFFFFFFF & ~static_cast<uint32_t>(VYN_EVENT_DEBUG));
  log.Initialize(&view, "", std::string("V ") + VYN_VERSION);
  GetVYNThreadMonitor().Initialize();
  Pause(50);

  PrintHeader("Simulated device");
  vyn::sim::DeviceSimulatorOptions device_options;
  device_options.notifications = true;
  device_options.notification_period = milliseconds(700);
  vyn::sim::DeviceSimulator device(device_options);
  if (!device.Start()) {
    PrintOutput("the simulated device could not start\n");
    return 1;
  }
  PrintOutput("device on %s (%s)\n", device.port_path().c_str(), device.terminal_path().c_str());

  {
    PrintHeader("Traffic (TX: written by the library, RX: received and checked)");
    LinkSession session(device.port_path(), 7, false, true);
    GetVYNSerialPort().SetDumpMode(1);  // the link statistics into the log, once a second
    Pause(50);
    PrintThreads();
    const int pause = options.pause_ms;
    Request(session, "GetDeviceInfo", {}, pause);
    Request(session, "GetStatus", {"5:10", "27:1"}, pause);
    Request(session, "Control", {"5:4096", "128:0x1234"}, pause);
    Request(session, "SetHardwareInfo", {"0x0102", "CB 2.0", "24-0042"}, pause);
    Request(session, "GetHardwareInfo", {}, pause);
    Request(session, "GetECPUInfo", {}, pause);
    Request(session, "GetECPUPWMCalibration", {}, pause);
    Request(session, "GetECPUEncoderCalibration", {}, pause);

    PrintOutput("-- the motor processor speaks the '>' framing\n");
    GetVYNSerialPort().SetProtocol(PROTOCOL_MCPU);
    Request(session, "BoardInfo", {}, pause);
    Request(session, "MotorsOn", {}, pause);
    Request(session, "ReadParamsExt", {}, pause);
    GetVYNSerialPort().SetProtocol(PROTOCOL_CCPU);

    PrintOutput("-- a reply with a damaged checksum is dropped and counted (IPCS)\n");
    device.CorruptChecksum(vyn::sim::ChecksumKind::kPayload);
    Request(session, "GetKCPUInfo", {}, pause);
    PrintOutput("-- garbage on the line is skipped (ISD)\n");
    device.SendGarbage(40);
    Request(session, "GetProductionInfo", {}, pause);
    PrintOutput("   %s\n", GetVYNSerialPort().GetSerialPortStatus().c_str());

    PrintOutput("-- the device is unplugged and comes back under the same path\n");
    device.Unplug();
    Pause(300);
    device.Replug();
    Pause(100);
    Request(session, "GetDeviceInfo", {}, pause);

    PrintHeader("Link statistics");
    PrintOutput("%s\n", GetVYNSerialPort().GetSerialPortStatus().c_str());
    PrintOutput("frames shown: %u sent, %u received\n", session.printer().SentFrames(),
                session.printer().ReceivedFrames());
  }
  const auto counters = device.counters();
  PrintOutput("the device saw %llu requests and sent %llu replies and %llu notifications\n",
              static_cast<unsigned long long>(counters.requests),
              static_cast<unsigned long long>(counters.replies),
              static_cast<unsigned long long>(counters.notifications));
  device.Stop();

  if (!pacer->stopped() && RunFirmwareDemo(pacer->watch())) pacer->MarkStopped();

  GetVYNThreadMonitor().Terminate();
  PrintThreads();  // the log's output thread is the last one left
  log.Terminate();
  int64_t s[10] = {};
  log.GetLogStatistics(&s[0], &s[1], &s[2], &s[3], &s[4], &s[5], &s[6], &s[7], &s[8], &s[9]);
  PrintHeader("System log");
  PrintOutput(
      "%lld entries: %lld information, %lld command, %lld warning, %lld error, %lld debug\n",
      static_cast<long long>(s[0]), static_cast<long long>(s[7]), static_cast<long long>(s[8]),
      static_cast<long long>(s[6]), static_cast<long long>(s[5]), static_cast<long long>(s[9]));
  // The file this run wrote, not whatever else lies in Logs/.
  const std::string file = log.GetFilePath();
  const int64_t lost = log.GetLostEntryCount();
  if (lost > 0) {
    std::fprintf(stderr, "%lld log entries could not be written (reasons above)\n",
                 static_cast<long long>(lost));
  }
  if (file.empty()) {
    std::fprintf(stderr, "the system log wrote no CSV file (reasons above)\n");
    return 1;
  }
  PrintOutput("CSV file: %s\n", file.c_str());
  if (pacer->stopped()) {
    std::fprintf(stderr, "vyn demo: stopped early\n");
    return 1;
  }
  return 0;
}

}  // namespace

void AddDemoCommand(CLI::App& app) {
  CLI::App* demo = app.add_subcommand(
      "demo", "Run the main job: a session with the simulated device, shown live");
  static DemoOptions options;
  demo->add_flag("--german", options.german, "Log texts in German");
  demo->add_option("--pause", options.pause_ms, "Milliseconds between requests")
      ->transform(NumberIn(0, 10000))
      ->capture_default_str();
  demo->callback([] {
    const int result = RunDemo(options);
    if (result != 0) throw CLI::RuntimeError(result);
  });
}

}  // namespace vyn::tool
