// Deterministic random input: the assembler, the parsers and the dump must
// take anything the line may bring without reading out of bounds, and every
// frame the assembler accepts must be a well-formed one.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "tests/support/test_frames.h"
#include "vyn/device/command_dump.h"
#include "vyn/serial/internal/frame_assembler.h"

namespace {

using vyn::test::Bytes;

// Noise with frame-like pieces, so that headers pass now and then and
// payloads get checked.
Bytes RandomStream(std::mt19937& random, bool ccpu) {
  std::uniform_int_distribution<int> byte(0, 255);
  const auto any = [&] { return static_cast<unsigned char>(byte(random)); };
  Bytes stream(std::uniform_int_distribution<size_t>(0, 3000)(random));
  for (unsigned char& b : stream) b = any();
  const int pieces = std::uniform_int_distribution<int>(0, 6)(random);
  for (int i = 0; i < pieces && !stream.empty(); ++i) {
    const size_t at = std::uniform_int_distribution<size_t>(0, stream.size() - 1)(random);
    Bytes payload(std::uniform_int_distribution<size_t>(0, 40)(random));
    for (unsigned char& b : payload) b = any();
    const auto id = static_cast<uint16_t>(any() << 8 | any());
    Bytes frame = ccpu ? vyn::test::CcpuFrame(id, payload)
                       : vyn::test::McpuFrame(static_cast<unsigned char>(id), payload);
    if (any() < 64) frame.back() ^= 1;  // now and then a bad payload checksum
    stream.insert(stream.begin() + static_cast<std::ptrdiff_t>(at), frame.begin(), frame.end());
  }
  return stream;
}

TEST(RandomInputTest, TheAssemblerHandsOverOnlyWellFormedFrames) {
  std::mt19937 random(0x5EED);
  for (const bool ccpu : {true, false}) {
    size_t handed_over = 0;
    for (int round = 0; round < 1500; ++round) {
      std::vector<Bytes> frames;
      CVYNFrameAssembler assembler([&](const unsigned char* frame, uint16_t length) {
        frames.emplace_back(frame, frame + length);
      });
      ASSERT_EQ(assembler.SetProtocol(ccpu ? PROTOCOL_CCPU : PROTOCOL_MCPU), 0);
      const Bytes stream = RandomStream(random, ccpu);
      uint32_t tick = 1;
      for (size_t at = 0; at < stream.size(); tick += 700) {
        const size_t piece = std::min<size_t>(
            stream.size() - at, std::uniform_int_distribution<size_t>(1, 300)(random));
        assembler.Feed(stream.data() + at, piece, tick);
        at += piece;
        assembler.CheckTimeout(tick + 700);
      }
      for (const Bytes& frame : frames) {
        ASSERT_TRUE(vyn::test::WellFormed(frame) && frame[0] == (ccpu ? 0x42 : 0x3E));
      }
      ASSERT_EQ(assembler.GetStatistics().frames_received, frames.size());
      ASSERT_EQ(assembler.GetStatistics().bytes_received, stream.size());
      ASSERT_LT(assembler.GetByteCount(), 1024);
      handed_over += frames.size();
    }
    // The streams are built to contain frames; most must be found.
    EXPECT_GT(handed_over, 1500u) << ccpu;
  }
}

TEST(RandomInputTest, TheDumpAndEveryParserTakeAnyRecord) {
  std::mt19937 random(0xF00D);
  std::uniform_int_distribution<int> byte(0, 255);
  CVYNCommandSet command_set;
  CVYNCommandDump dump;
  const auto render = [&](vyn::test::Record& record) {
    dump.ClearCommandDump();
    ASSERT_EQ(dump.DumpAcknowledgeOrNotification(record.data()), 0);
    ASSERT_LE(std::strlen(dump.GetCommandDump()), 1023u);
  };
  for (int round = 0; round < 4000; ++round) {
    vyn::test::Record record;
    for (unsigned char& b : record) b = static_cast<unsigned char>(byte(random));
    // Mostly plausible CCPU lengths, sometimes any.
    if (byte(random) < 200) {
      const int n = std::uniform_int_distribution<int>(0, byte(random) < 128 ? 40 : 1015)(random);
      record[3] = static_cast<unsigned char>(n & 0xFF);
      record[4] = static_cast<unsigned char>(n >> 8);
    }
    // Every record to every parser; the MCPU ones first, while byte 2 is a
    // random length and not yet part of a CCPU id.
    const unsigned int mcpu_n = record[2];
    const unsigned int ccpu_n = record[3] | record[4] << 8;
    record[0] = 0x3E;
    for (const unsigned char id : {0x21, 0x43, 0x56}) {
      record[1] = id;
      render(record);
    }
    unsigned char a = 0;
    unsigned char d = 0;
    uint16_t b = 0;
    uint16_t c = 0;
    ASSERT_EQ(command_set.ProcessRealtimeData3(record.data(), &a, &b, &c, &d),
              mcpu_n == 63 ? 0 : RX_WRONG_LENGTH);
    ASSERT_EQ(command_set.ProcessAckConfirm(record.data(), &a), mcpu_n > 0 ? 0 : RX_WRONG_LENGTH);

    record[0] = 0x42;
    for (const uint16_t id : {0x4001, 0x4002, 0x4003, 0x4011, 0x4051, 0x4052, 0x4053, 0x4054,
                              0x4A01, 0x4B01, 0x4B21, 0x4B22, 0x4B23, 0x4B24, 0x4B25, 0x4B51,
                              0x4B52, 0x4B53, 0x4B54, 0x8002, 0xBFFE, 0xBFFF, 0xBAFF, 0xBBFF}) {
      record[1] = static_cast<unsigned char>(id & 0xFF);
      record[2] = static_cast<unsigned char>(id >> 8);
      render(record);
    }
    // The slots the dump leaves out or reaches with a small trace capacity.
    unsigned char codes[255] = {};
    ASSERT_EQ(command_set.ProcessAckControl(record.data(), &a, codes),
              ccpu_n <= 255 ? 0 : RX_WRONG_LENGTH);
    int16_t trace[512] = {};
    const bool trace_ok = ccpu_n > 0 && ccpu_n <= 1015 && ccpu_n % 2 == 0;
    ASSERT_EQ(command_set.ProcessNotTrace(record.data(), &b, trace, 512),
              trace_ok ? 0 : RX_WRONG_LENGTH);
  }
}

}  // namespace
