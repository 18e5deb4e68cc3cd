// `vyn monitor` and `vyn demo` as a user or a pipeline ends them: each of
// SIGINT, SIGTERM and SIGHUP, and a reader of the output that goes away,
// ends the program soon, and the simulator folder it made is gone then.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "sim/boot_loader_simulator.h"
#include "sim/device_simulator.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

namespace {

using vyn::test::ChildProcess;
using vyn::test::Vyn;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

// Generous for a loaded machine; the program itself needs well under 100 ms.
constexpr int kEndLimitMs = 5000;
constexpr int kStartLimitMs = 30000;

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// The folder of the simulated device the demo names in "device on DIR/device".
std::string DemoSimulatorFolder(const std::string& output) {
  const size_t at = output.find("device on /tmp/vyn-sim-");
  if (at == std::string::npos) return "";
  const size_t start = at + std::string("device on ").size();
  const size_t end = output.find("/device", start);
  return end == std::string::npos ? "" : output.substr(start, end - start);
}

class MonitorEnd : public testing::Test {
 protected:
  void SetUp() override {
    vyn::sim::DeviceSimulatorOptions options;
    options.notifications = true;
    options.notification_period = std::chrono::milliseconds(20);
    device_ = std::make_unique<vyn::sim::DeviceSimulator>(options);
    ASSERT_TRUE(device_->Start());
  }
  std::unique_ptr<vyn::sim::DeviceSimulator> device_;
};

TEST_F(MonitorEnd, EachStopSignalOrAClosedPipeEndsAMonitorThatRunsForMinutes) {
  for (const int signal_number : {SIGINT, SIGTERM, SIGHUP, 0}) {
    SCOPED_TRACE(signal_number == 0 ? "closed pipe" : strsignal(signal_number));
    ChildProcess monitor(Vyn({"monitor", device_->port_path(), "-t", "600"}));
    ASSERT_TRUE(monitor.WaitForOutput("RX ", kStartLimitMs)) << monitor.output();
    if (signal_number == 0) {
      monitor.CloseOutput();
    } else {
      monitor.Signal(signal_number);
    }
    ASSERT_TRUE(monitor.WaitForExit(kEndLimitMs)) << monitor.output();
    EXPECT_EQ(monitor.end_signal(), 0);
    // Stopping is what was asked; output that nobody took is a failure.
    EXPECT_EQ(monitor.exit_code() != 0, signal_number == 0) << monitor.output();
  }
}

// Resident memory of a process in KiB, from /proc; 0 when unknown.
long ResidentKiB(pid_t pid) {
  const std::string status = vyn::test::ReadFile("/proc/" + std::to_string(pid) + "/status");
  const size_t at = status.find("VmRSS:");
  return at == std::string::npos ? 0 : std::stol(status.substr(at + 6));
}

// Waits, without reading the child's output, until it has ended (a zombie
// not yet collected); false after `timeout_ms`.
bool EndsWithoutBeingRead(pid_t pid, int timeout_ms) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (std::chrono::steady_clock::now() < until) {
    const std::string stat = vyn::test::ReadFile("/proc/" + std::to_string(pid) + "/stat");
    const size_t paren = stat.rfind(')');
    if (paren == std::string::npos || stat.substr(paren + 2, 1) == "Z") return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

TEST(MonitorStall, AnOutputNobodyReadsNeitherGrowsMemoryNorBlocksTheEnd) {
  vyn::sim::DeviceSimulatorOptions options;
  options.notifications = true;
  options.notification_period = std::chrono::milliseconds(1);
  vyn::sim::DeviceSimulator device(options);
  ASSERT_TRUE(device.Start());
  ChildProcess monitor(Vyn({"monitor", device.port_path(), "-t", "600"}));
  ASSERT_TRUE(monitor.WaitForOutput("RX ", kStartLimitMs)) << monitor.output();
  // From here on the test reads nothing: the pipe fills within moments.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const long before = ResidentKiB(monitor.pid());
  std::this_thread::sleep_for(std::chrono::seconds(2));
  const long after = ResidentKiB(monitor.pid());
  ASSERT_GT(before, 0);
  // Thousands of frames a second arrive meanwhile; kept, they would take
  // megabytes. AddressSanitizer holds freed memory in its quarantine, so
  // resident memory grows there whatever the program keeps: the figure is
  // checked in the other builds.
  if (!kAddressSanitizer) {
    EXPECT_LT(after - before, 2048) << before << " KiB, then " << after << " KiB";
  }
  EXPECT_GT(device.counters().notifications, 1500u);
  monitor.Signal(SIGTERM);
  ASSERT_TRUE(monitor.WaitForExit(kEndLimitMs));
  EXPECT_EQ(monitor.exit_code(), 0) << monitor.output();
}

// Answers to commands pile up in an output pipe that nobody reads: the
// simulator drops them rather than block, so it still ends on a signal.
TEST(SimDeviceStall, AnswersNobodyReadsDoNotKeepTheSimulatorFromEnding) {
  vyn::test::TempDir dir;
  const std::string link = dir.File("port");
  ChildProcess sim(Vyn({"sim", "device", "--dir", dir.path(), "--name", "port"}));
  ASSERT_TRUE(sim.WaitForOutput(link, kStartLimitMs)) << sim.output();
  // Each help answer is far longer than its request: the output pipe fills
  // long before the input pipe does.
  std::string requests;
  for (int i = 0; i < 2000; ++i) requests += "help\n";
  sim.Write(requests);
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  sim.Signal(SIGTERM);
  EXPECT_TRUE(EndsWithoutBeingRead(sim.pid(), kEndLimitMs));
  ASSERT_TRUE(sim.WaitForExit(kEndLimitMs));
  EXPECT_FALSE(Exists(link));
}

// A flash whose output reader goes away is cancelled at once rather than
// run to its end (128 KiB take about 15 s on the paced line).
TEST(FirmwareFlashEnd, AClosedOutputPipeCancelsTheTransmission) {
  vyn::test::TempDir dir;
  std::string image(128 * 1024, '\0');
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * 7);
  vyn::test::WriteFile(dir.File("image.bin"), image);
  ChildProcess pack(
      Vyn({"firmware", "pack", "-t", "mcpu", dir.File("image.bin"), dir.File("fw.bin")}));
  ASSERT_TRUE(pack.WaitForExit(kStartLimitMs));
  ASSERT_EQ(pack.exit_code(), 0) << pack.output();
  vyn::sim::BootLoaderSimulatorOptions options;
  options.baud_rate = 115200;
  vyn::sim::BootLoaderSimulator chip(options);
  ASSERT_TRUE(chip.Start());
  ChildProcess flash(Vyn({"firmware", "flash", chip.port_path(), dir.File("fw.bin")}));
  ASSERT_TRUE(flash.WaitForOutput("going to be programmed", kStartLimitMs)) << flash.output();
  flash.CloseOutput();
  EXPECT_TRUE(EndsWithoutBeingRead(flash.pid(), kEndLimitMs));
  ASSERT_TRUE(flash.WaitForExit(kEndLimitMs));
  EXPECT_EQ(flash.exit_code(), 1);
}

TEST(DemoEnd, SignalsAndAClosedPipeEndTheDemoAndRemoveItsSimulator) {
  struct Case {
    int signal_number;  // 0: the output pipe is closed instead
  };
  for (const Case c : {Case{SIGINT}, Case{SIGTERM}, Case{SIGHUP}, Case{0}}) {
    SCOPED_TRACE(c.signal_number == 0 ? "closed pipe" : strsignal(c.signal_number));
    // Long pauses keep the demo inside its session when the signal comes.
    ChildProcess demo(Vyn({"demo", "--pause", "5000"}));
    ASSERT_TRUE(demo.WaitForOutput("TX ", kStartLimitMs)) << demo.output();
    const std::string folder = DemoSimulatorFolder(demo.output());
    ASSERT_FALSE(folder.empty()) << demo.output();
    ASSERT_TRUE(Exists(folder));
    if (c.signal_number == 0) {
      demo.CloseOutput();
    } else {
      demo.Signal(c.signal_number);
    }
    ASSERT_TRUE(demo.WaitForExit(kEndLimitMs)) << demo.output();
    EXPECT_EQ(demo.end_signal(), 0);
    EXPECT_NE(demo.exit_code(), 0);
    EXPECT_FALSE(Exists(folder)) << folder;
  }
}

}  // namespace
