// The two users of a terminal line, the serial device (8N1) and the
// bootloader port (8E1), on pseudo-terminals: each holds the line alone and
// gives the terminal its settings back; the device's writes go on to the last
// byte and a hang-up shows as such; the port's waits end at their limit, at
// a byte, at a hang-up, or at once when cancelled.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/pseudo_terminal.h"
#include "tests/platform/wait_helpers.h"
#include "vyn/platform/boot_loader_port.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/scoped_descriptor.h"
#include "vyn/platform/serial_device.h"

namespace {

using namespace vyn::platform;  // NOLINT: the layer under test
using namespace vyn::test;      // NOLINT

termios Settings(int descriptor) {
  termios settings{};
  tcgetattr(descriptor, &settings);
  return settings;
}

int Exclusive(int descriptor) {
  int exclusive = -1;
  ioctl(descriptor, TIOCGEXCL, &exclusive);
  return exclusive;
}

TEST(TerminalUserTest, EachHoldsTheLineAloneAndGivesItsSettingsBack) {
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  const std::string& path = terminal.slave_path();
  // Opened before the users, whose exclusive use refuses later opens; set up
  // like a terminal session: echo, line editing, 9600 baud.
  const ScopedDescriptor outside(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  termios session = Settings(outside.get());
  session.c_lflag |= ECHO | ICANON | ISIG;
  session.c_iflag |= ICRNL;
  cfsetspeed(&session, B9600);
  ASSERT_EQ(tcsetattr(outside.get(), TCSANOW, &session), 0);
  const termios before = Settings(outside.get());
  SerialDevice device;
  BootLoaderPort port;
  SerialOpenStep step = SerialOpenStep::kNone;
  int error = 0;
  for (const bool serial : {true, false}) {
    SCOPED_TRACE(serial ? "serial device" : "bootloader port");
    if (serial) {
      ASSERT_TRUE(device.Open(path, 115200, &step, &error)) << error;
      EXPECT_FALSE(port.Open(path, &error));
      EXPECT_FALSE(port.IsOpen());
    } else {
      ASSERT_TRUE(port.Open(path, &error) && port.Configure(57600, &error)) << error;
      EXPECT_FALSE(device.Open(path, 115200, &step, &error));
      EXPECT_EQ(step, SerialOpenStep::kOpen);
    }
    EXPECT_EQ(error, EBUSY);
    const termios held = Settings(outside.get());
    EXPECT_EQ(Exclusive(outside.get()), 1);
    EXPECT_EQ(held.c_lflag & (ECHO | ICANON | ISIG), 0u);
    EXPECT_EQ(held.c_iflag & (ICRNL | IXON), 0u);
    EXPECT_EQ(held.c_cflag & (CSIZE | CSTOPB | CRTSCTS), tcflag_t{CS8});
    EXPECT_EQ(cfgetospeed(&held), serial ? B115200 : B57600);
    EXPECT_EQ(held.c_cc[VMIN], 1);
    EXPECT_EQ(held.c_cc[VTIME], 0);
    serial ? device.Close() : port.Close();
    EXPECT_EQ(Exclusive(outside.get()), 0);
    const termios after = Settings(outside.get());
    EXPECT_EQ(std::memcmp(&after, &before, sizeof after), 0);
  }
  // A rate the terminal has no constant for is refused; nothing stays open.
  EXPECT_FALSE(device.Open(path, 12345, &step, &error));
  EXPECT_EQ(step, SerialOpenStep::kWriteSettings);
  EXPECT_EQ(error, EINVAL);
  EXPECT_TRUE(device.Open(path, 115200, &step, &error)) << error;
}

TEST(SerialDeviceTest, WritesUntilTheLineIsFullSendsBytesUnchangedAndSeesAHangUp) {
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  SerialDevice device;
  ASSERT_TRUE(device.Open(terminal.slave_path(), 115200, nullptr, nullptr));
  const int port = device.descriptor();
  const int master = terminal.master_descriptor();
  uint8_t byte = 0;
  EXPECT_EQ(ReadDescriptor(port, &byte, 1).status, IoStatus::kWouldBlock);
  EXPECT_FALSE(WaitForDescriptor(port, false, nullptr, 50).readable);
  // Nobody reads: the writes fill the terminal and then would block. What
  // went out arrives unchanged (raw: no line-end translation of 0x0A).
  std::vector<uint8_t> sent(size_t{1} << 20);
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<uint8_t>(i * 7 + i / 251);
  size_t done = 0;
  IoResult put;
  while ((put = WriteDescriptor(port, &sent[done], sent.size() - done)).status == IoStatus::kDone) {
    done += put.count;
  }
  EXPECT_EQ(put.status, IoStatus::kWouldBlock);
  ASSERT_GT(done, 0u);
  std::vector<uint8_t> received(done + 1);
  size_t got = 0;
  while (got < done && WaitForDescriptor(master, false, nullptr, 1000).readable) {
    const auto result = ReadDescriptor(master, &received[got], received.size() - got);
    if (result.status != IoStatus::kDone) break;
    got += result.count;
  }
  EXPECT_EQ(got, done);
  EXPECT_TRUE(std::equal(received.begin(), received.begin() + got, sent.begin()));
  // The other side goes away: the wait, reading and writing all say so.
  terminal.Close();
  EXPECT_TRUE(WaitForDescriptor(port, false, nullptr, 5000).hung_up);
  EXPECT_EQ(ReadDescriptor(port, &byte, 1).status, IoStatus::kHungUp);
  EXPECT_EQ(WriteDescriptor(port, &byte, 1).status, IoStatus::kHungUp);
}

TEST(BootLoaderPortTest, WaitsEndAtTheLimitAByteAHangUpOrAtOnceWhenCancelled) {
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  BootLoaderPort port;
  int error = 0;
  ASSERT_TRUE(port.Open(terminal.slave_path(), &error)) << error;
  ASSERT_TRUE(port.Configure(115200, &error)) << error;
  port.SetReadTimeout(100);
  milliseconds waited = Timed([&] { EXPECT_EQ(port.ReadByte(), -1); });
  EXPECT_GE(waited, milliseconds(100));
  EXPECT_LT(waited, Late(100));
  const uint8_t sent[] = {0xA5, 0x00, 0x7F};
  port.Write(sent, sizeof sent);
  uint8_t echoed[3] = {};
  ASSERT_TRUE(WaitForDescriptor(terminal.master_descriptor(), false, nullptr, 2000).readable);
  EXPECT_EQ(ReadDescriptor(terminal.master_descriptor(), echoed, 3).count, 3u);
  EXPECT_EQ(std::memcmp(echoed, sent, sizeof sent), 0);
  ASSERT_EQ(WriteDescriptor(terminal.master_descriptor(), echoed, 1).count, 1u);
  EXPECT_EQ(port.ReadByte(), 0xA5);

  // Another thread's Cancel ends a long read and a long pause at once; until
  // ResetCancel every later one fails without waiting.
  port.SetReadTimeout(20000);
  for (const bool read : {true, false}) {
    std::thread canceller([&] {
      std::this_thread::sleep_for(milliseconds(50));
      port.Cancel();
    });
    waited =
        Timed([&] { EXPECT_EQ(read ? port.ReadByte() : int{port.Pause(20000)}, read ? -1 : 0); });
    canceller.join();
    EXPECT_LT(waited, Late(50)) << (read ? "read" : "pause");
    waited = Timed([&] {
      EXPECT_EQ(port.ReadByte(), -1);
      EXPECT_FALSE(port.Pause(20000));
    });
    EXPECT_LT(waited, Late(0));
    port.ResetCancel();
  }
  waited = Timed([&] { EXPECT_TRUE(port.Pause(30)); });
  EXPECT_GE(waited, milliseconds(30));

  // The line hangs up: a read with a long limit ends at once.
  terminal.Close();
  waited = Timed([&] { EXPECT_EQ(port.ReadByte(), -1); });
  EXPECT_LT(waited, Late(0));
}

}  // namespace
