// The simulated bootloader, spoken to byte by byte through a plain terminal
// client.
#include "sim/boot_loader_simulator.h"

#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <string>
#include <thread>

#include "tests/sim/test_port.h"

namespace {

namespace cmd = vyn::sim::boot_command;
using vyn::sim::BootLoaderSimulator;
using vyn::sim::BootLoaderSimulatorOptions;
using vyn::sim::FaultRepeat;
using vyn::sim::NackFault;
using vyn::sim::NackPoint;
using vyn::test::Bytes;
using vyn::test::Cat;
using vyn::test::TestPort;

constexpr uint8_t kAck = 0x79;
constexpr uint8_t kNack = 0x1F;
constexpr uint32_t kBase = 0x08000000;

Bytes Command(uint8_t code) { return {code, static_cast<uint8_t>(~code)}; }

Bytes WithXor(Bytes bytes) {
  uint8_t sum = 0;
  for (const uint8_t byte : bytes) sum ^= byte;
  bytes.push_back(sum);
  return bytes;
}

Bytes Address(uint32_t address) {
  return WithXor({static_cast<uint8_t>(address >> 24), static_cast<uint8_t>(address >> 16),
                  static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address)});
}

Bytes Pattern(size_t size, uint8_t seed) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7);
  return bytes;
}

class BootLoaderSimulatorTest : public ::testing::Test {
 protected:
  void SetUp() override { Begin({}); }

  void Begin(const BootLoaderSimulatorOptions& options) {
    port_.reset();
    chip_ = std::make_unique<BootLoaderSimulator>(options);
    ASSERT_TRUE(chip_->Start());
    port_ = std::make_unique<TestPort>(chip_->port_path());
    ASSERT_TRUE(port_->is_open()) << chip_->port_path();
  }

  // Sends `bytes` and returns what comes back: `expected` bytes, or fewer
  // when the line stays quiet for seconds.
  Bytes Say(const Bytes& bytes, size_t expected) {
    EXPECT_TRUE(port_->Send(bytes));
    return port_->Read(expected);
  }
  // Sends `bytes` and then the connect byte, which a chip waiting for it
  // answers with an ACK: true when that came first.
  bool UnansweredBeforeConnect(const Bytes& bytes) {
    return Say(Cat({bytes, {0x7F}}), 1) == Bytes{kAck};
  }
  bool Connect() { return Say({0x7F}, 1) == Bytes{kAck}; }

  // Write Memory; the three answers.
  Bytes Write(uint32_t address, const Bytes& data) {
    Bytes answers = Say(Command(cmd::kWriteMemory), 1);
    if (answers != Bytes{kAck}) return answers;
    answers = Cat({answers, Say(Address(address), 1)});
    if (answers.back() != kAck) return answers;
    Bytes block = Cat({{static_cast<uint8_t>(data.size() - 1)}, data});
    return Cat({answers, Say(WithXor(block), 1)});
  }
  // Read Memory: the data, or what answered instead.
  Bytes Read(uint32_t address, size_t count) {
    Bytes answers = Cat({Say(Command(cmd::kReadMemory), 1), Say(Address(address), 1)});
    if (answers != Bytes{kAck, kAck}) return answers;
    const uint8_t n = static_cast<uint8_t>(count - 1);
    const Bytes got = Say({n, static_cast<uint8_t>(~n)}, 1);
    return got == Bytes{kAck} ? port_->Read(count) : got;
  }
  Bytes Flash(uint32_t address, size_t count) {
    const Bytes flash = chip_->FlashContents();
    return Bytes(flash.begin() + (address - kBase), flash.begin() + (address - kBase + count));
  }

  std::unique_ptr<BootLoaderSimulator> chip_;
  std::unique_ptr<TestPort> port_;
};

