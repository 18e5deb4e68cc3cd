// Waits and terminals: whom an event or wake-up releases; signals neither
// shorten nor stretch a wait nor cut a write short; both users of a terminal
// (serial device 8N1, bootloader port 8E1) hold it alone and give it back as
// found; the port's waits end at their limit, a byte, a hang-up or a cancel.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "support/pseudo_terminal.h"
#include "vyn/platform/boot_loader_port.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/event.h"
#include "vyn/platform/file.h"
#include "vyn/platform/scoped_descriptor.h"
#include "vyn/platform/serial_device.h"
#include "vyn/platform/wake_up_event.h"

namespace {

using namespace vyn::platform;  // NOLINT: the layer under test
using std::chrono::milliseconds;

// A bound a loaded machine keeps, far below the ten seconds a storm lasts.
constexpr milliseconds Late(int ms) { return milliseconds(ms + 2500); }

template <typename Call>
milliseconds Timed(Call call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration_cast<milliseconds>(std::chrono::steady_clock::now() - start);
}

std::atomic<int> signals_delivered{0};

// SIGUSR1 at the creating thread every 2 ms for at most 10 s, without
// SA_RESTART: its blocking calls return early and must carry on by
// themselves; one that wrongly starts over shows as late, never as a hang.
struct SignalStorm {
  SignalStorm() {
    struct sigaction action {};
    action.sa_handler = [](int) { signals_delivered.fetch_add(1, std::memory_order_relaxed); };
    sigaction(SIGUSR1, &action, nullptr);
    sender = std::thread([this, target = pthread_self()] {
      for (int i = 0; i < 5000 && !stop; ++i) {
        pthread_kill(target, SIGUSR1);
        std::this_thread::sleep_for(milliseconds(2));
      }
    });
  }
  ~SignalStorm() {
    stop = true;
    sender.join();  // returns through the kernel: the signals sent have arrived
  }
  std::atomic<bool> stop{false};
  std::thread sender;
};

bool Nothing(const DescriptorReadiness& r) {
  return !r.readable && !r.writable && !r.hung_up && !r.woken;
}

TEST(EventTest, AManualSetReleasesEveryWaiterAnAutomaticOneOne) {
  for (const bool manual : {true, false}) {
    Event event(manual);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) waiters.emplace_back([&] { released += event.Wait(10000); });
    for (int set = 1; set <= (manual ? 1 : 3); ++set) {
      event.Set();
      const int expected = manual ? 3 : set;
      for (int i = 0; i < 400 && released < expected; ++i) SleepMilliseconds(5);
      SleepMilliseconds(30);  // time for a wrongly released waiter to show
      EXPECT_EQ(released, expected);
    }
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(event.Wait(0), manual);  // a manual event stays set until Reset
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
  }
}

TEST(WakeUpEventTest, SignalsDoNotCountAndClearTakesThemBack) {
  WakeUpEvent wake;
  EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, 0)));
  wake.Signal();
  wake.Signal();
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, 0).woken);
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, 0).woken);  // seen, still set
  wake.Clear();
  EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, 0)));
  wake.Signal();
  EXPECT_TRUE(wake.Wait(0));  // its own wait takes the signal back
  EXPECT_FALSE(wake.Wait(0));
}

TEST(InterruptedWaitTest, SignalsNeitherShortenNorStretchAWaitNorCutAWriteShort) {
  static constexpr int kWait = 60;
  // A pipe with a slow reader: the writer blocks, and WriteAll must go on
  // from wherever each interrupted write stopped.
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  const ScopedDescriptor in(ends[0]);
  File pipe;
  ASSERT_TRUE(pipe.OpenForWriting("/proc/self/fd/" + std::to_string(ends[1])));
  ScopedDescriptor(ends[1]).Close();
  std::vector<uint8_t> sent(size_t{2} << 20);
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<uint8_t>(i * 7 + i / 251);
  std::vector<uint8_t> received;
  std::thread reader([&] {
    uint8_t chunk[16384];
    for (ssize_t count = 0; (count = read(in.get(), chunk, sizeof chunk)) > 0; usleep(300)) {
      received.insert(received.end(), chunk, chunk + count);
    }
  });
  SignalStorm storm;
  size_t written = 0;
  EXPECT_TRUE(pipe.WriteAll(sent.data(), sent.size(), &written)) << pipe.GetLastErrorText();
  pipe.Close();
  reader.join();
  EXPECT_EQ(written, sent.size());
  EXPECT_TRUE(received == sent) << received.size() << " of " << sent.size() << " bytes";

  WakeUpEvent wake;
  Event event(true);
  const auto expect_full = [](milliseconds waited, const char* what) {
    EXPECT_GE(waited, milliseconds(kWait)) << what;
    EXPECT_LT(waited, Late(kWait)) << what;
  };
  expect_full(Timed([&] { EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, kWait))); }),
              "descriptor wait");
  expect_full(Timed([&] { EXPECT_FALSE(wake.Wait(kWait)); }), "wake-up wait");
  expect_full(Timed([&] { EXPECT_FALSE(event.Wait(kWait)); }), "event wait");
  expect_full(Timed([] { SleepMilliseconds(kWait); }), "sleep");
  // Waits without a limit end for their wake-up, not for a signal.
  std::thread waker([&] {
    std::this_thread::sleep_for(milliseconds(kWait));
    wake.Signal();
    event.Set();
  });
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, -1).woken);
  EXPECT_TRUE(event.Wait(kInfinite));
  waker.join();
  EXPECT_GT(signals_delivered, 50);  // the storm did reach the calls
}

