// The vyn program's sessions with a device, as a user or a pipeline runs
// and ends them. `vyn send` counts only the undamaged reply to its own
// request; `vyn demo` names the CSV file its own run wrote. Each of SIGINT,
// SIGTERM and SIGHUP, and a reader of the output that goes away, ends a
// session soon, and what it made (the demo's simulator folder) is gone then;
// an output nobody reads neither blocks that end nor makes it hoard memory.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>

#include "sim/boot_loader_simulator.h"
#include "sim/device_simulator.h"
#include "support/pseudo_terminal.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"
#include "tests/support/test_frames.h"

namespace vyn::test {
namespace {

// Generous for a loaded machine; the program itself needs well under 100 ms.
constexpr int kEndLimitMs = 5000;
constexpr int kStartLimitMs = 30000;

bool Exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// What follows `label` in `text` up to `end`; empty without `label`.
std::string After(const std::string& text, const std::string& label, const char* end = "\n") {
  const size_t at = text.find(label);
  if (at == std::string::npos) return "";
  return text.substr(at + label.size(), text.find(end, at + label.size()) - at - label.size());
}

// A simulated device that sends a notification every `period`.
sim::DeviceSimulatorOptions Notifying(std::chrono::milliseconds period) {
  sim::DeviceSimulatorOptions options;
  options.notifications = true;
  options.notification_period = period;
  return options;
}

std::string Proc(pid_t pid, const char* file) {
  return ReadFile("/proc/" + std::to_string(pid) + "/" + file);
}

// Waits, without reading the child's output, until it has ended (a zombie
// not yet collected); false after `timeout_ms`.
bool EndsWithoutBeingRead(pid_t pid, int timeout_ms) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  while (std::chrono::steady_clock::now() < until) {
    if (After(Proc(pid, "stat"), ") ", " ") == "Z") return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

TEST(ProgramEnd, EachStopSignalOrAClosedPipeEndsMonitorAndDemo) {
  sim::DeviceSimulator device(Notifying(std::chrono::milliseconds(20)));
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
      const std::string folder = After(run.output(), "device on ", "/device");
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
  sim::DeviceSimulator device(Notifying(std::chrono::milliseconds(1)));
  ASSERT_TRUE(device.Start());
  ChildProcess monitor(Vyn({"monitor", device.port_path(), "-t", "600"}));
  ASSERT_TRUE(monitor.WaitForOutput("RX ", kStartLimitMs)) << monitor.output();
  // Answers to commands pile up in the simulator's output likewise: each
  // help answer is far longer than its request, so its output pipe fills
  // long before its input pipe does.
  ChildProcess sim(Vyn({"sim", "device"}));
  ASSERT_TRUE(sim.WaitForOutput("/device\n", kStartLimitMs)) << sim.output();
  std::string requests;
  for (int i = 0; i < 2000; ++i) requests += "help\n";
  sim.Write(requests);
  // From here on the test reads nothing: the pipes fill within moments.
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  const long before = std::atol(After(Proc(monitor.pid(), "status"), "VmRSS:").c_str());
  std::this_thread::sleep_for(std::chrono::seconds(2));
  const long after = std::atol(After(Proc(monitor.pid(), "status"), "VmRSS:").c_str());
  ASSERT_GT(before, 0);
  // Thousands of frames arrive meanwhile; kept, they would take megabytes.
  // AddressSanitizer holds freed memory in its quarantine, so resident
  // memory grows there whatever the program keeps.
#ifndef __SANITIZE_ADDRESS__
  EXPECT_LT(after - before, 2048) << before << " KiB, then " << after << " KiB";
#else
  static_cast<void>(after);
#endif
  EXPECT_GT(device.counters().notifications, 1500u);
  for (ChildProcess* run : {&monitor, &sim}) {
    run->Signal(SIGTERM);
    EXPECT_TRUE(EndsWithoutBeingRead(run->pid(), kEndLimitMs));
    ASSERT_TRUE(run->WaitForExit(kEndLimitMs));
    EXPECT_EQ(run->exit_code(), 0) << run->output();
  }
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

TEST(SendReply, OnlyTheMatchingUndamagedReplyCounts) {
  const Bytes notification = CcpuFrame(0x8002, {0x00});
  const Bytes reply = CcpuFrame(0x4001, {0x01, 0x02, 0x03, 0x04});
  Bytes damaged = reply;
  damaged.back() ^= 0x5A;
  struct Case {
    Bytes answer;
    // A reply that counts ends the wait at once; one that does not is
    // waited out, so that wait is kept short.
    const char* wait_ms;
  };
  const Case cases[] = {
      {Cat({notification, damaged}), "700"},
      {Cat({notification, CcpuFrame(0x4052, {0x01, 0x02, 0x03, 0x04})}), "700"},  // another's
      {Cat({notification, reply}), "20000"},
  };
  for (const Case& c : cases) {
    const bool counts = &c == &cases[2];
    SCOPED_TRACE(counts ? "the reply" : c.answer.back() == damaged.back() ? "damaged" : "other");
    support::PseudoTerminal line;
    // Held open here, the slave does not hang up before `vyn send` opens it.
    ASSERT_TRUE(line.Open() && line.HoldSlaveOpen());
    ChildProcess send(Vyn({"send", line.slave_path(), "GetDeviceInfo", "-w", c.wait_ms}));
    Bytes request(7);
    pollfd watched{line.master_descriptor(), POLLIN, 0};
    for (size_t got = 0; got < 7 && poll(&watched, 1, 10000) > 0;) {
      const ssize_t n = read(line.master_descriptor(), &request[got], 7 - got);
      if (n <= 0) break;
      got += static_cast<size_t>(n);
    }
    EXPECT_EQ(request[1], 0x01) << send.output();  // GetDeviceInfo
    ASSERT_EQ(write(line.master_descriptor(), c.answer.data(), c.answer.size()),
              static_cast<ssize_t>(c.answer.size()));
    ASSERT_TRUE(send.WaitForExit(30000));
    EXPECT_EQ(send.exit_code(), counts ? 0 : 1) << send.output();
    // The notification is shown as it passes in every case.
    EXPECT_NE(send.output().find("RX "), std::string::npos) << send.output();
    EXPECT_EQ(send.output().find("no reply within 700 ms") == std::string::npos, counts);
  }
}

// `vyn demo` in `folder`, where its log writes.
ChildResult DemoIn(const std::string& folder) {
  return RunChild({"/bin/sh", "-c", "cd '" + folder + "' && exec '" VYN_TOOL "' demo --pause 0"},
                  180);
}

TEST(DemoLogFile, EachDemoNamesItsOwnFileAndFailsWithoutOne) {
  TempDir shared;
  TempDir broken;
  // Logs/ taken by a regular file: the reason, no file named, a failure.
  WriteFile(broken.File("Logs"), "not a folder");
  // All three at once: two share a folder, one cannot write.
  ChildResult first;
  ChildResult other;
  ChildResult failed;
  std::thread second([&] { other = DemoIn(shared.path()); });
  std::thread third([&] { failed = DemoIn(broken.path()); });
  first = DemoIn(shared.path());
  second.join();
  third.join();
  ASSERT_EQ(first.exit_code, 0) << first.output;
  ASSERT_EQ(other.exit_code, 0) << other.output;
  const std::string mine = After(first.output, "CSV file: ");
  const std::string theirs = After(other.output, "CSV file: ");
  EXPECT_NE(mine, theirs);
  for (const std::string& file : {mine, theirs}) {
    EXPECT_EQ(std::filesystem::path(file).parent_path(),
              std::filesystem::canonical(shared.path()) / "Logs");
    EXPECT_GT(std::filesystem::file_size(file), 100u) << file;
  }
  EXPECT_NE(failed.exit_code, 0);
  EXPECT_EQ(After(failed.output, "CSV file: "), "");
  EXPECT_NE(failed.output.find("/Logs/VYN System Log "), std::string::npos) << failed.output;
  EXPECT_NE(failed.output.find(": Not a directory"), std::string::npos);
  EXPECT_NE(failed.output.find("the system log wrote no CSV file"), std::string::npos);
}

}  // namespace
}  // namespace vyn::test
