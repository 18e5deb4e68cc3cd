// What the serial port writes to the system log, read back from the CSV file.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "sim/device_simulator.h"
#include "tests/log/log_test_support.h"
#include "vyn/core/status.h"
#include "vyn/serial/serial_port.h"

namespace {

using vyn::test::Record;

std::vector<Record> EntriesBy(const std::string& caller) {
  vyn::test::WaitUntilWritten();
  std::vector<Record> matching;
  for (const std::string& file : vyn::test::LogFiles()) {
    for (const Record& record : vyn::test::ReadEntries(file)) {
      if (record.size() > vyn::test::kText && record[vyn::test::kCaller] == caller) {
        matching.push_back(record);
      }
    }
  }
  return matching;
}

TEST(SerialPortLogTest, OpenFailuresLifecycleAndStatisticsLines) {
  vyn::test::TempDir dir;
  vyn::test::ScopedCurrentDirectory in(dir.path());
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  ASSERT_EQ(log.Initialize(nullptr, "", ""), VYN_STATUS_SUCCESS);
  CVYNSerialPort& port = GetVYNSerialPort();

  port.SetCOMPort(dir.File("no-such-port"));
  EXPECT_EQ(port.OpenSerialPort(true), VYN_STATUS_UNSPECIFIC_ERROR);

  vyn::sim::DeviceSimulator device;
  ASSERT_TRUE(device.Start());
  port.SetCOMPort(device.port_path());
  port.SetDumpMode(1);
  ASSERT_EQ(port.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  std::this_thread::sleep_for(std::chrono::milliseconds(2600));
  port.TerminateReceivingThread();
  port.SetDumpMode(0);
  device.Stop();

  const std::vector<Record> entries = EntriesBy("CVYNSerialPort");
  ASSERT_GE(entries.size(), 5u);
  EXPECT_EQ(entries[0][vyn::test::kEvent], "error");
  EXPECT_EQ(entries[0][vyn::test::kText],
            "The serial port could not be opened. GetLastError() = 2.");
  EXPECT_EQ(entries[0][vyn::test::kReference], dir.File("no-such-port"));
  // The reason follows as an entry of its own.
  EXPECT_EQ(entries[1][vyn::test::kEvent], "error");
  EXPECT_EQ(entries[1][vyn::test::kText], "The port does not exist (" + dir.File("no-such-port") +
                                              ": No such file or directory).");
  EXPECT_EQ(entries[2][vyn::test::kText], "The receiving thread has been initialized.");
  EXPECT_EQ(entries[2][vyn::test::kReference], device.port_path());
  EXPECT_EQ(entries.back()[vyn::test::kText], "The receiving thread has been terminated.");
  size_t statistics_lines = 0;
  for (const Record& entry : entries) {
    if (entry[vyn::test::kEvent] != "debug") continue;
    ++statistics_lines;
    EXPECT_EQ(entry[vyn::test::kText].rfind("Serial status; received; ", 0), 0u);
  }
  // Once a second at most: 2.6 s give two or three lines.
  EXPECT_GE(statistics_lines, 2u);
  EXPECT_LE(statistics_lines, 3u);
  log.Terminate();
}

}  // namespace
