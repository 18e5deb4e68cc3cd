// vyn sim device: a simulated device on a pseudo-terminal, steered from
// standard input so that a person or a script can inject faults while a
// program under test talks to it.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/device_simulator.h"
#include "support/console_input.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/number_grammar.h"
#include "tools/vyn/output.h"
#include "tools/vyn/simulator_console.h"

namespace vyn::tool {
namespace {

constexpr const char* kCommandHelp =
    "Commands on standard input, one per line; each answers with one line, help with this list:\n"
    "  drop                     the next frame loses the byte in its middle\n"
    "  badsum [header|payload]  the next frame has a wrong checksum (default: payload)\n"
    "  garbage N                send N bytes of garbage now (never a start byte), in the\n"
    "                           background\n"
    "  stall MS                 send nothing for MS milliseconds\n"
    "  clear                    undo the faults not yet spent: end a stall, forget garbage\n"
    "                           not yet sent, disarm drop, badsum and split\n"
    "  split [MS]               send the next frame in two halves, MS apart (default 2500)\n"
    "  unplug                   close the terminal: the port hangs up, the path goes away\n"
    "  replug                   a new terminal under the same path\n"
    "  notify on|off            periodic status, trace and debug notifications\n"
    "  period MS                the notification period (1 to 60000)\n"
    "  channels 1|2             answer as a rocker (1) or a joystick (2)\n"
    "  stats                    print the counters\n"
    "  help                     print this list\n"
    "  quit                     stop, as the end of input or Ctrl-C do\n"
    "N and MS are 0 to 4294967295 unless said otherwise.\n";

struct SimOptions {
  std::string directory;
  std::string name = "device";
  bool rocker = false;
  bool notify = false;
  unsigned period_ms = 100;
};

// Counts and times of the fault commands are 32-bit on the simulator's side.
constexpr int64_t kMaxCount = 0xFFFFFFFF;
// The longest notification period, on the command line and on input alike.
constexpr int64_t kMaxPeriodMs = 60000;

void PrintCounters(const sim::DeviceSimulator& device) {
  const sim::DeviceSimulatorCounters c = device.counters();
  PrintOutput(
      "stats: requests %llu; bad %llu; unknown %llu; stale %llu; replies %llu; "
      "notifications %llu; lost %llu; bytes received %llu; bytes sent %llu; stray %llu; "
      "garbage %llu; faults %llu; %s\n",
      static_cast<unsigned long long>(c.requests), static_cast<unsigned long long>(c.bad_requests),
      static_cast<unsigned long long>(c.unknown_requests),
      static_cast<unsigned long long>(c.stale_requests), static_cast<unsigned long long>(c.replies),
      static_cast<unsigned long long>(c.notifications),
      static_cast<unsigned long long>(c.lost_frames),
      static_cast<unsigned long long>(c.bytes_received),
      static_cast<unsigned long long>(c.bytes_sent), static_cast<unsigned long long>(c.stray_bytes),
      static_cast<unsigned long long>(c.garbage_bytes),
      static_cast<unsigned long long>(c.faults_applied),
      device.IsPlugged() ? "plugged" : "unplugged");
}

// Carries out one command line; false for "quit".
bool RunCommand(sim::DeviceSimulator& device, const std::vector<std::string_view>& words) {
  using std::chrono::milliseconds;
  const std::string_view command = words[0];
  const std::string_view argument = words.size() > 1 ? words[1] : std::string_view();
  // A command that takes a number answers the number's refusal.
  std::string refusal;
  const auto number = [&](int64_t min, int64_t max) {
    return ParseNumber(argument, min, max, &refusal);
  };
  std::string answer;
  if (command == "drop") {
    device.DropByte();
    answer = "ok: the next frame loses a byte";
  } else if (command == "badsum" && (argument.empty() || argument == "payload")) {
    device.CorruptChecksum(sim::ChecksumKind::kPayload);
    answer = "ok: the next frame has a wrong payload checksum";
  } else if (command == "badsum" && argument == "header") {
    device.CorruptChecksum(sim::ChecksumKind::kHeader);
    answer = "ok: the next frame has a wrong header checksum";
  } else if (const auto bytes = command == "garbage" ? number(0, kMaxCount) : std::nullopt) {
    device.SendGarbage(static_cast<uint32_t>(*bytes));
    answer = "ok: garbage queued";
  } else if (const auto ms = command == "stall" ? number(0, kMaxCount) : std::nullopt) {
    device.Stall(milliseconds(*ms));
    answer = "ok: stalled";
  } else if (const auto gap = command == "split" ? (argument.empty() ? std::optional<int64_t>(2500)
                                                                     : number(0, kMaxCount))
                                                 : std::nullopt) {
    device.SplitNextFrame(milliseconds(*gap));
    answer = "ok: the next frame is split";
  } else if (command == "clear") {
    device.ClearFaults();
    answer = "ok: faults cleared";
  } else if (command == "unplug") {
    answer = device.Unplug() ? "ok: unplugged" : "error: unplug failed";
  } else if (command == "replug") {
    answer = device.Replug() ? "ok: plugged in" : "error: replug failed";
  } else if (command == "notify" && (argument == "on" || argument == "off")) {
    device.SetNotifications(argument == "on");
    answer = argument == "on" ? "ok: notifications on" : "ok: notifications off";
  } else if (const auto period = command == "period" ? number(1, kMaxPeriodMs) : std::nullopt) {
    device.SetNotificationPeriod(milliseconds(*period));
    answer = "ok: period set";
  } else if (const auto channels = command == "channels" ? number(1, 2) : std::nullopt) {
    device.SetTwoChannelInput(*channels == 2);
    answer = *channels == 2 ? "ok: joystick" : "ok: rocker";
  } else if (command == "stats") {
    PrintCounters(device);
  } else if (command == "help") {
    WriteOutputText(kCommandHelp);
  } else if (command == "quit" || command == "exit") {
    return false;
  } else {
    answer =
        refusal.empty() ? "error: unknown command or argument (try help)" : "error: " + refusal;
  }
  if (!answer.empty()) PrintOutput("%s\n", answer.c_str());
  return true;
}

int RunSimDevice(const SimOptions& options) {
  // Before the simulator's thread exists, so that Ctrl-C reaches us as input.
  support::ConsoleInput input;
  sim::DeviceSimulatorOptions settings;
  settings.link_directory = options.directory;
  settings.link_name = options.name;
  settings.two_channel_input = !options.rocker;
  settings.notifications = options.notify;
  settings.notification_period = std::chrono::milliseconds(options.period_ms);
  sim::DeviceSimulator device(settings);
  if (!device.Start()) {
    return ReportSimulatorStartFailure("vyn sim device", "device", device.port_path(),
                                       device.LinkTaken());
  }
  RunSimulatorConsole(input, device.port_path(),
                      [&device](const auto& words) { return RunCommand(device, words); });
  device.Stop();
  return 0;
}

}  // namespace

void AddSimCommand(CLI::App& app) {
  CLI::App* sim = app.add_subcommand("sim", "Simulated devices on pseudo-terminals");
  sim->require_subcommand(1);
  auto options = std::make_shared<SimOptions>();
  CLI::App* device = sim->add_subcommand(
      "device",
      "Run a simulated device; prints the port path to open on its first line and runs until "
      "standard input ends, 'quit' or Ctrl-C");
  device
      ->add_option("--dir", options->directory,
                   "Existing directory for the port link (default: a new one below /tmp)")
      ->check(NonEmptyPath());
  device->add_option("--name", options->name, "Name of the port link")
      ->capture_default_str()
      ->check(NonEmptyPath());
  device->add_flag("--rocker", options->rocker,
                   "Answer as a one-channel input (default: joystick)");
  device->add_flag("--notify", options->notify, "Start with notifications on");
  device->add_option("--period", options->period_ms, "Notification period in milliseconds")
      ->capture_default_str()
      ->transform(NumberIn(1, kMaxPeriodMs));
  device->footer(kCommandHelp);
  device->callback([options] {
    const int result = RunSimDevice(*options);
    if (result != 0) throw CLI::RuntimeError(result);
  });
  AddSimBootLoaderCommand(*sim);
}

}  // namespace vyn::tool
