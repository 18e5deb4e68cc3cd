// The bootloader client's commands byte by byte against a scripted chip on a
// pseudo-terminal: what goes out, how answers are read, and where a command
// stops.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "tests/firmware/scripted_chip.h"
#include "vyn/firmware/stm32_boot_loader.h"
#include "vyn/platform/serial_device.h"

namespace vyn::test {
namespace {

constexpr unsigned char kAck = 0x79;
constexpr unsigned char kNack = 0x1F;

class BootLoaderProbe : public CVYNSTM32BootLoader {
 public:
  using CVYNSTM32BootLoader::stm32_erase_flash;
  using CVYNSTM32BootLoader::stm32_extended_erase_flash;
  using CVYNSTM32BootLoader::stm32_get_chip_id;
  using CVYNSTM32BootLoader::stm32_get_version;
  using CVYNSTM32BootLoader::stm32_go_command;
  using CVYNSTM32BootLoader::stm32_init;
  using CVYNSTM32BootLoader::stm32_write_flash;
  using CVYNSTM32BootLoader::stm32_write_unprotect;
  using CVYNSTM32BootLoader::stm32h_close_port;
  using CVYNSTM32BootLoader::stm32h_configure_port;
  using CVYNSTM32BootLoader::stm32h_connect_to_bl;
  using CVYNSTM32BootLoader::stm32h_open_port;
};

// A data source that hands out blocks of the sizes listed, filled with
// their own position, and the progress calls it saw.
std::vector<uint32_t> g_block_sizes;
size_t g_next_block = 0;
std::vector<uint32_t> g_progress;

uint32_t ListedBlocks(unsigned char* buffer, uint32_t size) {
  if (g_next_block >= g_block_sizes.size()) return 0;
  const uint32_t count = std::min(size, g_block_sizes[g_next_block++]);
  for (uint32_t i = 0; i < count; ++i) buffer[i] = static_cast<unsigned char>(i * 7 + g_next_block);
  return count;
}

void RecordProgress(uint32_t written) { g_progress.push_back(written); }

ByteString Concat(std::initializer_list<ByteString> parts) {
  ByteString all;
  for (const ByteString& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// What one Write Memory block puts on the line.
ByteString WriteBlock(uint32_t address, uint32_t count, size_t block_number) {
  ByteString block = {0x31, 0xCE};
  const ByteString where = {
      static_cast<unsigned char>(address >> 24), static_cast<unsigned char>(address >> 16),
      static_cast<unsigned char>(address >> 8), static_cast<unsigned char>(address)};
  block.insert(block.end(), where.begin(), where.end());
  block.push_back(where[0] ^ where[1] ^ where[2] ^ where[3]);
  unsigned char sum = static_cast<unsigned char>(count - 1);
  block.push_back(sum);
  for (uint32_t i = 0; i < count; ++i) {
    block.push_back(static_cast<unsigned char>(i * 7 + block_number));
    sum ^= block.back();
  }
  block.push_back(sum);
  return block;
}

class BootLoaderProtocolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(chip_.opened());
    g_block_sizes.clear();
    g_next_block = 0;
    g_progress.clear();
  }
  void TearDown() override { client_.stm32h_close_port(); }

  // Opens and sets up the port, then lets the chip answer the connect byte
  // with ACK before the script of the test.
  void Connect(std::vector<ChipStep> steps) {
    steps.insert(steps.begin(), ChipStep{1, {kAck}});
    chip_.Run(std::move(steps));
    ASSERT_EQ(client_.stm32_init(chip_.path(), 115200), 0);
  }

  ScriptedChip chip_;
  BootLoaderProbe client_;
};

TEST_F(BootLoaderProtocolTest, ConnectDropsWaitingBytesAndTakesAckOrNack) {
  ASSERT_GE(client_.stm32h_open_port(chip_.path()), 0);
  ASSERT_EQ(client_.stm32h_configure_port(115200), 0);
  // Bytes left on the line from before: a zero would be a wrong answer.
  chip_.Send({0x00, 0x00, 0x00});
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  // A chip that is connected already answers NACK; a wrong byte is no answer.
  chip_.Run({{1, {kNack}}, {1, {0x55}}, {1, {kAck}}});
  EXPECT_EQ(client_.stm32h_connect_to_bl(), 0);
  EXPECT_EQ(client_.stm32h_connect_to_bl(), 3);
  EXPECT_EQ(client_.stm32h_connect_to_bl(), 0);
  chip_.Stop();
  EXPECT_EQ(chip_.received(), (ByteString{0x7F, 0x7F, 0x7F}));
}

TEST_F(BootLoaderProtocolTest, VersionAndChipId) {
  Connect(
      {{2,
        {kAck, 11, 0x22, 0x00, 0x01, 0x02, 0x11, 0x21, 0x31, 0x43, 0x63, 0x73, 0x82, 0x92, kAck}},
       {2, {kAck, 1, 0x04, 0x13, kAck}},
       {2, {kAck, 2, 0x04, 0x13, 0x00, kAck}}});
  unsigned char major = 0;
  unsigned char minor = 0;
  EXPECT_EQ(client_.stm32_get_version(&major, &minor), 0);
  EXPECT_EQ(major, 2);
  EXPECT_EQ(minor, 2);
  uint16_t id = 0;
  EXPECT_EQ(client_.stm32_get_chip_id(&id), 0);
  EXPECT_EQ(id, 0x0413);
  EXPECT_EQ(client_.stm32_get_chip_id(&id), 2) << "a count byte other than 1";
  chip_.Stop();
  EXPECT_EQ(chip_.received(), (ByteString{0x7F, 0x00, 0xFF, 0x02, 0xFD, 0x02, 0xFD}));
}

TEST_F(BootLoaderProtocolTest, WriteMemoryBlockByBlockUntilANack) {
  g_block_sizes = {256, 256, 10};
  std::vector<ChipStep> script;
  for (size_t data : {258, 258, 11, 258, 258}) {
    script.insert(script.end(), {{2, {kAck}}, {5, {kAck}}, {data, {kAck}}});
  }
  script.back().reply = {kNack};
  Connect(script);
  EXPECT_EQ(client_.stm32_write_flash(&ListedBlocks, &RecordProgress), 0);
  EXPECT_EQ(g_progress, (std::vector<uint32_t>{256, 512, 522}));
  const ByteString written = chip_.received();
  EXPECT_EQ(written, Concat({{0x7F},
                             WriteBlock(0x08000000, 256, 1),
                             WriteBlock(0x08000100, 256, 2),
                             WriteBlock(0x08000200, 10, 3)}));

  // A source with nothing to give: nothing is sent. A NACK in the middle of
  // a write stops it there.
  g_block_sizes.clear();
  g_next_block = 0;
  EXPECT_EQ(client_.stm32_write_flash(&ListedBlocks, nullptr), 0);
  g_block_sizes.assign(10, 256);
  g_progress.clear();
  EXPECT_EQ(client_.stm32_write_flash(&ListedBlocks, &RecordProgress), 2);
  EXPECT_EQ(g_progress, (std::vector<uint32_t>{256}));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  chip_.Stop();
  EXPECT_EQ(chip_.received().size(), written.size() + 2 * 265) << "nothing sent after the NACK";
}

TEST_F(BootLoaderProtocolTest, EraseGoAndWriteUnprotect) {
  Connect({{2, {kAck}},
           {2, {kAck}},  // Erase
           {2, {kAck}},
           {2, {kNack}},  // Erase, refused
           {2, {kAck}},
           {3, {kAck}},  // Extended Erase
           {2, {kAck}},
           {5, {kAck}},  // Go
           {2, {kAck, kAck}},
           {1, {kAck}}});
  EXPECT_EQ(client_.stm32_erase_flash(), 0);
  EXPECT_EQ(client_.stm32_erase_flash(), 2) << "the erase itself refused";
  EXPECT_EQ(client_.stm32_extended_erase_flash(), 0);
  EXPECT_EQ(client_.stm32_go_command(), 0);
  EXPECT_EQ(client_.stm32_write_unprotect(), 0) << "after the chip's restart, a new connect";
  chip_.Stop();
  EXPECT_EQ(chip_.received(), (ByteString{0x7F, 0x43, 0xBC, 0xFF, 0x00, 0x43, 0xBC, 0xFF, 0x00,  //
                                          0x44, 0xBB, 0xFF, 0xFF, 0x00,                          //
                                          0x21, 0xDE, 0x08, 0x00, 0x00, 0x00, 0x08,              //
                                          0x73, 0x8C, 0x7F}));
}

TEST_F(BootLoaderProtocolTest, WithoutAUsablePortNothingIsSent) {
  chip_.Run({});
  unsigned char major = 0;
  unsigned char minor = 0;
  uint16_t id = 0;
  g_block_sizes = {256};
  EXPECT_EQ(client_.stm32_get_version(&major, &minor), 5);
  EXPECT_EQ(client_.stm32_get_chip_id(&id), 5);
  EXPECT_EQ(client_.stm32_erase_flash(), 5);
  EXPECT_EQ(client_.stm32_extended_erase_flash(), 5);
  EXPECT_EQ(client_.stm32_write_flash(&ListedBlocks, nullptr), 5);
  EXPECT_EQ(client_.stm32_go_command(), 5);
  EXPECT_EQ(client_.stm32_write_unprotect(), 5);
  EXPECT_EQ(client_.stm32h_connect_to_bl(), 3);
  EXPECT_EQ(client_.stm32h_configure_port(115200), 1);
  EXPECT_EQ(client_.stm32h_open_port("/dev/vyn-no-such-port"), -1);
  EXPECT_EQ(client_.stm32h_open_port(""), -1);
  EXPECT_EQ(client_.stm32h_open_port(std::string(2000, 'x')), -1);
  EXPECT_EQ(client_.stm32_init("/dev/vyn-no-such-port", 115200), 1);

  // Not a terminal: opened, but its settings cannot be made; closed again.
  EXPECT_GE(client_.stm32h_open_port("/dev/null"), 0);
  EXPECT_EQ(client_.stm32h_configure_port(115200), 1);
  EXPECT_EQ(client_.stm32_go_command(), 5);

  // A rate the line does not know.
  EXPECT_GE(client_.stm32h_open_port(chip_.path()), 0);
  EXPECT_EQ(client_.stm32h_configure_port(12345), 1);

  // Held by the serial driver, or held by the client: neither gets in.
  {
    platform::SerialDevice driver;
    ASSERT_TRUE(driver.Open(chip_.path(), 115200, nullptr, nullptr));
    EXPECT_EQ(client_.stm32h_open_port(chip_.path()), -1);
  }
  EXPECT_GE(client_.stm32h_open_port(chip_.path()), 0);
  platform::SerialDevice driver;
  int error = 0;
  EXPECT_FALSE(driver.Open(chip_.path(), 115200, nullptr, &error));
  EXPECT_EQ(error, EBUSY);
  client_.stm32h_close_port();
  EXPECT_TRUE(driver.Open(chip_.path(), 115200, nullptr, nullptr)) << "given back on close";
  chip_.Stop();
  EXPECT_TRUE(chip_.received().empty());
}

TEST_F(BootLoaderProtocolTest, UnplugDuringTheWriteEndsItAtOnce) {
  g_block_sizes.assign(100, 256);
  Connect({{2, {kAck}}, {5, {kAck}}, {258, {kAck}}, {2, {}, true}});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(client_.stm32_write_flash(&ListedBlocks, nullptr), 2);
  // The long read limit is 2,000,000 ms; a hang-up must not wait for it.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace vyn::test
