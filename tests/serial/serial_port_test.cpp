// The serial port driver against the simulated device on a real
// pseudo-terminal: every frame goes through the kernel both ways.
#include "vyn/serial/serial_port.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/pseudo_terminal.h"
#include "tests/log/log_test_support.h"
#include "tests/serial/serial_port_fixture.h"
#include "vyn/platform/serial_device.h"

namespace {

using namespace vyn::test;  // NOLINT(google-build-using-namespace): the fixture's helpers

TEST(SerialPortSettingsTest, DefaultsSettingsAndRefusalsWithoutAThread) {
  CVYNSerialPort port;
  std::string name;
  int32_t id = -1;
  EXPECT_EQ(port.GetCOMPort(nullptr), "COM1");
  EXPECT_EQ(port.GetBaudRate(), 57600);
  // A refused speed leaves the name set and the speed as it was.
  EXPECT_EQ(port.SetSerialPortSettings("COM7", 11), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(port.GetSerialPortSettings(&name, &id), VYN_STATUS_SUCCESS);
  EXPECT_EQ(name + std::to_string(id), "COM76");
  EXPECT_EQ(port.SetBaudRateAsID(10), VYN_STATUS_SUCCESS);
  EXPECT_EQ(port.GetBaudRate(), 921600);
  EXPECT_EQ(port.SetBaudRateAsID(-1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(port.SetProtocol(0x1234), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(port.WaitWhileBusy(0), VYN_STATUS_TIMEOUT);
  unsigned char frame[8] = {0x42, 0x01, 0, 0, 0};
  EXPECT_EQ(port.SendCommand(frame, 7), VYN_STATUS_BUSY);
  EXPECT_EQ(port.OpenSerialPort(false), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(port.CloseSerialPort(true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(vyn::platform::SerialDevicePath("COM3"), "/dev/ttyS2");
  EXPECT_EQ(vyn::platform::SerialDevicePath("ttyUSB0"), "/dev/ttyUSB0");
  EXPECT_EQ(vyn::platform::SerialDevicePath("/tmp/x"), "/tmp/x");
}

TEST_F(SerialPortTest, FramesOfBothKindsGoOutNumberedAndRepliesComeBack) {
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_BUSY);
  CVYNCommandSet& commands = GetVYNCommandSet();
  unsigned char frames[3][16] = {};
  const uint16_t lengths[] = {commands.PrepareReqGetDeviceInfo(frames[0]),
                              commands.PrepareReqMotorsOn(frames[1]),
                              commands.PrepareReqGetHardwareInfo(frames[2])};
  for (int i = 0; i < 3; ++i) ASSERT_EQ(port_.SendCommand(frames[i], lengths[i]), 0) << i;
  // The caller's buffers carry what was sent, with the checksums the device
  // checks (the numbering is the command set's, proven in its round trips).
  ASSERT_TRUE(recorder_->WaitForCount(MSG_SERIAL_FRAME_RECEIVED, 2, seconds(10)));
  EXPECT_TRUE(WaitUntil([&] { return device_.counters().requests == 3; }, seconds(10)));
  EXPECT_EQ(device_.counters().bad_requests, 0u);
  const auto sent = recorder_->Frames(MSG_SERIAL_FRAME_SENT);
  ASSERT_EQ(sent.size(), 3u);
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(sent[i], FrameRecorder::Bytes(frames[i], frames[i] + lengths[i]));
  const auto received = recorder_->Frames(MSG_SERIAL_FRAME_RECEIVED);
  EXPECT_EQ(received[0][2], 0x40);  // the acknowledgement 0x4001
  EXPECT_EQ(received[1][1], 0x52);  // and 0x4052; the MCPU reply is junk to CCPU framing
  const auto statistics = port_.GetSerialPortStatistics();
  EXPECT_EQ(statistics.frames_sent, 3u);
  EXPECT_EQ(statistics.bytes_sent, 7u + 6u + 7u);
  EXPECT_EQ(statistics.frames_received, 2u);
}

TEST_F(SerialPortTest, FourSendersEveryAcceptedFrameArrivesOnceInSequence) {
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  const uint32_t dropped_before = port_.GetDroppedFramesCount();
  std::atomic<uint32_t> accepted{0};
  RunWithin(seconds(60), "four senders", [&] {
    std::vector<std::thread> senders;
    for (int sender = 0; sender < 4; ++sender) {
      senders.emplace_back([&, sender] {
        for (uint32_t i = 0; i < 2500; ++i) {
          // Sender and number in the payload make every frame unique.
          unsigned char frame[64] = {};
          const unsigned char ids[] = {static_cast<unsigned char>(sender),
                                       static_cast<unsigned char>(i & 0xFF),
                                       static_cast<unsigned char>(i >> 8)};
          const unsigned char rates[] = {0, 0, 0};
          const uint16_t length = GetVYNCommandSet().PrepareReqGetStatus(frame, 3, ids, rates);
          const int32_t status = port_.SendCommand(frame, length);
          // Only a slot busy for 100 ms on a loaded machine may refuse.
          EXPECT_TRUE(status == VYN_STATUS_SUCCESS || status == VYN_STATUS_BUSY) << status;
          accepted += status == VYN_STATUS_SUCCESS ? 1 : 0;
        }
      });
    }
    for (std::thread& sender : senders) sender.join();
  });
  ASSERT_GT(accepted, 1000u);
  ASSERT_TRUE(recorder_->WaitForCount(MSG_SERIAL_FRAME_RECEIVED, accepted, seconds(60)));
  std::this_thread::sleep_for(milliseconds(50));  // anything extra would show now
  const vyn::sim::DeviceSimulatorCounters device = device_.counters();
  EXPECT_EQ(device.requests, accepted);
  EXPECT_EQ(device.bad_requests + device.stray_bytes, 0u);
  // Each accepted frame was reported sent once, no two were the same, and
  // their numbers run from 1 to 255 and round again, never 0.
  const auto sent = recorder_->Frames(MSG_SERIAL_FRAME_SENT);
  ASSERT_EQ(sent.size(), accepted);
  std::set<std::string> payloads;
  for (size_t i = 0; i < sent.size(); ++i) {
    payloads.emplace(sent[i].begin() + 7, sent[i].end() - 1);
    if (i == 0) continue;
    ASSERT_EQ(sent[i][5], sent[i - 1][5] == 255 ? 1 : sent[i - 1][5] + 1) << i;
  }
  EXPECT_EQ(payloads.size(), accepted);
  EXPECT_EQ(port_.GetDroppedFramesCount(), dropped_before);
  auto statistics = port_.GetSerialPortStatistics();
  EXPECT_EQ(statistics.frames_sent, accepted);
  EXPECT_EQ(statistics.frames_received, accepted);
  EXPECT_EQ(statistics.ihcs + statistics.ipcs + statistics.isd + statistics.timeout, 0u);

  device_.SendGarbage(20000);
  ASSERT_TRUE(RoundTrip());
  statistics = port_.GetSerialPortStatistics();
  EXPECT_GE(statistics.isd, 20000u);
  EXPECT_EQ(statistics.frames_received, accepted + 1);
}

// The serial port's entries in the log files, read back.
std::vector<Record> PortEntries() {
  WaitUntilWritten();
  std::vector<Record> matching;
  for (const std::string& file : LogFiles()) {
    for (const Record& record : ReadEntries(file)) {
      if (record.size() > kText && record[kCaller] == "CVYNSerialPort") matching.push_back(record);
    }
  }
  return matching;
}

// An entry's time of day in milliseconds.
int64_t TimeOfDayMs(const Record& entry) {
  const std::string& t = entry[kTime];
  return ((std::stoll(t.substr(0, 2)) * 60 + std::stoll(t.substr(3, 2))) * 60 +
          std::stoll(t.substr(6, 2))) *
             1000 +
         std::stoll(entry[kMs]);
}

TEST(SerialPortOpenTest, FailuresSayWhyAndTheLogTellsTheLifecycle) {
  TempDir dir;
  ScopedCurrentDirectory in(dir.path());
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  ASSERT_EQ(log.Initialize(nullptr, "", ""), VYN_STATUS_SUCCESS);
  CVYNSerialPort port;
  std::string reason;
  // Opens `path` and returns the failure with its reason in `reason`.
  const auto open_failure = [&](const std::string& path) {
    port.SetCOMPort(path);
    EXPECT_EQ(port.InitializeReceivingThread(), VYN_STATUS_UNSPECIFIC_ERROR) << path;
    EXPECT_FALSE(port.IsRunning());
    return port.GetLastOpenFailure(&reason);
  };
  EXPECT_EQ(open_failure(dir.File("missing")), VYN_SERIAL_OPEN_MISSING);
  const std::string missing = reason;
  EXPECT_EQ(missing,
            "The port does not exist (" + dir.File("missing") + ": No such file or directory).");
  WriteFile(dir.File("plain"), "not a terminal");
  for (const std::string& path : {dir.File("plain"), dir.path()}) {
    EXPECT_EQ(open_failure(path), VYN_SERIAL_OPEN_NOT_SERIAL);
    EXPECT_EQ(reason.rfind("The port is not a serial device (" + path + ": ", 0), 0u) << reason;
  }
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  const int holder = open(terminal.slave_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_EQ(flock(holder, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(open_failure(terminal.slave_path()), VYN_SERIAL_OPEN_IN_USE);
  EXPECT_EQ(reason, "The port is in use by another program (" + terminal.slave_path() +
                        ": Device or resource busy).");
  close(holder);
  if (geteuid() != 0) {  // root opens anything
    WriteFile(dir.File("locked"), "");
    ASSERT_EQ(chmod(dir.File("locked").c_str(), 0), 0);
    EXPECT_EQ(open_failure(dir.File("locked")), VYN_SERIAL_OPEN_PERMISSION);
  }
  // Without a thread the caller opens, and reports, itself.
  port.SetCOMPort(dir.File("missing"));
  EXPECT_EQ(port.OpenSerialPort(true), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(port.GetLastOpenFailure(nullptr), VYN_SERIAL_OPEN_MISSING);

  // A good port, with a statistics line once a second: two are enough.
  vyn::sim::DeviceSimulator device;
  ASSERT_TRUE(device.Start());
  port.SetCOMPort(device.port_path());
  port.SetDumpMode(1);
  ASSERT_EQ(port.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(port.GetLastOpenFailure(&reason), VYN_SERIAL_OPEN_OK);
  EXPECT_EQ(reason, "");
  std::vector<Record> statistics;
  EXPECT_TRUE(WaitUntil(
      [&] {
        statistics.clear();
        for (const Record& entry : PortEntries()) {
          if (entry[kEvent] == "debug") statistics.push_back(entry);
        }
        return statistics.size() >= 2;
      },
      seconds(10)));
  port.TerminateReceivingThread();
  device.Stop();
  ASSERT_GE(statistics.size(), 2u);

  const std::vector<Record> entries = PortEntries();
  ASSERT_GE(entries.size(), 5u);
  // The failure's line, and its reason as an entry of its own.
  EXPECT_EQ(entries[0][kText], "The serial port could not be opened. GetLastError() = 2.");
  EXPECT_EQ(entries[0][kReference], dir.File("missing"));
  EXPECT_EQ(entries[1][kText], missing);
  EXPECT_EQ(entries[0][kEvent] + entries[1][kEvent], "errorerror");
  EXPECT_EQ(entries.back()[kText], "The receiving thread has been terminated.");
  const auto started = std::find_if(entries.begin(), entries.end(), [](const Record& entry) {
    return entry[kText] == "The receiving thread has been initialized.";
  });
  ASSERT_NE(started, entries.end());
  EXPECT_EQ((*started)[kReference], device.port_path());
  for (const Record& entry : statistics) {
    EXPECT_EQ(entry[kText].rfind("Serial status; received; ", 0), 0u);
  }
  // A second apart (log times and the port's clock may differ by a little).
  const int64_t kDayMs = 86400000;
  EXPECT_GE((TimeOfDayMs(statistics[1]) - TimeOfDayMs(statistics[0]) + kDayMs) % kDayMs, 950);
  log.Terminate();
}

}  // namespace
