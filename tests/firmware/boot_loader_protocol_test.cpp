// The bootloader client's commands one by one: against the simulated chip,
// which refuses every wrong checksum, and against a bare pseudo-terminal
// for the answers no sound chip gives.
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "sim/boot_loader_simulator.h"
#include "support/pseudo_terminal.h"
#include "vyn/firmware/stm32_boot_loader.h"

namespace vyn::test {
namespace {

using ByteString = std::vector<unsigned char>;

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

// A data source that hands out blocks of the sizes listed.
std::vector<uint32_t> g_block_sizes;
size_t g_next_block = 0;

uint32_t ListedBlocks(unsigned char* buffer, uint32_t size) {
  if (g_next_block >= g_block_sizes.size()) return 0;
  const uint32_t count = std::min(size, g_block_sizes[g_next_block++]);
  std::fill_n(buffer, count, 0x5A);
  return count;
}

class BootLoaderProtocolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(chip_.Start());
    g_block_sizes.clear();
    g_next_block = 0;
  }
  void TearDown() override { client_.stm32h_close_port(); }

  sim::BootLoaderSimulator chip_;
  BootLoaderProbe client_;
};

// What a transmission never does: connect twice, and Write Unprotect. Its
// other commands are proven by whole transmissions into the same chip.
TEST_F(BootLoaderProtocolTest, ConnectAgainAndWriteUnprotect) {
  ASSERT_EQ(client_.stm32_init(chip_.port_path(), 115200), 0);
  EXPECT_EQ(client_.stm32h_connect_to_bl(), 0) << "a connected chip answers NACK";
  // Protected flash refuses the write until Write Unprotect, after which
  // the chip restarts and is connected anew.
  chip_.SetWriteProtected(true);
  g_block_sizes = {256};
  EXPECT_EQ(client_.stm32_write_flash(&ListedBlocks, nullptr), 2);
  EXPECT_EQ(client_.stm32_write_unprotect(), 0);
  EXPECT_FALSE(chip_.IsWriteProtected());
  EXPECT_EQ(chip_.counters().connects, 2U);
  EXPECT_EQ(chip_.counters().checksum_errors, 0U);
}

TEST_F(BootLoaderProtocolTest, WithoutAUsablePortEveryCommandFails) {
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
}

// Answers the client's next bytes, read on the terminal's master, with `reply`.
std::thread AnswerNextBytes(int master, ByteString reply) {
  return std::thread([master, reply] {
    pollfd in{master, POLLIN, 0};
    unsigned char sent[64];
    if (poll(&in, 1, 20000) <= 0 || read(master, sent, sizeof sent) <= 0) return;
    EXPECT_EQ(write(master, reply.data(), reply.size()), static_cast<ssize_t>(reply.size()));
  });
}

TEST(BootLoaderLineTest, StrayBytesAndWrongAnswers) {
  support::PseudoTerminal line;
  ASSERT_TRUE(line.Open());
  BootLoaderProbe client;
  ASSERT_GE(client.stm32h_open_port(line.slave_path()), 0);
  ASSERT_EQ(client.stm32h_configure_port(115200), 0);
  const int master = line.master_descriptor();
  // Bytes left on the line from before are dropped: a zero would be a wrong
  // answer. A chip that is connected already answers NACK.
  ASSERT_EQ(write(master, "\0\0\0", 3), 3);
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  std::thread chip = AnswerNextBytes(master, {0x1F});
  EXPECT_EQ(client.stm32h_connect_to_bl(), 0);
  chip.join();
  chip = AnswerNextBytes(master, {0x55});
  EXPECT_EQ(client.stm32h_connect_to_bl(), 3) << "a wrong byte is no answer";
  chip.join();

  // A chip id answer whose count byte is not 1, though the id that follows
  // ends with an ACK as a one-byte count's would.
  const ByteString id_answer = {0x79, 2, 0x04, 0x13, 0x79};
  ASSERT_EQ(write(master, id_answer.data(), id_answer.size()), 5);
  uint16_t id = 0;
  EXPECT_EQ(client.stm32_get_chip_id(&id), 2);
  client.stm32h_close_port();
}

}  // namespace
}  // namespace vyn::test