termios Settings(int descriptor) {
  termios settings{};
  tcgetattr(descriptor, &settings);
  return settings;
}

TEST(TerminalUserTest, EachHoldsTheLineAloneAndGivesItsSettingsBack) {
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  const std::string& path = terminal.slave_path();
  int error = 0;
  // Opened before the users, whose exclusive use refuses later opens; set up
  // like a terminal session: echo, line editing, 9600 baud.
  const ScopedDescriptor outside(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
  const auto exclusive = [&] { return ioctl(outside.get(), TIOCGEXCL, &error) == 0 ? error : -1; };
  termios session = Settings(outside.get());
  session.c_lflag |= ECHO | ICANON | ISIG;
  session.c_iflag |= ICRNL;
  cfsetspeed(&session, B9600);
  ASSERT_EQ(tcsetattr(outside.get(), TCSANOW, &session), 0);
  const termios before = Settings(outside.get());
  SerialDevice device;
  BootLoaderPort port;
  SerialOpenStep step = SerialOpenStep::kNone;
  for (const bool serial : {true, false}) {
    SCOPED_TRACE(serial ? "serial device" : "bootloader port");
    if (serial) {
      ASSERT_TRUE(device.Open(path, 115200, &step, &error)) << error;
      EXPECT_FALSE(port.Open(path, &error));
    } else {
      ASSERT_TRUE(port.Open(path, &error) && port.Configure(57600, &error)) << error;
      EXPECT_FALSE(device.Open(path, 115200, &step, &error));
      EXPECT_EQ(step, SerialOpenStep::kOpen);
    }
    EXPECT_EQ(error, EBUSY);
    const termios held = Settings(outside.get());
    EXPECT_EQ(exclusive(), 1);
    EXPECT_EQ((held.c_lflag & (ECHO | ICANON | ISIG)) | (held.c_iflag & (ICRNL | IXON)), 0u);
    EXPECT_EQ(held.c_cflag & (CSIZE | CSTOPB | CRTSCTS), tcflag_t{CS8});
    EXPECT_EQ(cfgetospeed(&held), serial ? B115200 : B57600);
    EXPECT_EQ(held.c_cc[VMIN], 1);
    serial ? device.Close() : port.Close();
    EXPECT_EQ(exclusive(), 0);
    const termios after = Settings(outside.get());
    EXPECT_EQ(std::memcmp(&after, &before, sizeof after), 0);
  }
  // A rate the terminal has no constant for is refused; nothing stays open.
  EXPECT_FALSE(device.Open(path, 12345, &step, &error));
  EXPECT_EQ(step, SerialOpenStep::kWriteSettings);
  EXPECT_EQ(error, EINVAL);
  EXPECT_TRUE(device.Open(path, 115200, &step, &error)) << error;
}

TEST(BootLoaderPortTest, WaitsEndAtTheLimitAByteAHangUpOrAtOnceWhenCancelled) {
  vyn::support::PseudoTerminal terminal;
  ASSERT_TRUE(terminal.Open());
  BootLoaderPort port;
  int error = 0;
  ASSERT_TRUE(port.Open(terminal.slave_path(), &error) && port.Configure(115200, &error)) << error;
  port.SetReadTimeout(100);
  milliseconds waited = Timed([&] { EXPECT_EQ(port.ReadByte(), -1); });
  EXPECT_GE(waited, milliseconds(100));
  EXPECT_LT(waited, Late(100));
  uint8_t byte = 0xA5;
  ASSERT_EQ(WriteDescriptor(terminal.master_descriptor(), &byte, 1).count, 1u);
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

  // The line hangs up: a read with a long limit ends at once; the device's
  // reads and writes say so.
  terminal.Close();
  waited = Timed([&] { EXPECT_EQ(port.ReadByte(), -1); });
  EXPECT_LT(waited, Late(0));
  EXPECT_EQ(ReadDescriptor(port.descriptor(), &byte, 1).status, IoStatus::kHungUp);
  EXPECT_EQ(WriteDescriptor(port.descriptor(), &byte, 1).status, IoStatus::kHungUp);
}

}  // namespace
