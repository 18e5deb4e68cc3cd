// Serial devices on pseudo-terminals and written files: exclusive opening,
// short writes carried on to the last byte, and a hang-up seen as such.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "support/pseudo_terminal.h"
#include "tests/platform/signal_storm.h"
#include "tests/support/temp_dir.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/file.h"
#include "vyn/platform/serial_device.h"

namespace {

using vyn::platform::IoStatus;
using vyn::platform::ReadDescriptor;
using vyn::platform::SerialDevice;
using vyn::platform::SerialOpenStep;
using vyn::platform::WaitForDescriptor;
using vyn::platform::WriteDescriptor;

std::vector<uint8_t> Pattern(size_t size) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(i * 7 + i / 251);
  return bytes;
}

// Reads from `descriptor` until `size` bytes have come or a second passes
// without any.
std::vector<uint8_t> Drain(int descriptor, size_t size) {
  std::vector<uint8_t> got;
  uint8_t chunk[4096];
  while (got.size() < size && WaitForDescriptor(descriptor, false, nullptr, 1000).readable) {
    const auto result = ReadDescriptor(descriptor, chunk, sizeof chunk);
    if (result.status != IoStatus::kDone) break;
    got.insert(got.end(), chunk, chunk + result.count);
  }
  return got;
}

TEST(SerialDeviceTest, ExclusiveOpenShortWritesAndHangUp) {
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  SerialOpenStep step = SerialOpenStep::kNone;
  int error = 0;
  SerialDevice device;
  EXPECT_FALSE(device.Open(terminal.slave_path(), 12345, &step, &error));
  EXPECT_EQ(step, SerialOpenStep::kWriteSettings);
  EXPECT_EQ(error, EINVAL);
  EXPECT_FALSE(device.IsOpen());
  ASSERT_TRUE(device.Open(terminal.slave_path(), 115200, &step, &error)) << error;
  SerialDevice second;
  EXPECT_FALSE(second.Open(terminal.slave_path(), 115200, &step, &error));
  EXPECT_EQ(step, SerialOpenStep::kOpen);
  EXPECT_EQ(error, EBUSY);

  // Nothing to read yet, and the wait says so when its time is up.
  uint8_t byte = 0;
  EXPECT_EQ(ReadDescriptor(device.descriptor(), &byte, 1).status, IoStatus::kWouldBlock);
  EXPECT_FALSE(WaitForDescriptor(device.descriptor(), false, nullptr, 50).readable);

  // Far more than the terminal holds: writes come back short, the writer
  // waits for room and carries on; every byte arrives unchanged, in order.
  const std::vector<uint8_t> sent = Pattern(size_t{256} * 1024);
  std::vector<uint8_t> received;
  std::thread reader([&] { received = Drain(terminal.master_descriptor(), sent.size()); });
  size_t done = 0;
  int short_writes = 0;
  while (done < sent.size()) {
    const auto result =
        WriteDescriptor(device.descriptor(), sent.data() + done, sent.size() - done);
    if (result.status == IoStatus::kDone) {
      short_writes += result.count < sent.size() - done ? 1 : 0;
      done += result.count;
    } else if (result.status != IoStatus::kWouldBlock ||
               !WaitForDescriptor(device.descriptor(), true, nullptr, 2000).writable) {
      break;
    }
  }
  reader.join();
  EXPECT_EQ(done, sent.size());
  EXPECT_GT(short_writes, 0);
  EXPECT_TRUE(received == sent) << received.size() << " of " << sent.size() << " bytes";

  // The other side goes away: the wait reports it at once, reading and
  // writing report it too.
  const int descriptor = device.descriptor();
  terminal.Close();
  EXPECT_TRUE(WaitForDescriptor(descriptor, false, nullptr, 5000).hung_up);
  EXPECT_EQ(ReadDescriptor(descriptor, &byte, 1).status, IoStatus::kHungUp);
  EXPECT_EQ(WriteDescriptor(descriptor, &byte, 1).status, IoStatus::kHungUp);
}

TEST(FileTest, WritesEverythingThroughSignalsAndShortWritesOrSaysWhyNot) {
  vyn::test::TempDir directory;
  const std::string fifo = directory.File("pipe");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  // A pipe with a slow reader: the writer blocks, signals cut its writes
  // short, and WriteAll has to go on from wherever each one stopped. The
  // reading end is opened first, so that opening the writing end never waits.
  const int in = open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(in, 0);
  vyn::platform::File pipe;
  ASSERT_TRUE(pipe.OpenForWriting(fifo)) << pipe.GetLastErrorText();
  fcntl(in, F_SETFL, fcntl(in, F_GETFL) & ~O_NONBLOCK);
  const std::vector<uint8_t> sent = Pattern(size_t{2} * 1024 * 1024);
  std::vector<uint8_t> received;
  std::thread reader([&] {
    std::vector<uint8_t> chunk(16384);
    ssize_t got = 0;
    while ((got = read(in, chunk.data(), chunk.size())) != 0) {
      if (got > 0) received.insert(received.end(), chunk.begin(), chunk.begin() + got);
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    close(in);
  });
  {
    const int before = vyn::test::signals_delivered;
    vyn::test::SignalStorm storm;
    size_t written = 0;
    EXPECT_TRUE(pipe.WriteAll(sent.data(), sent.size(), &written)) << pipe.GetLastErrorText();
    EXPECT_EQ(written, sent.size());
    EXPECT_GT(vyn::test::signals_delivered - before, 0);
  }
  pipe.Close();
  reader.join();
  EXPECT_TRUE(received == sent) << received.size() << " of " << sent.size() << " bytes";

  // A device that takes nothing: false, nothing written, and the reason.
  vyn::platform::File full;
  ASSERT_TRUE(full.OpenForWriting("/dev/full"));
  size_t written = 99;
  EXPECT_FALSE(full.WriteAll(sent.data(), 10, &written));
  EXPECT_EQ(written, 0u);
  EXPECT_EQ(full.GetLastErrorText(), "No space left on device");
  // New files are new: an existing one is never reused, a missing
  // directory is a failure with its reason.
  vyn::platform::File file;
  EXPECT_EQ(file.CreateNew(fifo), vyn::platform::FileCreateResult::kExists);
  EXPECT_EQ(file.CreateNew(directory.File("no/such")), vyn::platform::FileCreateResult::kFailed);
  EXPECT_EQ(file.GetLastErrorText(), "No such file or directory");
  EXPECT_FALSE(file.IsOpen());
}

}  // namespace
