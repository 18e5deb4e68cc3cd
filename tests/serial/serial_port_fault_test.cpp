// Faults of the serial port met by using it as a clumsy or hostile program
// would: stops racing the thread's own end, frames that reached the device
// after the line had gone down or vanished without a trace, a reopen that
// took over another user's terminal.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "support/file_system.h"
#include "support/pseudo_terminal.h"
#include "tests/serial/serial_port_fixture.h"
#include "tests/support/temp_dir.h"

namespace {

using namespace vyn::test;  // NOLINT(google-build-using-namespace): the fixture's helpers

// True while nobody holds the slave of `terminal` open: its master then
// reports a hang-up.
bool SlaveUnused(const vyn::support::PseudoTerminal& terminal) {
  pollfd watched{terminal.master_descriptor(), POLLIN, 0};
  return poll(&watched, 1, 0) > 0 && (watched.revents & POLLHUP) != 0;
}

// Opens terminals until one gets the slave path `wanted` (freed a moment ago
// and so the lowest free number, unless another program took it first).
bool ReuseTerminalNumber(const std::string& wanted, vyn::support::PseudoTerminal* reused) {
  std::vector<vyn::support::PseudoTerminal> others;
  for (int i = 0; i < 64; ++i) {
    vyn::support::PseudoTerminal terminal;
    if (!terminal.Open()) return false;
    if (terminal.slave_path() == wanted) {
      *reused = std::move(terminal);
      return true;
    }
    others.push_back(std::move(terminal));
  }
  return false;
}

TEST_F(SerialPortTest, CloseThenTerminateAtOnceNeverHangs) {
  RunWithin(seconds(90), "CloseSerialPort(true) then TerminateReceivingThread()", [this] {
    for (int round = 0; round < 600; ++round) {
      ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS) << round;
      // Every other round with a frame on its way, which keeps the thread
      // running past the close.
      if (round % 2 == 1) SendSmallRequest(port_);
      EXPECT_EQ(port_.CloseSerialPort(true), VYN_STATUS_SUCCESS);
      EXPECT_EQ(port_.TerminateReceivingThread(), VYN_STATUS_SUCCESS);
      ASSERT_FALSE(port_.IsRunning()) << round;
    }
    // The same race through the destructor, as at library unload.
    for (int round = 0; round < 300; ++round) {
      auto port = std::make_unique<CVYNSerialPort>();
      port->SetCOMPort(device_.port_path());
      ASSERT_EQ(port->InitializeReceivingThread(), VYN_STATUS_SUCCESS);
      port->CloseSerialPort(true);
    }
  });
  // A stop with a frame queued leaves no thread to send to; a close with
  // nothing waiting ends the thread before it returns.
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(SendSmallRequest(port_), VYN_STATUS_SUCCESS);
  EXPECT_EQ(port_.TerminateReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(SendSmallRequest(port_), VYN_STATUS_BUSY);
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  ASSERT_TRUE(RoundTrip());
  EXPECT_EQ(port_.CloseSerialPort(true), VYN_STATUS_SUCCESS);
  EXPECT_FALSE(port_.IsRunning());
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(RoundTrip());
}

TEST_F(SerialPortTest, SendersKeepGoingWhileThePortIsClosedAndReopened) {
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  const uint32_t dropped_before = port_.GetDroppedFramesCount();
  std::atomic<uint32_t> accepted{0};
  std::atomic<bool> stop{false};
  RunWithin(seconds(90), "senders against close, open and stop", [&] {
    std::vector<std::thread> senders;
    for (int i = 0; i < 4; ++i) {
      senders.emplace_back([&] {
        while (!stop) {
          const int32_t status = SendSmallRequest(port_);
          accepted += status == VYN_STATUS_SUCCESS ? 1 : 0;
          if (status != VYN_STATUS_SUCCESS) {
            EXPECT_TRUE(status == VYN_STATUS_BUSY || status == VYN_STATUS_NO_CONNECTION) << status;
            std::this_thread::yield();
          }
        }
      });
    }
    // Close, stop, reopen (reporting or not) and start again, in turns.
    for (unsigned step = 0; step < 200; ++step) {
      if (step % 5 == 0) port_.CloseSerialPort(true);
      if (step % 5 == 1) port_.TerminateReceivingThread();
      if (step % 5 == 2) port_.OpenSerialPort(step % 2 == 0);
      if (step % 5 > 2 && !port_.IsRunning()) {
        EXPECT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
      }
      std::this_thread::sleep_for(milliseconds(step % 7));
    }
    stop = true;
    for (std::thread& sender : senders) sender.join();
    port_.TerminateReceivingThread();
  });
  // Every accepted frame reached the device or was counted as dropped
  // (closing or reopening the port once discarded frames that it had
  // already reported as sent).
  const auto delivered = [&] {
    return device_.counters().requests + (port_.GetDroppedFramesCount() - dropped_before);
  };
  EXPECT_TRUE(WaitUntil([&] { return delivered() >= accepted; }, seconds(10)));
  EXPECT_EQ(delivered(), accepted);
  EXPECT_GT(accepted, 100u);

  // A reply cut short by a close stays in the assembler as the start of a
  // frame across the next open; it times out after 2 s, and the replies
  // after it come through.
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(RoundTripWithin(seconds(15)));
}

TEST_F(SerialPortTest, NoCommandReachesTheDeviceAfterTheLineWentDown) {
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  ASSERT_TRUE(RoundTrip());
  const uint64_t requests_before = device_.counters().requests;
  const uint32_t dropped_before = port_.GetDroppedFramesCount();
  const size_t sent_before = recorder_->Count(MSG_SERIAL_FRAME_SENT);
  ASSERT_TRUE(device_.Unplug());
  // Frames accepted before the thread sees the hang-up cannot be written:
  // each is dropped; after that nothing is accepted.
  uint32_t accepted = 0;
  ASSERT_TRUE(WaitUntil(
      [&] {
        const int32_t status = SendSmallRequest(port_);
        accepted += status == VYN_STATUS_SUCCESS ? 1 : 0;
        return status == VYN_STATUS_NO_CONNECTION;
      },
      milliseconds(5000)));
  ASSERT_TRUE(WaitUntil([&] { return port_.GetDroppedFramesCount() == dropped_before + accepted; },
                        milliseconds(5000)));
  EXPECT_EQ(SendSmallRequest(port_), VYN_STATUS_NO_CONNECTION);
  EXPECT_EQ(port_.WaitWhileBusy(100), VYN_STATUS_SUCCESS);

  ASSERT_TRUE(device_.Replug());
  ASSERT_TRUE(RoundTripWithin(seconds(10)));
  std::this_thread::sleep_for(milliseconds(100));
  // The device got the round trip's request and nothing from the time the
  // line was down; the dropped frames were never reported as sent.
  EXPECT_EQ(device_.counters().requests, requests_before + 1);
  EXPECT_EQ(recorder_->Count(MSG_SERIAL_FRAME_SENT), sent_before + 1);
  // The reopen counted from zero.
  EXPECT_EQ(port_.GetSerialPortStatistics().frames_received, 1u);
}

// Sends the largest frames the slot takes to a peer that never reads until
// one has waited 200 ms; returns how many were accepted. A port being
// opened again is waited for.
uint32_t FillTheLine(CVYNSerialPort& port, unsigned char* frame) {
  uint32_t accepted = 0;
  for (int tries = 0; tries < 5000; ++tries) {
    const int32_t status = port.SendCommand(frame, CVYNSerialPort::kSendSlotSize);
    if (status == VYN_STATUS_NO_CONNECTION) {
      std::this_thread::sleep_for(milliseconds(1));
      continue;
    }
    if (status != VYN_STATUS_SUCCESS) break;
    ++accepted;
    if (port.WaitWhileBusy(200) == VYN_STATUS_TIMEOUT) break;
  }
  return accepted;
}

TEST_F(SerialPortTest, AWaitingFrameIsDroppedAndCountedWhateverEndsIt) {
  vyn::support::PseudoTerminal peer;
  ASSERT_TRUE(peer.Open());
  port_.SetCOMPort(peer.slave_path());
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  unsigned char frame[CVYNSerialPort::kSendSlotSize] = {0x42, 0x01, 0x40};
  constexpr uint16_t kPayload = CVYNSerialPort::kSendSlotSize - 8;
  frame[3] = kPayload & 0xFF;
  frame[4] = kPayload >> 8;
  const uint32_t dropped_before = port_.GetDroppedFramesCount();
  const auto dropped = [&] { return port_.GetDroppedFramesCount() - dropped_before; };
  uint32_t accepted = FillTheLine(port_, frame);
  // Every accepted frame is either reported sent or counted as dropped.
  const auto accounted = [&] {
    return WaitUntil(
        [&] { return recorder_->Count(MSG_SERIAL_FRAME_SENT) + dropped() == accepted; },
        milliseconds(2000));
  };
  // A sender waits its 100 ms for the slot, then hears that it is busy
  // (unless the line took the waiting frame meanwhile).
  const auto start = Clock::now();
  const int32_t status = port_.SendCommand(frame, sizeof frame);
  if (status == VYN_STATUS_SUCCESS) {
    ++accepted;
  } else {
    EXPECT_EQ(status, VYN_STATUS_BUSY);
    EXPECT_GE(Clock::now() - start, milliseconds(100));
  }

  // A reopen (quiet or not), a close (which keeps the thread: it still had
  // work) and a stop each drop the frame that waits.
  EXPECT_EQ(port_.OpenSerialPort(false), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(accounted()) << "quiet reopen";
  accepted += FillTheLine(port_, frame);
  EXPECT_EQ(port_.OpenSerialPort(true), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(accounted()) << "reopen";
  accepted += FillTheLine(port_, frame);
  EXPECT_EQ(port_.CloseSerialPort(true), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(port_.IsRunning());
  EXPECT_TRUE(accounted()) << "close";
  accepted += FillTheLine(port_, frame);
  port_.TerminateReceivingThread();
  EXPECT_TRUE(accounted()) << "stop";
  // And so does the hang-up; the thread stays for the port's return.
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  accepted += FillTheLine(port_, frame);
  peer.Close();
  EXPECT_TRUE(WaitUntil([&] { return SendSmallRequest(port_) == VYN_STATUS_NO_CONNECTION; },
                        milliseconds(5000)));
  EXPECT_TRUE(accounted()) << "hang-up";
  EXPECT_TRUE(port_.IsRunning());
  EXPECT_GT(dropped(), 0u);
}

TEST_F(SerialPortTest, AReusedPseudoTerminalNumberIsNotTakenOver) {
  // Opened by its own name: gone for good once its other side has closed.
  auto first = std::make_unique<vyn::support::PseudoTerminal>();
  ASSERT_TRUE(first->Open());
  const std::string number = first->slave_path();
  port_.SetCOMPort(number);
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  first.reset();
  ASSERT_TRUE(WaitUntil([&] { return SendSmallRequest(port_) == VYN_STATUS_NO_CONNECTION; },
                        milliseconds(5000)));
  vyn::support::PseudoTerminal session;
  if (!ReuseTerminalNumber(number, &session)) GTEST_SKIP() << number << " was not free again";
  std::this_thread::sleep_for(milliseconds(300));  // thirty reopen periods
  EXPECT_TRUE(SlaveUnused(session)) << "the driver opened another session's " << number;
  EXPECT_EQ(SendSmallRequest(port_), VYN_STATUS_NO_CONNECTION);
  port_.TerminateReceivingThread();

  // Through a link: the old link leads to the reused number and is not
  // followed; the link made to lead to a new terminal is.
  vyn::test::TempDir dir;
  const std::string link = dir.File("port");
  auto linked = std::make_unique<vyn::support::PseudoTerminal>();
  ASSERT_TRUE(linked->Open());
  ASSERT_TRUE(vyn::support::ReplaceSymbolicLink(linked->slave_path(), link));
  const std::string linked_number = linked->slave_path();
  port_.SetCOMPort(link);
  ASSERT_EQ(port_.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  linked.reset();
  ASSERT_TRUE(WaitUntil([&] { return SendSmallRequest(port_) == VYN_STATUS_NO_CONNECTION; },
                        milliseconds(5000)));
  vyn::support::PseudoTerminal stranger;
  if (ReuseTerminalNumber(linked_number, &stranger)) {
    std::this_thread::sleep_for(milliseconds(300));
    EXPECT_TRUE(SlaveUnused(stranger)) << "the driver followed the old link to " << linked_number;
  }
  vyn::support::PseudoTerminal replacement;
  ASSERT_TRUE(replacement.Open());
  ASSERT_TRUE(vyn::support::ReplaceSymbolicLink(replacement.slave_path(), link));
  EXPECT_TRUE(
      WaitUntil([&] { return SendSmallRequest(port_) == VYN_STATUS_SUCCESS; }, milliseconds(5000)));
  EXPECT_FALSE(SlaveUnused(replacement));
}

TEST(SerialPortTerminalTest, ATerminalUsedAsPortGetsItsSettingsAndOthersBack) {
  // A terminal session in its usual cooked mode, opened as a port by mistake.
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  const int session = open(terminal.slave_path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
  ASSERT_GE(session, 0);
  termios cooked{};
  ASSERT_EQ(tcgetattr(session, &cooked), 0);
  cooked.c_lflag |= ECHO | ICANON;
  ASSERT_EQ(tcsetattr(session, TCSANOW, &cooked), 0);

  CVYNSerialPort port;
  port.SetCOMPort(terminal.slave_path());
  ASSERT_EQ(port.InitializeReceivingThread(), VYN_STATUS_SUCCESS);
  termios during{};
  ASSERT_EQ(tcgetattr(session, &during), 0);
  EXPECT_EQ(during.c_lflag & (ECHO | ICANON), 0u);
  int exclusive = 0;
  ASSERT_EQ(ioctl(session, TIOCGEXCL, &exclusive), 0);
  EXPECT_EQ(exclusive, 1);
  port.TerminateReceivingThread();

  termios after{};
  ASSERT_EQ(tcgetattr(session, &after), 0);
  EXPECT_EQ(after.c_lflag & (ECHO | ICANON), static_cast<tcflag_t>(ECHO | ICANON));
  // The exclusive use is lifted too, so that other users may open it again.
  ASSERT_EQ(ioctl(session, TIOCGEXCL, &exclusive), 0);
  EXPECT_EQ(exclusive, 0);
  close(session);
}

}  // namespace
