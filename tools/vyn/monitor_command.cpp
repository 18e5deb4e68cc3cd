// vyn monitor PORT: the device's traffic as live traffic-monitor lines.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>

#include "support/interrupt_watch.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/link_session.h"
#include "tools/vyn/number_grammar.h"
#include "tools/vyn/output.h"
#include "vyn/serial/serial_port.h"

namespace vyn::tool {
namespace {

using Event = vyn::support::InterruptWatch::Event;

// A month; more is a typo rather than a plan.
constexpr int64_t kMaxMonitorSeconds = 30 * 24 * 3600;

struct MonitorOptions {
  std::string port;
  int baud_id = 6;
  bool mcpu = false;
  unsigned seconds = 0;  // 0: until the end of standard input
};

void RunMonitor(const MonitorOptions& options) {
  // Before any thread starts, so that Ctrl-C, SIGTERM and SIGHUP reach us
  // as events and the port and terminal are put back in order.
  vyn::support::InterruptWatch watch;
  watch.WatchOutputClosed(STDOUT_FILENO);
  if (options.seconds <= 0) watch.WatchInputEnd(STDIN_FILENO);
  LinkSession session(options.port, options.baud_id, options.mcpu, false);
  WriteErrorLine("monitoring " + options.port + "; end with Ctrl-C" +
                 (options.seconds > 0 ? " or when the time is up" : " or end of input"));
  using Clock = std::chrono::steady_clock;
  const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                                   std::chrono::seconds(options.seconds));
  Event event = Event::kWoken;
  for (;;) {
    int timeout_ms = -1;
    if (options.seconds > 0) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
      if (left.count() <= 0) break;
      timeout_ms = static_cast<int>(std::min<long long>(left.count() + 1, 1 << 30));
    }
    event = watch.Wait(timeout_ms);
    if (event != Event::kWoken && event != Event::kTimedOut) break;
  }
  WriteErrorLine(GetVYNSerialPort().GetSerialPortStatus());
  // Nobody reads what would follow; the exit code says the run was cut short.
  if (event == Event::kOutputClosed) throw CLI::RuntimeError(1);
}

}  // namespace

void AddMonitorCommand(CLI::App& app) {
  CLI::App* monitor = app.add_subcommand("monitor", "Show a device's traffic as it arrives");
  static MonitorOptions options;
  monitor->add_option("PORT", options.port, "Port name or path (COM1, ttyUSB0, /dev/pts/3)")
      ->required()
      ->check(NonEmptyPath());
  monitor->add_option("-b,--baud", options.baud_id, "Baud id 0-10 (6 = 57600)")
      ->transform(NumberIn(0, 10))
      ->capture_default_str();
  monitor->add_flag("--mcpu", options.mcpu, "Expect motor-processor frames ('>') instead of 'B'");
  monitor
      ->add_option("-t,--seconds", options.seconds,
                   "Stop after this many seconds (default, or 0: at the end of standard input)")
      ->transform(NumberIn(0, kMaxMonitorSeconds));
  monitor->callback([] { RunMonitor(options); });
}

}  // namespace vyn::tool
