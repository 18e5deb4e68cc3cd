// The simulated bootloader: its chip spoken to byte by byte, and the
// simulator that puts the chip on a paced line, through a plain terminal
// client.
#include "sim/boot_loader_simulator.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "tests/sim/test_port.h"

namespace {

namespace cmd = vyn::sim::boot_command;
using vyn::sim::BootLoaderChip;
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

Bytes Count(size_t count) {
  const auto n = static_cast<uint8_t>(count - 1);
  return {n, static_cast<uint8_t>(~n)};
}

Bytes Pattern(size_t size, uint8_t seed) {
  Bytes bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(seed + i * 7);
  return bytes;
}

class BootLoaderChipTest : public ::testing::Test {
 protected:
  void SetUp() override { Begin({}); }
  void Begin(const vyn::sim::BootLoaderChipOptions& options) {
    chip_ = std::make_unique<BootLoaderChip>(options);
    end_ = kBase + options.flash_size;
  }

  // Hands the stages of a command to the chip as a host does, one after
  // the other until an answer ends in anything but an ACK; every answer.
  Bytes Say(std::initializer_list<Bytes> stages) {
    Bytes answers;
    for (const Bytes& stage : stages) {
      std::vector<vyn::sim::ChipByte> reply;
      for (const uint8_t byte : stage) chip_->Receive(byte, &reply);
      for (const vyn::sim::ChipByte& byte : reply) answers.push_back(byte.value);
      if (answers.empty() || answers.back() != kAck) break;
    }
    return answers;
  }
  bool Connect() { return Say({{0x7F}}) == Bytes{kAck}; }
  Bytes Write(uint32_t address, const Bytes& data) {
    return Say({Command(cmd::kWriteMemory), Address(address),
                WithXor(Cat({{static_cast<uint8_t>(data.size() - 1)}, data}))});
  }
  // The data, or the answers when they are not three ACKs.
  Bytes Read(uint32_t address, size_t count) {
    const Bytes got = Say({Command(cmd::kReadMemory), Address(address), Count(count)});
    return got.size() == count + 3 ? Bytes(got.begin() + 3, got.end()) : got;
  }
  Bytes Flash(uint32_t address, size_t count) {
    const Bytes& flash = chip_->flash().bytes();
    return Bytes(flash.begin() + (address - kBase), flash.begin() + (address - kBase + count));
  }