TEST_F(BootLoaderSimulatorTest, ConnectsAndTellsWhatItIs) {
  EXPECT_TRUE(UnansweredBeforeConnect({0x00, 0x12, 0x31}));
  EXPECT_EQ(Say({0x7F}, 1), Bytes{kNack}) << "a second connect byte";
  EXPECT_EQ(Say(Command(cmd::kGet), 15), (Bytes{kAck, 11, 0x31, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31,
                                                0x44, 0x63, 0x73, 0x82, 0x92, kAck}));
  EXPECT_EQ(Say(Command(cmd::kGetVersion), 5), (Bytes{kAck, 0x31, 0x00, 0x00, kAck}));
  EXPECT_EQ(Say(Command(cmd::kGetId), 5), (Bytes{kAck, 1, 0x04, 0x13, kAck}));
  EXPECT_EQ(Say({0x02, 0xFC}, 1), Bytes{kNack}) << "a wrong complement";
  EXPECT_EQ(Say(Command(cmd::kErase), 1), Bytes{kNack}) << "version 3 offers Extended Erase only";

  // An older chip and another id, on demand and undone.
  chip_->SetVersion(0x22);
  chip_->SetChipId(0x0410);
  const Bytes get = Say(Command(cmd::kGet), 15);
  ASSERT_EQ(get.size(), 15u);
  EXPECT_EQ(get[2], 0x22);
  EXPECT_EQ(get[9], cmd::kErase);
  EXPECT_EQ(Say(Command(cmd::kGetId), 5), (Bytes{kAck, 1, 0x04, 0x10, kAck}));
  chip_->ClearFaults();
  EXPECT_EQ(Say(Command(cmd::kGetId), 5), (Bytes{kAck, 1, 0x04, 0x13, kAck}));

  const auto counters = chip_->counters();
  EXPECT_EQ(counters.ignored_bytes, 3u);
  EXPECT_EQ(counters.connects, 1u);
  EXPECT_EQ(counters.commands_by_code[cmd::kGetId], 3u);
  EXPECT_EQ(counters.checksum_errors, 1u);
}

TEST_F(BootLoaderSimulatorTest, WritesAndReadsAsFlashDoes) {
  ASSERT_TRUE(Connect());
  const Bytes block = Pattern(256, 1);
  const Bytes tail = Pattern(10, 99);
  EXPECT_EQ(Write(kBase, block), (Bytes{kAck, kAck, kAck}));
  EXPECT_EQ(Write(kBase + 256, tail), (Bytes{kAck, kAck, kAck}));
  EXPECT_EQ(Read(kBase, 256), block);
  EXPECT_EQ(Read(kBase + 256, 11), Cat({tail, {0xFF}}));
  EXPECT_EQ(Flash(kBase, 266), Cat({block, tail}));

  // Without an erase in between, bits only go from 1 to 0.
  const uint32_t spot = kBase + 0x1000;
  EXPECT_EQ(Write(spot, {0xF0, 0x3C}), (Bytes{kAck, kAck, kAck}));
  EXPECT_EQ(Write(spot, {0x0F, 0xFF}), (Bytes{kAck, kAck, kAck}));
  EXPECT_EQ(Flash(spot, 2), (Bytes{0x00, 0x3C}));

  // A wrong data checksum, addresses outside the flash, a block that runs
  // past its end, a count without its complement: refused, nothing written.
  const Bytes before = chip_->FlashContents();
  ASSERT_EQ(Cat({Say(Command(cmd::kWriteMemory), 1), Say(Address(kBase + 0x2000), 1)}),
            (Bytes{kAck, kAck}));
  EXPECT_EQ(Say({1, 0x55, 0x66, 0x00}, 1), Bytes{kNack});
  const uint32_t end = kBase + chip_->options().flash_size;
  EXPECT_EQ(Write(kBase - 1, {0}), (Bytes{kAck, kNack}));
  EXPECT_EQ(Write(end, {0}), (Bytes{kAck, kNack}));
  EXPECT_EQ(Write(end - 4, Pattern(8, 0)), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Say({0x11, 0xEE}, 1), Bytes{kAck});
  EXPECT_EQ(Say(Address(kBase), 1), Bytes{kAck});
  EXPECT_EQ(Say({3, 0xFF}, 1), Bytes{kNack});
  EXPECT_EQ(Read(end - 2, 4), Bytes{kNack});
  EXPECT_EQ(chip_->FlashContents(), before);

  const auto counters = chip_->counters();
  EXPECT_EQ(counters.blocks_written, 4u);
  EXPECT_EQ(counters.bytes_written, 270u);
}

