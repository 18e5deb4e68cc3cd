// vyn monitor PORT: the device's traffic as live traffic-monitor lines.
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>

#include "support/console_input.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/link_session.h"
#include "vyn/serial/serial_port.h"

namespace vyn::tool {
namespace {

struct MonitorOptions {
  std::string port;
  int baud_id = 6;
  bool mcpu = false;
  double seconds = 0;
};

void RunMonitor(const MonitorOptions& options) {
  // Before any thread starts, so that Ctrl-C reaches us as input.
  vyn::support::ConsoleInput console;
  LinkSession session(options.port, options.baud_id, options.mcpu, false);
  std::fprintf(stderr, "monitoring %s; end with Ctrl-C or end of input\n", options.port.c_str());
  if (options.seconds > 0) {
    std::this_thread::sleep_for(std::chrono::duration<double>(options.seconds));
  } else {
    std::string line;
    while (console.ReadLine(&line) == vyn::support::ConsoleInput::Result::kLine) {
    }
  }
  std::fprintf(stderr, "%s\n", GetVYNSerialPort().GetSerialPortStatus().c_str());
}

}  // namespace

void AddMonitorCommand(CLI::App& app) {
  CLI::App* monitor = app.add_subcommand("monitor", "Show a device's traffic as it arrives");
  static MonitorOptions options;
  monitor->add_option("PORT", options.port, "Port name or path (COM1, ttyUSB0, /dev/pts/3)")
      ->required();
  monitor->add_option("-b,--baud", options.baud_id, "Baud id 0-10 (6 = 57600)")
      ->check(CLI::Range(0, 10))
      ->capture_default_str();
  monitor->add_flag("--mcpu", options.mcpu, "Expect motor-processor frames ('>') instead of 'B'");
  monitor->add_option("-t,--seconds", options.seconds, "Stop after this many seconds");
  monitor->callback([] { RunMonitor(options); });
}

}  // namespace vyn::tool
