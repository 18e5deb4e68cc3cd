// The vyn program as a user or a pipeline ends it: each of SIGINT, SIGTERM
// and SIGHUP, and a reader of the output that goes away, ends it soon, and
// what it made (the demo's simulator folder) is gone then; an output nobody
// reads neither blocks that end nor makes it hoard memory.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <string>
#include <thread>

#include "sim/boot_loader_simulator.h"
#include "sim/device_simulator.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

namespace vyn::test {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

// Generous for a loaded machine; the program itself needs well under 100 ms.
constexpr int kEndLimitMs = 5000;
constexpr int kStartLimitMs = 30000;

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// A field of /proc/PID/status or /proc/PID/stat, from `key` on.
std::string ProcField(pid_t pid, const char* file, const char* key) {
  const std::string text = ReadFile("/proc/" + std::to_string(pid) + "/" + file);
  const size_t at = text.rfind(key);
  return at == std::string::npos ? "" : text.substr(at + std::strlen(key));
}

// Waits, without reading the child's output, until it has ended (a zombie
// not yet collected); false after `timeout_ms`.
bool EndsWithoutBeingRead(pid_t pid, int timeout_ms) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (std::chrono::steady_clock::now() < until) {
    if (ProcField(pid, "stat", ") ").rfind("Z", 0) == 0) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

TEST(ProgramEnd, EachStopSignalOrAClosedPipeEndsMonitorAndDemo) {
  sim::DeviceSimulatorOptions options;
  options.notifications = true;
  options.notification_period = std::chrono::milliseconds(20);
  sim::DeviceSimulator device(options);
  ASSERT_TRUE(device.Start());
  for (const bool demo : {false, true}) {
    for (const int signal_number : {SIGINT, SIGTERM, SIGHUP, 0}) {
      SCOPED_TRACE(std::string(demo ? "demo, " : "monitor, ") +
                   (signal_number == 0 ? "closed pipe" : strsignal(signal_number)));
      // Long pauses keep the demo inside its session when the stop comes.
      ChildProcess run(demo ? Vyn({"demo", "--pause", "5000"})
                            : Vyn({"monitor", device.port_path(), "-t", "600"}));
      ASSERT_TRUE(run.WaitForOutput(demo ? "TX " : "RX ", kStartLimitMs)) << run.output();
      // The demo's simulated device, as in "device on DIR/device".
      const std::string& shown = run.output();
      const size_t at = shown.find("device on /tmp/vyn-sim-");
      const std::string folder =
          at == std::string::npos ? ""
                                  : shown.substr(at + 10, shown.find("/device", at + 10) - at - 10);
      ASSERT_EQ(demo, Exists(folder)) << run.output();
      if (signal_number == 0) {
        run.CloseOutput();
      } else {
        run.Signal(signal_number);
      }
      ASSERT_TRUE(run.WaitForExit(kEndLimitMs)) << run.output();
      EXPECT_EQ(run.end_signal(), 0);
      // Stopping the monitor is what was asked; the demo did not finish, and
      // output that nobody took is a failure.
      EXPECT_EQ(run.exit_code() != 0, demo || signal_number == 0) << run.output();
      EXPECT_FALSE(demo && Exists(folder)) << folder;
    }
  }
}

TEST(ProgramEnd, AnOutputNobodyReadsNeitherGrowsMemoryNorBlocksTheEnd) {
  sim::DeviceSimulatorOptions options;
  options.notifications = true;
  options.notification_period = std::chrono::milliseconds(1);
  sim::DeviceSimulator device(options);
  ASSERT_TRUE(device.Start());
  ChildProcess monitor(Vyn({"monitor", device.port_path(), "-t", "600"}));
  ASSERT_TRUE(monitor.WaitForOutput("RX ", kStartLimitMs)) << monitor.output();
  // Answers to commands pile up in the simulator's output likewise: each
  // help answer is far longer than its request, so its output pipe fills
  // long before its input pipe does.
  TempDir dir;
  ChildProcess sim(Vyn({"sim", "device", "--dir", dir.path(), "--name", "port"}));
  ASSERT_TRUE(sim.WaitForOutput(dir.File("port"), kStartLimitMs)) << sim.output();
  std::string requests;
  for (int i = 0; i < 2000; ++i) requests += "help\n";
  sim.Write(requests);
  // From here on the test reads nothing: the pipes fill within moments.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const long before = std::atol(ProcField(monitor.pid(), "status", "VmRSS:").c_str());
  std::this_thread::sleep_for(std::chrono::seconds(2));
  const long after = std::atol(ProcField(monitor.pid(), "status", "VmRSS:").c_str());
  ASSERT_GT(before, 0);
  // Thousands of frames arrive meanwhile; kept, they would take megabytes.
  // AddressSanitizer holds freed memory in its quarantine, so resident
  // memory grows there whatever the program keeps.
  if (!kAddressSanitizer) {
    EXPECT_LT(after - before, 2048) << before << " KiB, then " << after << " KiB";
  }
  EXPECT_GT(device.counters().notifications, 1500u);
  for (ChildProcess* run : {&monitor, &sim}) {
    run->Signal(SIGTERM);
    EXPECT_TRUE(EndsWithoutBeingRead(run->pid(), kEndLimitMs));
    ASSERT_TRUE(run->WaitForExit(kEndLimitMs));
    EXPECT_EQ(run->exit_code(), 0) << run->output();
  }
  EXPECT_FALSE(Exists(dir.File("port")));
}

// A flash whose output reader goes away is cancelled at once rather than
// run to its end (128 KiB take about 15 s on the paced line).
TEST(ProgramEnd, AClosedOutputPipeCancelsAFirmwareTransmission) {
  TempDir dir;
  std::string image(128 * 1024, '\0');
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<char>(i * 7);
  WriteFile(dir.File("image.bin"), image);
  const ChildResult pack =
      RunVyn({"firmware", "pack", "-t", "mcpu", dir.File("image.bin"), dir.File("fw.bin")});
  ASSERT_EQ(pack.exit_code, 0) << pack.output;
  sim::BootLoaderSimulatorOptions options;
  options.baud_rate = 115200;
  sim::BootLoaderSimulator chip(options);
  ASSERT_TRUE(chip.Start());
  ChildProcess flash(Vyn({"firmware", "flash", chip.port_path(), dir.File("fw.bin")}));
  ASSERT_TRUE(flash.WaitForOutput("going to be programmed", kStartLimitMs)) << flash.output();
  flash.CloseOutput();
  EXPECT_TRUE(EndsWithoutBeingRead(flash.pid(), kEndLimitMs));
  ASSERT_TRUE(flash.WaitForExit(kEndLimitMs));
  EXPECT_EQ(flash.exit_code(), 1);
}

}  // namespace
}  // namespace vyn::test
