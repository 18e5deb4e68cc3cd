#include <gtest/gtest.h>

#include "tests/support/test_frames.h"
#include "vyn/core/status.h"
#include "vyn/device/command_set.h"

namespace {

using vyn::test::Bytes;
using vyn::test::CcpuFrame;
using vyn::test::Record;
using vyn::test::ToRecord;

TEST(ChecksumsTest, SequenceNumbersRunFromOneTo255AndSkipZero) {
  CVYNCommandSet command_set;
  unsigned char frame[16] = {};
  for (int expected = 1; expected <= 255; ++expected) {
    command_set.PrepareReqGetDeviceInfo(frame);
    ASSERT_EQ(command_set.CalculateChecksums(frame), 0);
    ASSERT_EQ(frame[5], expected);
    ASSERT_EQ(frame[6], (0x01 + expected) & 0xFF);
  }
  command_set.PrepareReqGetDeviceInfo(frame);
  command_set.CalculateChecksums(frame);
  EXPECT_EQ(frame[5], 1);
  // MCPU frames carry no sequence number and do not advance the counter.
  command_set.PrepareReqMotorsOn(frame);
  command_set.CalculateChecksums(frame);
  command_set.PrepareReqGetDeviceInfo(frame);
  command_set.CalculateChecksums(frame);
  EXPECT_EQ(frame[5], 2);
}

TEST(ChecksumsTest, OnlyFramesTheSenderCanFrameAreTouched) {
  CVYNCommandSet command_set;
  Record unknown = ToRecord({0x41, 1, 2, 3, 4, 5, 6, 7}, 0x77);
  const Record before = unknown;
  EXPECT_EQ(command_set.CalculateChecksums(unknown.data()), VYN_STATUS_NOT_IMPLEMENTED);
  EXPECT_EQ(unknown, before);

  // The largest payload a receiver takes, and one byte more.
  Record largest = ToRecord(CcpuFrame(0x4002, Bytes(1015, 3), 0));
  EXPECT_EQ(command_set.CalculateChecksums(largest.data()), 0);
  EXPECT_EQ(Bytes(largest.begin(), largest.begin() + 1023), CcpuFrame(0x4002, Bytes(1015, 3), 1));
  Record too_long = ToRecord(CcpuFrame(0x4002, Bytes(1016, 3), 0));
  const Record untouched = too_long;
  EXPECT_EQ(command_set.CalculateChecksums(too_long.data()), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(too_long, untouched);

  // An empty MCPU payload still gets its checksum byte.
  unsigned char mcpu[8] = {0x3E, 0x56, 0x00, 0xAA, 0xAA, 0xAA};
  EXPECT_EQ(command_set.CalculateChecksums(mcpu), 0);
  EXPECT_EQ(Bytes(mcpu, mcpu + 6), (Bytes{0x3E, 0x56, 0x00, 0x56, 0x00, 0xAA}));
}

TEST(ChecksumsTest, BuildersCutLongTextsAndStopAtTheirZero) {
  CVYNCommandSet command_set;
  Record frame{};
  const std::string long_text(300, 'a');
  const uint16_t length =
      command_set.PrepareReqSetProductionInfo(frame.data(), long_text, std::string("us\0er", 5));
  // 254 characters and a zero, then "us" and a zero.
  EXPECT_EQ(length, 7 + 255 + 3 + 1);
  EXPECT_EQ(frame[3] | (frame[4] << 8), 258);
  EXPECT_EQ(frame[7 + 253], 'a');
  EXPECT_EQ(frame[7 + 254], 0);
  EXPECT_EQ(Bytes(frame.begin() + 7 + 255, frame.begin() + 7 + 258), (Bytes{'u', 's', 0}));
}

}  // namespace