  std::unique_ptr<BootLoaderChip> chip_;
  uint32_t end_ = 0;
};

const Bytes kAcks{kAck, kAck, kAck};

TEST_F(BootLoaderChipTest, ConnectsAndTellsWhatItIs) {
  EXPECT_EQ(Say({{0x00, 0x12, 0x31}}), Bytes{}) << "answered before the connect byte";
  EXPECT_TRUE(Connect());
  EXPECT_EQ(Say({{0x7F}}), Bytes{kNack}) << "a second connect byte";
  EXPECT_EQ(Say({Command(cmd::kGet)}), (Bytes{kAck, 11, 0x31, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31,
                                              0x44, 0x63, 0x73, 0x82, 0x92, kAck}));
  EXPECT_EQ(Say({Command(cmd::kGetVersion)}), (Bytes{kAck, 0x31, 0x00, 0x00, kAck}));
  EXPECT_EQ(Say({Command(cmd::kGetId)}), (Bytes{kAck, 1, 0x04, 0x13, kAck}));
  EXPECT_EQ(Say({{0x02, 0xFC}}), Bytes{kNack}) << "a wrong complement";
  EXPECT_EQ(Say({Command(cmd::kErase)}), Bytes{kNack}) << "version 3 offers Extended Erase only";

  const auto& counters = chip_->counters();
  EXPECT_EQ(counters.ignored_bytes, 3u);
  EXPECT_EQ(counters.connects, 1u);
  EXPECT_EQ(counters.commands_by_code[cmd::kGet], 1u);
  EXPECT_EQ(counters.checksum_errors, 1u);
}

TEST_F(BootLoaderChipTest, WritesAndReadsAsFlashDoes) {
  ASSERT_TRUE(Connect());
  const Bytes block = Pattern(256, 1);
  const Bytes tail = Pattern(10, 99);
  EXPECT_EQ(Write(kBase, block), kAcks);
  EXPECT_EQ(Write(kBase + 256, tail), kAcks);
  EXPECT_EQ(Read(kBase, 256), block);
  EXPECT_EQ(Read(kBase + 256, 11), Cat({tail, {0xFF}}));

  // Without an erase in between, bits only go from 1 to 0.
  const uint32_t spot = kBase + 0x1000;
  EXPECT_EQ(Write(spot, {0xF0, 0x3C}), kAcks);
  EXPECT_EQ(Write(spot, {0x0F, 0xFF}), kAcks);
  EXPECT_EQ(Flash(spot, 2), (Bytes{0x00, 0x3C}));

  // A wrong data checksum, addresses outside the flash, a block that runs
  // past its end, a count without its complement: refused, nothing written.
  const Bytes before = chip_->flash().bytes();
  EXPECT_EQ(Say({Command(cmd::kWriteMemory), Address(kBase + 0x2000), {1, 0x55, 0x66, 0x00}}),
            (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Write(kBase - 1, {0}), (Bytes{kAck, kNack}));
  EXPECT_EQ(Write(end_, {0}), (Bytes{kAck, kNack}));
  EXPECT_EQ(Write(end_ - 4, Pattern(8, 0)), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Say({Command(cmd::kReadMemory), Address(kBase), {3, 0xFF}}),
            (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Read(end_ - 2, 4), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(chip_->flash().bytes(), before);
  EXPECT_EQ(chip_->counters().blocks_written, 4u);
  EXPECT_EQ(chip_->counters().bytes_written, 270u);
}

TEST_F(BootLoaderChipTest, ErasesPagesOrEverything) {
  ASSERT_TRUE(Connect());
  // Sectors of 16 KiB: 0 at the base, 1 at 0x4000; 5 at 0x20000 has 128 KiB.
  for (const uint32_t at : {kBase, kBase + 0x4000, kBase + 0x20000}) {
    ASSERT_EQ(Write(at, {1, 2, 3, 4}), kAcks);
  }
  const Bytes erase = Command(cmd::kExtendedErase);
  EXPECT_EQ(Say({erase, WithXor({0x00, 0x01, 0x00, 0x01, 0x00, 0x05})}), (Bytes{kAck, kAck}));
  EXPECT_EQ(Flash(kBase, 4), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(Flash(kBase + 0x4000, 4), Bytes(4, 0xFF));
  EXPECT_EQ(Flash(kBase + 0x20000, 4), Bytes(4, 0xFF));
  // A bank erase on a single bank, a wrong checksum, a page that is not there.
  for (const Bytes& refused :
       {Bytes{0xFF, 0xFE, 0x01}, {0xFF, 0xFF, 0xFF}, WithXor({0, 0, 0, 12})}) {
    EXPECT_EQ(Say({erase, refused}), (Bytes{kAck, kNack}));
  }
  EXPECT_EQ(Flash(kBase, 4), (Bytes{1, 2, 3, 4}));
  EXPECT_EQ(Say({erase, {0xFF, 0xFF, 0x00}}), (Bytes{kAck, kAck}));
  EXPECT_EQ(chip_->flash().bytes(), Bytes(end_ - kBase, 0xFF));
  EXPECT_EQ(chip_->counters().pages_erased, 2u);
  EXPECT_EQ(chip_->counters().mass_erases, 1u);

  // A chip with bootloader version 2.2 and 1 KiB pages erases with Erase.
  vyn::sim::BootLoaderChipOptions older;
  older.version = 0x22;
  older.flash_size = 64 * 1024;
  older.page_sizes = {1024};
  Begin(older);
  ASSERT_TRUE(Connect());
  const Bytes get = Say({Command(cmd::kGet)});  // lists its version and Erase
  EXPECT_EQ(Bytes(get.begin() + 1, get.end()), (Bytes{11, 0x22, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31,
                                                      0x43, 0x63, 0x73, 0x82, 0x92, kAck}));
  for (const uint32_t at : {kBase, kBase + 0x400, kBase + 0x800}) ASSERT_EQ(Write(at, {9}), kAcks);
  EXPECT_EQ(Say({erase}), Bytes{kNack});
  EXPECT_EQ(Say({Command(cmd::kErase), WithXor({1, 0, 2})}), (Bytes{kAck, kAck}));
  EXPECT_EQ(Flash(kBase, 1), Bytes{0xFF});
  EXPECT_EQ(Flash(kBase + 0x400, 1), Bytes{9});
  EXPECT_EQ(Flash(kBase + 0x800, 1), Bytes{0xFF});
  EXPECT_EQ(Say({Command(cmd::kErase), {0xFF, 0x00}}), (Bytes{kAck, kAck}));
  EXPECT_EQ(Flash(kBase + 0x400, 1), Bytes{0xFF});
}

TEST_F(BootLoaderChipTest, ProtectionAndTheCommandsThatRestart) {
  ASSERT_TRUE(Connect());
  ASSERT_EQ(Write(kBase, {0x12}), kAcks);
  chip_->set_write_protected(true);
  EXPECT_EQ(Write(kBase + 1, {0x34}), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Say({Command(cmd::kExtendedErase), {0xFF, 0xFF, 0x00}}), (Bytes{kAck, kNack}));
  // Write Unprotect answers twice and restarts: a command now goes
  // unanswered until the next connect byte, which is answered as a first one.
  EXPECT_EQ(Say({Command(cmd::kWriteUnprotect)}), (Bytes{kAck, kAck}));
  EXPECT_FALSE(chip_->write_protected());
  EXPECT_EQ(Say({Command(cmd::kGetId)}), Bytes{});
  EXPECT_TRUE(Connect());
  EXPECT_EQ(Write(kBase + 1, {0x34}), kAcks);

  // Readout protection shuts everything but the chip's identity; lifting it
  // wipes the flash and restarts.
  chip_->set_read_protected(true);
  for (const uint8_t refused : {cmd::kReadMemory, cmd::kWriteMemory, cmd::kGo}) {
    EXPECT_EQ(Say({Command(refused)}), Bytes{kNack}) << int{refused};
  }
  EXPECT_EQ(Say({Command(cmd::kGetId)}).size(), 5u);
  EXPECT_EQ(Say({Command(cmd::kReadoutUnprotect)}), (Bytes{kAck, kAck}));
  EXPECT_FALSE(chip_->read_protected());
  EXPECT_EQ(Flash(kBase, 2), (Bytes{0xFF, 0xFF}));
  EXPECT_FALSE(chip_->connected());

  // Go runs the program at an address in the flash, which hands back by a restart.
  ASSERT_TRUE(Connect());
  EXPECT_EQ(Say({Command(cmd::kGo), Address(0x20000000)}), (Bytes{kAck, kNack}));
  EXPECT_EQ(Say({Command(cmd::kGo), Address(kBase)}), (Bytes{kAck, kAck}));
  EXPECT_FALSE(chip_->connected());
  EXPECT_EQ(chip_->counters().go_commands, 1u);
  EXPECT_EQ(chip_->counters().last_go_address, kBase);

  // Write Protect takes a list of sectors and restarts too.
  ASSERT_TRUE(Connect());
  EXPECT_EQ(Say({Command(cmd::kWriteProtect), WithXor({0, 1})}), (Bytes{kAck, kAck}));
  ASSERT_TRUE(Connect());
  EXPECT_EQ(Write(kBase, {0}), kAcks);
  EXPECT_EQ(Write(kBase + 0x4000, {0}), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(chip_->counters().resets, 4u);
}

TEST_F(BootLoaderChipTest, InjectedNacksAndLostAcks) {
  ASSERT_TRUE(Connect());
  // The second write from now is refused at its data, once.
  chip_->InjectNack(NackFault{cmd::kWriteMemory, FaultRepeat::kOnce, NackPoint::kResult, 1});
  EXPECT_EQ(Write(kBase, {1}), kAcks);
  EXPECT_EQ(Write(kBase + 1, {2}), (Bytes{kAck, kAck, kNack}));
  EXPECT_EQ(Write(kBase + 2, {3}), kAcks);
  EXPECT_EQ(Flash(kBase, 3), (Bytes{1, 0xFF, 3}));

  chip_->InjectNack(NackFault{cmd::kGetId, FaultRepeat::kAlways});
  EXPECT_EQ(Say({Command(cmd::kGetId)}), Bytes{kNack});
  EXPECT_EQ(Say({Command(cmd::kGetId)}), Bytes{kNack});
  chip_->ClearNack();
  EXPECT_EQ(Say({Command(cmd::kGetId)}).size(), 5u);

  // The last ACK of Get ID is lost; the chip carries on.
  chip_->LoseAck(1);
  EXPECT_EQ(Say({Cat({Command(cmd::kGetId), Command(cmd::kGetVersion)})}),
            (Bytes{kAck, 1, 0x04, 0x13, kAck, 0x31, 0, 0, kAck}));
  EXPECT_EQ(chip_->counters().injected_nacks, 3u);
  EXPECT_EQ(chip_->counters().lost_acks, 1u);
}

class BootLoaderSimulatorTest : public ::testing::Test {
 protected:
  void Begin(const BootLoaderSimulatorOptions& options) {
    chip_ = std::make_unique<BootLoaderSimulator>(options);
    ASSERT_TRUE(chip_->Start());
    port_ = std::make_unique<TestPort>(chip_->port_path());
    ASSERT_TRUE(port_->is_open()) << chip_->port_path();
  }
  Bytes Say(const Bytes& bytes, size_t expected) {
    EXPECT_TRUE(port_->Send(bytes));
    return port_->Read(expected);
  }

  std::unique_ptr<BootLoaderSimulator> chip_;
  std::unique_ptr<TestPort> port_;
};

TEST_F(BootLoaderSimulatorTest, TakesTheLinesTimeAndIdlesWithoutWork) {
  using Clock = std::chrono::steady_clock;
  BootLoaderSimulatorOptions paced;
  paced.baud_rate = 9600;
  Begin(paced);
  // Connect, then read 128 bytes: 132 answer bytes on the line to the host,
  // each after the other, at 11 bits per byte.
  const Clock::time_point start = Clock::now();
  ASSERT_EQ(Say({0x7F}, 1), Bytes{kAck});
  const Bytes read = Cat({Command(cmd::kReadMemory), Address(kBase), Count(128)});
  EXPECT_EQ(Say(read, 131), Cat({kAcks, Bytes(128, 0xFF)}));
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_GE(seconds, 132 * 11 / 9600.0);

  // An idle chip with a program on its port waits without spinning (a busy
  // thread would use about all of the time, or be preempted again and again).
  const vyn::test::ProcessUsage before;
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  const vyn::test::ProcessUsage after;
  EXPECT_LT(after.cpu_seconds - before.cpu_seconds, 0.05);
  EXPECT_LT(after.preemptions - before.preemptions, 10);
}

TEST_F(BootLoaderSimulatorTest, FaultsTheirUndoAndAReplugThatRestartsTheChip) {
  Begin({});
  ASSERT_EQ(Say({0x7F}, 1), Bytes{kAck});
  ASSERT_EQ(Say(Cat({Command(cmd::kWriteMemory), Address(kBase), WithXor({0, 0x5A})}), 3), kAcks);
  // A silent chip drops the command; spoken to again, it answers the next.
  chip_->SetSilent(true);
  ASSERT_TRUE(port_->Send(Command(cmd::kGetVersion)));
  for (int i = 0; i < 1000 && chip_->counters().ignored_bytes < 2; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  chip_->SetChipId(0x0410);
  EXPECT_EQ(chip_->chip_id(), 0x0410);
  chip_->ClearFaults();
  EXPECT_EQ(Say(Command(cmd::kGetId), 5), (Bytes{kAck, 1, 0x04, 0x13, kAck}));

  // Plugged in again, the chip has restarted and the flash is kept.
  ASSERT_TRUE(chip_->Unplug());
  EXPECT_TRUE(port_->WaitForHangUp(2000));
  ASSERT_TRUE(chip_->Replug());
  port_ = std::make_unique<TestPort>(chip_->port_path());
  ASSERT_TRUE(port_->is_open());
  EXPECT_EQ(Say(Cat({Command(cmd::kGetId), {0x7F}}), 1), Bytes{kAck});
  EXPECT_EQ(chip_->FlashContents().at(0), 0x5A);
}

}  // namespace
