// The serial port driver against the simulated device on a real
// pseudo-terminal: every frame goes through the kernel both ways.
#include "vyn/serial/serial_port.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <vector>

#include "tests/serial/serial_port_fixture.h"
#include "tests/support/temp_dir.h"
#include "vyn/platform/serial_device.h"

namespace {

using std::chrono::seconds;
using vyn::test::SerialPortTest;

TEST(SerialPortSettingsTest, DefaultsSettingsAndRefusalsWithoutAThread) {
  CVYNSerialPort port;
  std::string name;
  int32_t id = -1;
  EXPECT_EQ(port.GetCOMPort(nullptr), "COM1");
  EXPECT_EQ(port.GetBaudRateAsID(&id), 6);
  EXPECT_EQ(id, 6);
  EXPECT_EQ(port.GetBaudRate(), 57600);
  EXPECT_EQ(port.SetSerialPortSettings("COM7", 11), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(port.GetSerialPortSettings(&name, &id), VYN_STATUS_SUCCESS);
  EXPECT_EQ(name, "COM7");
  EXPECT_EQ(id, 6);
  EXPECT_EQ(port.SetBaudRateAsID(10), VYN_STATUS_SUCCESS);
  EXPECT_EQ(port.GetBaudRate(), 921600);
  EXPECT_EQ(port.SetBaudRateAsID(-1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(port.SetProtocol(0x1234), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(port.SetProtocol(PROTOCOL_MCPU), VYN_STATUS_SUCCESS);
  EXPECT_EQ(port.WaitWhileBusy(0), VYN_STATUS_TIMEOUT);
  unsigned char frame[8] = {0x42, 0x01, 0, 0, 0};
  EXPECT_EQ(port.SendCommand(frame, 7), VYN_STATUS_BUSY);
  EXPECT_EQ(port.OpenSerialPort(false), VYN_STATUS_UNSPECIFIC_ERROR);
  port.SetCOMPort("/nonexistent/vyn-port");
  EXPECT_EQ(port.OpenSerialPort(true), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(port.CloseSerialPort(true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(vyn::platform::SerialDevicePath("COM3"), "/dev/ttyS2");
  EXPECT_EQ(vyn::platform::SerialDevicePath("ttyUSB0"), "/dev/ttyUSB0");
  EXPECT_EQ(vyn::platform::SerialDevicePath("/tmp/x"), "/tmp/x");
}

TEST_F(SerialPortTest, FramesGoOutAndRepliesComeBackAsMessages) {
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_BUSY);
  unsigned char frame[16] = {};
  const uint16_t length = GetVYNCommandSet().PrepareReqGetDeviceInfo(frame);
  ASSERT_EQ(port_.SendCommand(frame, length), VYN_STATUS_SUCCESS);
  // The caller's buffer carries what was sent: sequence number and checksum.
  EXPECT_NE(frame[5], 0);
  EXPECT_EQ(frame[6],
            static_cast<unsigned char>(frame[1] + frame[2] + frame[3] + frame[4] + frame[5]));
  ASSERT_TRUE(recorder_->WaitFor([&] { return recorder_->Count(MSG_SERIAL_FRAME_RECEIVED) == 1; },
                                 seconds(10)));
  const auto sent = recorder_->Frames(MSG_SERIAL_FRAME_SENT);
  ASSERT_EQ(sent.size(), 1u);
  EXPECT_EQ(sent[0].bytes, std::vector<unsigned char>(frame, frame + length));
  const auto received = recorder_->Frames(MSG_SERIAL_FRAME_RECEIVED);
  ASSERT_EQ(received[0].bytes[0], 0x42);
  EXPECT_EQ(received[0].bytes[1], 0x01);
  EXPECT_EQ(received[0].bytes[2], 0x40);  // the acknowledgement 0x4001
  const auto statistics = port_.GetSerialPortStatistics();
  EXPECT_EQ(statistics.frames_sent, 1u);
  EXPECT_EQ(statistics.bytes_sent, length);
  EXPECT_EQ(statistics.frames_received, 1u);
}

TEST_F(SerialPortTest, TenThousandFramesBackToBackAndAGarbageFlood) {
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  constexpr size_t kFrames = 10000;
  for (size_t i = 0; i < kFrames; ++i) {
    unsigned char frame[16] = {};
    const uint16_t length = GetVYNCommandSet().PrepareReqGetHardwareInfo(frame);
    int32_t status = port_.SendCommand(frame, length);
    // A busy slot after 100 ms is possible on a loaded machine: try again.
    while (status == VYN_STATUS_BUSY) status = port_.SendCommand(frame, length);
    ASSERT_EQ(status, VYN_STATUS_SUCCESS) << i;
  }
  ASSERT_TRUE(recorder_->WaitFor(
      [&] { return recorder_->Count(MSG_SERIAL_FRAME_RECEIVED) == kFrames; }, seconds(120)));
  EXPECT_EQ(recorder_->Count(MSG_SERIAL_FRAME_SENT), kFrames);
  auto statistics = port_.GetSerialPortStatistics();
  EXPECT_EQ(statistics.frames_sent, kFrames);
  EXPECT_EQ(statistics.frames_received, kFrames);
  EXPECT_EQ(statistics.ihcs + statistics.ipcs + statistics.isd + statistics.timeout, 0u);

  device_.SendGarbage(20000);
  ASSERT_TRUE(RoundTrip());
  statistics = port_.GetSerialPortStatistics();
  EXPECT_GE(statistics.isd, 20000u);
  EXPECT_EQ(statistics.frames_received, kFrames + 1);
}

TEST_F(SerialPortTest, RefusesAPortInUseAndStopsCleanly) {
  // Somebody else holds the port: the open is refused, no thread starts.
  const int other = open(device_.port_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(other, 0);
  ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
  EXPECT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_FALSE(port_.IsRunning());
  close(other);

  // A device without permission for us (root may open anything, so only
  // other users see this refusal).
  if (geteuid() != 0) {
    vyn::test::TempDir dir;
    const std::string locked = dir.File("locked-port");
    vyn::test::WriteFile(locked, "");
    ASSERT_EQ(chmod(locked.c_str(), 0), 0);
    CVYNSerialPort other_port;
    other_port.SetCOMPort(locked);
    EXPECT_EQ(other_port.OpenSerialPort(true), VYN_STATUS_UNSPECIFIC_ERROR);
  }

  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  // Stop with a frame just queued: the stop neither hangs nor crashes.
  unsigned char frame[16] = {};
  port_.SendCommand(frame, GetVYNCommandSet().PrepareReqGetDeviceInfo(frame));
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(port_.TerminateReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_LT(std::chrono::steady_clock::now() - start, seconds(5));
  EXPECT_FALSE(port_.IsRunning());
  EXPECT_EQ(port_.SendCommand(frame, 7), VYN_STATUS_BUSY);

  // Closing the port under the running thread ends the thread by itself,
  // before CloseSerialPort returns.
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  ASSERT_TRUE(RoundTrip());
  EXPECT_EQ(port_.CloseSerialPort(true), VYN_STATUS_SUCCESS);
  EXPECT_FALSE(port_.IsRunning());
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(RoundTrip());
}

}  // namespace
