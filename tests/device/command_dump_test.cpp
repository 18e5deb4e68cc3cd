#include "vyn/device/command_dump.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "tests/support/test_frames.h"
#include "vyn/core/status.h"

namespace {

using vyn::test::Bytes;
using vyn::test::CcpuFrame;
using vyn::test::McpuFrame;
using vyn::test::Record;
using vyn::test::ToRecord;

std::string Render(CVYNCommandDump& dump, const Bytes& frame) {
  Record record = ToRecord(frame);
  dump.DumpAcknowledgeOrNotification(record.data());
  return dump.GetCommandDump();
}

TEST(CommandDumpTest, FramesWithoutALineLeaveThePreviousOne) {
  CVYNCommandDump dump;
  const std::string line = Render(dump, CcpuFrame(0x4003, {2}));
  ASSERT_EQ(line, "CCPU_CMD_ID_ACK_DUMP_SETTINGS; internal status; 0; status; 2");

  Record not_a_frame = ToRecord({0x41, 0x03, 0x40, 0x01, 0x00});
  EXPECT_EQ(dump.DumpAcknowledgeOrNotification(not_a_frame.data()), VYN_STATUS_NOT_IMPLEMENTED);
  // A request id, an unknown notification, a trace, an unknown MCPU id, a
  // confirmation of an unknown command and one with four payload bytes.
  for (const Bytes& frame :
       {CcpuFrame(0x0001, {}), CcpuFrame(0x8003, {1}), CcpuFrame(0xBFFE, {1, 0}),
        McpuFrame(0x17, Bytes(63, 0)), McpuFrame(0x43, {0x56}), McpuFrame(0x43, {0x45, 1, 2, 3})}) {
    EXPECT_EQ(Render(dump, frame), line);
  }
  EXPECT_EQ(dump.ClearCommandDump(), 0);
  EXPECT_STREQ(dump.GetCommandDump(), "");

  // A property value no notification shows: codes, names and the other
  // values show in the lines of the round trips.
  unsigned char value[] = {0xCD, 0xAB};
  unsigned char size = 99;
  EXPECT_STREQ(dump.GetPropertyValue(128, value, &size), "0xABCD");
  EXPECT_EQ(size, 2);
}

TEST(CommandDumpTest, ListsStopAtTheLastPieceThatFitsWhole) {
  CVYNCommandDump dump;
  // 255 unknown codes need far more than 1023 characters.
  const std::string line = Render(dump, CcpuFrame(0x4011, Bytes(255, 9)));
  ASSERT_LE(line.size(), 1023u);
  const std::string head = "CCPU_CMD_ID_ACK_CONTROL; internal status; 0; status count; 255";
  ASSERT_EQ(line.rfind(head, 0), 0u);
  std::string expected = head;
  for (int i = 1;; ++i) {
    const std::string piece = "; status " + std::to_string(i) + "; 9 - unknown status code";
    if (expected.size() + piece.size() > 1023) break;
    expected += piece;
  }
  EXPECT_EQ(line, expected);

  // Properties likewise, 204 loop counts whose digits make the pieces that
  // fit fill the line to its last character.
  const std::string status_head = "CCPU_CMD_ID_NOT_STATUS; internal status; 0; property count; 204";
  const size_t room = 1023 - status_head.size();
  const size_t fitting = (room + 24) / 25;  // pieces of 21 to 25 characters
  size_t short_by = fitting * 25 - room;
  Bytes payload;
  expected = status_head;
  for (size_t i = 0; i < 204; ++i) {
    const size_t cut = std::min<size_t>(short_by, 4);
    short_by -= cut;
    const std::string digits(5 - cut, '1');
    const auto value = static_cast<uint16_t>(std::stoul(digits));
    const Bytes le = vyn::test::Le16(value);
    payload.insert(payload.end(), {27, le[0], le[1]});
    if (i < fitting) expected += "; Loops per Second; " + digits;
  }
  ASSERT_EQ(expected.size(), 1023u);
  EXPECT_EQ(Render(dump, CcpuFrame(0x8002, payload)), expected);

  // A long debug text is cut with the line.
  Bytes debug = {1, 0, 2};
  debug.insert(debug.end(), 1000, 'x');
  const std::string debug_line = Render(dump, CcpuFrame(0xBFFF, debug));
  EXPECT_EQ(debug_line.size(), 1023u);
  EXPECT_EQ(debug_line.rfind("CCPU_CMD_ID_NOT_DEBUG; internal status; 0; source; 0x0001", 0), 0u);

  char small[8];
  EXPECT_EQ(dump.GetCommandDump(small, sizeof small), dump.GetCommandDump());
  EXPECT_STREQ(small, "CCPU_CM");
  std::memset(small, 'q', sizeof small);
  dump.GetCommandDump(small, 0);
  EXPECT_EQ(small[0], 'q');
}

}  // namespace