TEST_F(BootLoaderSimulatorTest, ErasesPagesOrEverything) {
  ASSERT_TRUE(Connect());
  // Sectors of 16 KiB: 0 at the base, 1 at 0x4000; 5 at 0x20000 has 128 KiB.
  for (const uint32_t at : {kBase, kBase + 0x4000, kBase + 0x20000}) {
    ASSERT_EQ(Write(at, {1, 2, 3, 4}), (Bytes{kAck, kAck, kAck}));
  }
  EXPECT_EQ(Say(Command(cmd::kExtendedErase), 1), Bytes{kAck});
  EXPECT_EQ(Say(WithXor({0x00, 0x01, 0x00, 0x01, 0x00, 0x05}), 1), Bytes{kAck});
  EXPECT_EQ(Flash(kBase, 4), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(Flash(kBase + 0x4000, 4), Bytes(4, 0xFF));
  EXPECT_EQ(Flash(kBase + 0x20000, 4), Bytes(4, 0xFF));

  // A bank erase on a single bank, a wrong checksum, a page that is not there.
  EXPECT_EQ(Cat({Say(Command(cmd::kExtendedErase), 1), Say({0xFF, 0xFE, 0x01}, 1)}),
            (Bytes{kAck, kNack}));
  EXPECT_EQ(Cat({Say(Command(cmd::kExtendedErase), 1), Say({0xFF, 0xFF, 0xFF}, 1)}),
            (Bytes{kAck, kNack}));
  EXPECT_EQ(Cat({Say(Command(cmd::kExtendedErase), 1), Say(WithXor({0, 0, 0, 12}), 1)}),
            (Bytes{kAck, kNack}));
  EXPECT_EQ(Flash(kBase, 4), (Bytes{1, 2, 3, 4}));

  EXPECT_EQ(Cat({Say(Command(cmd::kExtendedErase), 1), Say({0xFF, 0xFF, 0x00}, 1)}),
            (Bytes{kAck, kAck}));
  EXPECT_EQ(chip_->FlashContents(), Bytes(chip_->options().flash_size, 0xFF));
  EXPECT_EQ(chip_->counters().pages_erased, 2u);
  EXPECT_EQ(chip_->counters().mass_erases, 1u);

  // A chip with bootloader version 2.2 and 1 KiB pages erases with Erase.
  BootLoaderSimulatorOptions older;
  older.version = 0x22;
  older.flash_size = 64 * 1024;
  older.page_sizes = {1024};
  Begin(older);
  ASSERT_TRUE(Connect());
  for (const uint32_t at : {kBase, kBase + 0x400, kBase + 0x800}) {
    ASSERT_EQ(Write(at, {9}), (Bytes{kAck, kAck, kAck}));
  }
  EXPECT_EQ(Say(Command(cmd::kExtendedErase), 1), Bytes{kNack});
  EXPECT_EQ(Cat({Say(Command(cmd::kErase), 1), Say(WithXor({1, 0, 2}), 1)}), (Bytes{kAck, kAck}));
  EXPECT_EQ(Flash(kBase, 1), Bytes{0xFF});
  EXPECT_EQ(Flash(kBase + 0x400, 1), Bytes{9});
  EXPECT_EQ(Flash(kBase + 0x800, 1), Bytes{0xFF});
  EXPECT_EQ(Cat({Say(Command(cmd::kErase), 1), Say({0xFF, 0x00}, 1)}), (Bytes{kAck, kAck}));
  EXPECT_EQ(Flash(kBase + 0x400, 1), Bytes{0xFF});
}

TEST_F(BootLoaderSimulatorTest, ProtectionAndTheCommandsThatRestart) {
  ASSERT_TRUE(Connect());
  ASSERT_EQ(Write(kBase, {0x12}), (Bytes{kAck, kAck, kAck}));
  chip_->SetWriteProtected(true);
  EXPECT_EQ(Write(kBase + 1, {0x34}), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Cat({Say(Command(cmd::kExtendedErase), 1), Say({0xFF, 0xFF, 0x00}, 1)}),
            (Bytes{kAck, kNack}));
  // Write Unprotect answers twice and restarts: a command now goes
  // unanswered until the next connect byte, which is answered as a first one.
  EXPECT_EQ(Say(Command(cmd::kWriteUnprotect), 2), (Bytes{kAck, kAck}));
  EXPECT_FALSE(chip_->IsWriteProtected());
  EXPECT_TRUE(UnansweredBeforeConnect(Command(cmd::kGetId)));
  EXPECT_EQ(Write(kBase + 1, {0x34}), (Bytes{kAck, kAck, kAck}));

  // Readout protection shuts everything but the chip's identity; lifting it
  // wipes the flash and restarts.
  chip_->SetReadProtected(true);
  EXPECT_EQ(Say(Command(cmd::kReadMemory), 1), Bytes{kNack});
  EXPECT_EQ(Say(Command(cmd::kWriteMemory), 1), Bytes{kNack});
  EXPECT_EQ(Say(Command(cmd::kGo), 1), Bytes{kNack});
  EXPECT_EQ(Say(Command(cmd::kGetId), 5).size(), 5u);
  EXPECT_EQ(Say(Command(cmd::kReadoutUnprotect), 2), (Bytes{kAck, kAck}));
  EXPECT_FALSE(chip_->IsReadProtected());
  EXPECT_EQ(Flash(kBase, 2), (Bytes{0xFF, 0xFF}));
  EXPECT_FALSE(chip_->IsConnected());

  // Go runs the program at an address in the flash, which hands back by a restart.
  ASSERT_TRUE(Connect());
  EXPECT_EQ(Cat({Say(Command(cmd::kGo), 1), Say(Address(0x20000000), 1)}), (Bytes{kAck, kNack}));
  EXPECT_EQ(Cat({Say(Command(cmd::kGo), 1), Say(Address(kBase), 1)}), (Bytes{kAck, kAck}));
  EXPECT_FALSE(chip_->IsConnected());
  EXPECT_EQ(chip_->counters().go_commands, 1u);
  EXPECT_EQ(chip_->counters().last_go_address, kBase);

  // Write Protect takes a list of sectors and restarts too.
  ASSERT_TRUE(Connect());
  EXPECT_EQ(Cat({Say(Command(cmd::kWriteProtect), 1), Say(WithXor({0, 1}), 1)}),
            (Bytes{kAck, kAck}));
  ASSERT_TRUE(Connect());
  EXPECT_EQ(Write(kBase, {0}), (Bytes{kAck, kAck, kAck}));
  EXPECT_EQ(Write(kBase + 0x4000, {0}), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(chip_->counters().resets, 4u);
}

TEST_F(BootLoaderSimulatorTest, InjectedFaultsAndTheirUndo) {
  ASSERT_TRUE(Connect());
  // The second write from now is refused at its data, once.
  chip_->InjectNack(NackFault{cmd::kWriteMemory, FaultRepeat::kOnce, NackPoint::kResult, 1});
  EXPECT_EQ(Write(kBase, {1}), (Bytes{kAck, kAck, kAck}));
  EXPECT_EQ(Write(kBase + 1, {2}), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Write(kBase + 2, {3}), (Bytes{kAck, kAck, kAck}));
  EXPECT_EQ(Flash(kBase, 3), (Bytes{1, 0xFF, 3}));

  chip_->InjectNack(NackFault{cmd::kGetId, FaultRepeat::kAlways});
  EXPECT_EQ(Say(Command(cmd::kGetId), 1), Bytes{kNack});
  EXPECT_EQ(Say(Command(cmd::kGetId), 1), Bytes{kNack});
  chip_->ClearNack();
  EXPECT_EQ(Say(Command(cmd::kGetId), 5).size(), 5u);

  // The last ACK of Get ID is lost; the chip carries on.
  chip_->LoseAck(1);
  EXPECT_EQ(Say(Cat({Command(cmd::kGetId), Command(cmd::kGetVersion)}), 9),
            (Bytes{kAck, 1, 0x04, 0x13, kAck, 0x31, 0, 0, kAck}));

  // A silent chip drops the command; spoken to again, it answers the next.
  chip_->SetSilent(true);
  ASSERT_TRUE(port_->Send(Command(cmd::kGetVersion)));
  for (int i = 0; i < 1000 && chip_->counters().ignored_bytes < 2; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  chip_->SetSilent(false);
  EXPECT_EQ(Say(Command(cmd::kGetVersion), 5), (Bytes{kAck, 0x31, 0, 0, kAck}));

  const auto counters = chip_->counters();
  EXPECT_EQ(counters.injected_nacks, 3u);
  EXPECT_EQ(counters.lost_acks, 1u);
  EXPECT_EQ(counters.ignored_bytes, 2u);

  // Unplugged, the port hangs up and its path goes; plugged in again, the
  // chip has restarted and the flash is kept.
  const std::string path = chip_->port_path();
  ASSERT_TRUE(chip_->Unplug());
  EXPECT_TRUE(port_->WaitForHangUp(2000));
  ASSERT_TRUE(chip_->Replug());
  port_ = std::make_unique<TestPort>(path);
  ASSERT_TRUE(port_->is_open());
  EXPECT_TRUE(Connect());
  EXPECT_EQ(Read(kBase, 3), (Bytes{1, 0xFF, 3}));
}

double ProcessCpuSeconds() {
  timespec used{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
  return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) * 1e-9;
}

TEST_F(BootLoaderSimulatorTest, TakesTheLinesTimeAndIdlesWithoutWork) {
  using Clock = std::chrono::steady_clock;
  BootLoaderSimulatorOptions paced;
  paced.baud_rate = 57600;
  Begin(paced);
  // Connect, then read 256 bytes: 270 bytes on the line, each after the
  // other, at 11 bits per byte.
  const Clock::time_point start = Clock::now();
  ASSERT_TRUE(Connect());
  EXPECT_EQ(Read(kBase, 256), Bytes(256, 0xFF));
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_GE(seconds, 270 * 11 / 57600.0);

  // An idle chip with a program on its port waits without spinning (a busy
  // thread would use about all of the time).
  const double cpu_before = ProcessCpuSeconds();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_LT(ProcessCpuSeconds() - cpu_before, 0.05);
}

}  // namespace
