#include "vyn/serial/internal/frame_assembler.h"

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/test_frames.h"
#include "vyn/core/status.h"

namespace {

using vyn::test::Bytes;
using vyn::test::Cat;
using vyn::test::CcpuFrame;
using vyn::test::McpuFrame;

class FrameAssemblerTest : public testing::Test {
 protected:
  FrameAssemblerTest()
      : assembler_([this](const unsigned char* frame, uint16_t length) {
          frames_.emplace_back(frame, frame + length);
        }) {}

  void Feed(const Bytes& bytes, uint32_t tick = 100) {
    assembler_.Feed(bytes.data(), bytes.size(), tick);
  }
  CVYNFrameAssembler::Statistics Stats() const { return assembler_.GetStatistics(); }

  CVYNFrameAssembler assembler_;
  std::vector<Bytes> frames_;
};

TEST_F(FrameAssemblerTest, FindsFramesAmongJunkAndCountsEveryByte) {
  const Bytes empty = CcpuFrame(0x4003, {});
  const Bytes status = CcpuFrame(0x8002, {27, 0xE8, 0x03});
  // Junk before and between, a start delimiter inside a payload.
  const Bytes with_b = CcpuFrame(0x4054, {'B', 0, 'B', 0});
  Feed(Cat({{0x00, 0xFF, 0x3E}, empty, {0x13}, status, with_b}));
  EXPECT_EQ(frames_, (std::vector<Bytes>{empty, status, with_b}));
  EXPECT_EQ(Stats().isd, 4u);
  EXPECT_EQ(Stats().frames_received, 3u);
  EXPECT_EQ(Stats().bytes_received, 4u + empty.size() + status.size() + with_b.size());
  EXPECT_EQ(assembler_.GetByteCount(), 0);
  EXPECT_EQ(assembler_.GetTimeOfLastReception(), 0u);

  // MCPU framing: 'B' is junk now, '>' starts a frame; an empty payload has
  // a zero checksum byte.
  ASSERT_EQ(assembler_.SetProtocol(PROTOCOL_MCPU), 0);
  EXPECT_EQ(assembler_.SetProtocol(0x1234), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(assembler_.GetProtocol(), PROTOCOL_MCPU);
  Feed(Cat({{0x42}, {0x3E, 0x56, 0x00, 0x56, 0x00}, McpuFrame(0x43, {0x45, 1})}));
  ASSERT_EQ(frames_.size(), 5u);
  EXPECT_EQ(frames_[3], (Bytes{0x3E, 0x56, 0x00, 0x56, 0x00}));
  EXPECT_EQ(frames_[4], McpuFrame(0x43, {0x45, 1}));

  assembler_.CountSentFrame(12);
  EXPECT_EQ(assembler_.FormatStatistics(),
            "Serial status; received; 5; 47; sent; 1; 12; ISD; 5; IHCS; 0; IPCS; 0; too long; 0; "
            "timeout; 0");
  assembler_.InitializeStatistics();
  EXPECT_EQ(assembler_.FormatStatistics(),
            "Serial status; received; 0; 0; sent; 0; 0; ISD; 0; IHCS; 0; IPCS; 0; too long; 0; "
            "timeout; 0");
}

TEST_F(FrameAssemblerTest, BadChecksumsAreCountedAndTheStreamResynchronises) {
  // Wrong header checksum: refused at the seventh byte, before any payload.
  Bytes bad_header = CcpuFrame(0x4002, {1, 2, 3});
  bad_header[6] ^= 0x01;
  Feed(Bytes(bad_header.begin(), bad_header.begin() + 7));
  EXPECT_EQ(Stats().ihcs, 1u);
  EXPECT_EQ(assembler_.GetByteCount(), 0);

  // Wrong payload checksum with a good frame inside its payload.
  const Bytes inner = CcpuFrame(0x4003, {});
  Bytes outer = CcpuFrame(0x4054, Cat({{1}, inner, {2}}));
  outer.back() ^= 0xFF;
  const Bytes after = CcpuFrame(0x4051, {0});
  Feed(Cat({outer, after}));
  EXPECT_EQ(Stats().ipcs, 1u);
  EXPECT_EQ(frames_, (std::vector<Bytes>{inner, after}));

  // A stray 'B' makes a bad header of the good frame's first six bytes; the
  // resynchronisation finds the good frame's start at byte 1, but only its
  // header has arrived so far: it stays for the next read.
  const Bytes good = CcpuFrame(0x4054, Cat({vyn::test::Text("2024"), vyn::test::Text("ann")}));
  Feed(Cat({{0x42}, Bytes(good.begin(), good.begin() + 6)}));
  EXPECT_EQ(Stats().ihcs, 2u);
  EXPECT_EQ(Bytes(assembler_.GetBuffer(), assembler_.GetBuffer() + assembler_.GetByteCount()),
            Bytes(good.begin(), good.begin() + 6));
  EXPECT_NE(assembler_.GetTimeOfLastReception(), 0u);
  Feed(Bytes(good.begin() + 6, good.end()));
  ASSERT_EQ(frames_.size(), 3u);
  EXPECT_EQ(frames_[2], good);
  // Re-fed bytes count again: a bad frame found by resynchronisation too.
  Feed(Cat({bad_header, bad_header}));
  EXPECT_EQ(Stats().ihcs, 4u);
  EXPECT_EQ(frames_.size(), 3u);
}

TEST_F(FrameAssemblerTest, LengthsAtTheLimitAreTakenAndBeyondItRefused) {
  const Bytes largest = CcpuFrame(0x4002, Bytes(1015, 0));
  ASSERT_EQ(largest.size(), 1023u);
  Feed(largest);
  EXPECT_EQ(frames_, std::vector<Bytes>{largest});

  for (uint16_t n : {uint16_t{1016}, uint16_t{2000}, uint16_t{0xFFFF}}) {
    const Bytes header = CcpuFrame(0x4002, Bytes(n, 0));
    Feed(Bytes(header.begin(), header.begin() + 7));
    EXPECT_EQ(assembler_.GetByteCount(), 0) << n;
  }
  EXPECT_EQ(Stats().too_long, 3u);

  // A frame begun in one framing and continued in the other can only end
  // when the buffer is full: too long, and nothing is written beyond it.
  Feed({0x42, 0x01, 0x00, 0x00});
  ASSERT_EQ(assembler_.SetProtocol(PROTOCOL_MCPU), 0);
  Feed(Bytes(1100, 0x55));
  EXPECT_EQ(Stats().too_long, 4u);
  EXPECT_EQ(assembler_.GetByteCount(), 0);

  // The payload and its checksum must lie inside the given size.
  ASSERT_EQ(assembler_.SetProtocol(PROTOCOL_CCPU), 0);
  Bytes frame = CcpuFrame(0x4002, {1, 2, 3});
  EXPECT_EQ(assembler_.VerifyPayloadCheckSum(frame.data(), 10), RX_WRONG_LENGTH);
  EXPECT_EQ(assembler_.VerifyPayloadCheckSum(frame.data(), 11), RX_COMPLETE);
  frame.back() ^= 1;
  EXPECT_EQ(assembler_.VerifyPayloadCheckSum(frame.data(), 1024), RX_BAD_PAYLOAD_CHECKSUM);
}

TEST_F(FrameAssemblerTest, PendingReceptionsTimeOutAfterTwoSeconds) {
  const Bytes frame = CcpuFrame(0x4011, {0, 0, 0});
  Feed(Bytes(frame.begin(), frame.begin() + 5), 0xFFFFF000);
  EXPECT_FALSE(assembler_.CheckTimeout(0xFFFFF000 + 2000));
  // The tick wraps in between.
  EXPECT_TRUE(assembler_.CheckTimeout(0xFFFFF000 + 2001));
  EXPECT_EQ(Stats().timeout, 1u);
  EXPECT_EQ(assembler_.GetByteCount(), 0);
  EXPECT_FALSE(assembler_.CheckTimeout(0xFFFFF000 + 99999));

  // The rest arrives too late: its bytes are junk, not a frame.
  Feed(Bytes(frame.begin() + 5, frame.end()), 5000);
  EXPECT_TRUE(frames_.empty());
  EXPECT_EQ(Stats().isd, frame.size() - 5);
  // Bytes that all went to junk still count as a reception that times out.
  EXPECT_TRUE(assembler_.CheckTimeout(7001));
  EXPECT_EQ(Stats().timeout, 2u);

  // Within the time the frame is completed across reads.
  Feed(Bytes(frame.begin(), frame.begin() + 3), 8000);
  EXPECT_FALSE(assembler_.CheckTimeout(9000));
  Feed(Bytes(frame.begin() + 3, frame.end()), 9000);
  ASSERT_EQ(frames_.size(), 1u);
  EXPECT_FALSE(assembler_.CheckTimeout(20000));

  // The start of a frame behind a completed one in the same read times out.
  Feed(Cat({frame, Bytes(frame.begin(), frame.begin() + 4)}), 30000);
  ASSERT_EQ(frames_.size(), 2u);
  EXPECT_EQ(assembler_.GetByteCount(), 4);
  EXPECT_TRUE(assembler_.CheckTimeout(32001));
  EXPECT_EQ(Stats().timeout, 3u);
}

}  // namespace
