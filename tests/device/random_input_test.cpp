// Deterministic random input: the assembler, every parser and the dump must
// take anything the line may bring without reading out of bounds, and every
// frame they accept must be a well-formed one.
#include <gtest/gtest.h>

#include <random>

#include "tests/device/parser_cases.h"
#include "tests/support/test_frames.h"
#include "vyn/device/command_dump.h"
#include "vyn/serial/frame_assembler.h"

namespace {

using vyn::test::Bytes;
using vyn::test::ByteSum;

// A byte stream of noise with frame-like pieces, so that headers pass now
// and then and payloads get checked.
Bytes RandomStream(std::mt19937& random, uint16_t protocol) {
  std::uniform_int_distribution<int> byte(0, 255);
  Bytes stream(std::uniform_int_distribution<size_t>(0, 3000)(random));
  for (unsigned char& b : stream) b = static_cast<unsigned char>(byte(random));
  const int pieces = std::uniform_int_distribution<int>(0, 6)(random);
  for (int i = 0; i < pieces && !stream.empty(); ++i) {
    const size_t at = std::uniform_int_distribution<size_t>(0, stream.size() - 1)(random);
    const size_t n = std::uniform_int_distribution<size_t>(0, 40)(random);
    Bytes payload(n);
    for (unsigned char& b : payload) b = static_cast<unsigned char>(byte(random));
    Bytes frame =
        protocol == PROTOCOL_CCPU
            ? vyn::test::CcpuFrame(static_cast<uint16_t>(byte(random) << 8 | byte(random)), payload)
            : vyn::test::McpuFrame(static_cast<unsigned char>(byte(random)), payload);
    if (byte(random) < 64) frame.back() ^= 1;  // now and then a bad payload checksum
    stream.insert(stream.begin() + static_cast<std::ptrdiff_t>(at), frame.begin(), frame.end());
  }
  return stream;
}

bool WellFormed(uint16_t protocol, const Bytes& frame) {
  if (protocol == PROTOCOL_CCPU) {
    if (frame.size() < 7 || frame[0] != 0x42 || ByteSum(&frame[1], 5) != frame[6]) return false;
    const size_t n = frame[3] | (frame[4] << 8);
    if (n == 0) return frame.size() == 7;
    return frame.size() == n + 8 && ByteSum(&frame[7], n) == frame[7 + n];
  }
  if (frame.size() < 5 || frame[0] != 0x3E || ((frame[1] + frame[2]) & 0xFF) != frame[3]) {
    return false;
  }
  const size_t n = frame[2];
  return frame.size() == n + 5 && ByteSum(&frame[4], n) == frame[4 + n];
}

TEST(RandomInputTest, TheAssemblerHandsOverOnlyWellFormedFrames) {
  std::mt19937 random(0x5EED);
  for (uint16_t protocol : {PROTOCOL_CCPU, PROTOCOL_MCPU}) {
    size_t handed_over = 0;
    for (int round = 0; round < 1500; ++round) {
      std::vector<Bytes> frames;
      CVYNFrameAssembler assembler([&](const unsigned char* frame, uint16_t length) {
        frames.emplace_back(frame, frame + length);
      });
      ASSERT_EQ(assembler.SetProtocol(protocol), 0);
      const Bytes stream = RandomStream(random, protocol);
      size_t offset = 0;
      uint32_t tick = 1;
      while (offset < stream.size()) {
        const size_t piece = std::min<size_t>(
            stream.size() - offset, std::uniform_int_distribution<size_t>(1, 300)(random));
        assembler.Feed(stream.data() + offset, piece, tick);
        offset += piece;
        tick += 700;
        assembler.CheckTimeout(tick);
      }
      for (const Bytes& frame : frames) ASSERT_TRUE(WellFormed(protocol, frame));
      ASSERT_EQ(assembler.GetStatistics().frames_received, frames.size());
      ASSERT_EQ(assembler.GetStatistics().bytes_received, stream.size());
      ASSERT_LT(assembler.GetByteCount(), 1024);
      handed_over += frames.size();
    }
    // The streams are built to contain frames; most must be found.
    EXPECT_GT(handed_over, 1500u) << protocol;
  }
}

TEST(RandomInputTest, ParsersAndTheDumpTakeAnyRecord) {
  std::mt19937 random(0xF00D);
  std::uniform_int_distribution<int> byte(0, 255);
  const auto parsers = vyn::test::AllParsers();
  CVYNCommandSet command_set;
  CVYNCommandDump dump;
  const uint16_t ids[] = {0x4001, 0x4002, 0x4003, 0x4011, 0x4051, 0x4052, 0x4053, 0x4054,
                          0x4A01, 0x4B01, 0x4B21, 0x4B22, 0x4B23, 0x4B24, 0x4B25, 0x4B51,
                          0x4B52, 0x4B53, 0x4B54, 0x8002, 0xBFFE, 0xBFFF, 0xBAFF, 0xBBFF};
  const unsigned char mcpu_ids[] = {0x21, 0x43, 0x56, 0x17};
  for (int round = 0; round < 4000; ++round) {
    vyn::test::Record record;
    for (unsigned char& b : record) b = static_cast<unsigned char>(byte(random));
    // Mostly plausible lengths, sometimes any.
    if (byte(random) < 200) {
      const int n = std::uniform_int_distribution<int>(0, byte(random) < 128 ? 40 : 1015)(random);
      record[3] = static_cast<unsigned char>(n & 0xFF);
      record[4] = static_cast<unsigned char>(n >> 8);
    }
    record[0] = byte(random) < 128 ? 0x42 : 0x3E;
    if (record[0] == 0x42) {
      const uint16_t id = ids[round % std::size(ids)];
      record[1] = static_cast<unsigned char>(id & 0xFF);
      record[2] = static_cast<unsigned char>(id >> 8);
    } else {
      record[1] = mcpu_ids[round % std::size(mcpu_ids)];
    }
    for (const auto& parser : parsers) {
      const int32_t result = parser.run(command_set, record.data()).result;
      ASSERT_TRUE(result == 0 || result == -27 || result == -3 || result == -22)
          << parser.name << " " << result;
    }
    dump.ClearCommandDump();
    ASSERT_EQ(dump.DumpAcknowledgeOrNotification(record.data()), 0);
    ASSERT_LE(std::strlen(dump.GetCommandDump()), 1023u);
  }
}

}  // namespace
