// What the dump's lines cannot show: text sizes other than the dump's own,
// the trace notification, the limits of the lists, the MCPU fields left
// unrendered and the parser slots the dump does not call.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/test_frames.h"
#include "vyn/core/status.h"
#include "vyn/device/command_set.h"

namespace {

using vyn::test::Bytes;
using vyn::test::Cat;
using vyn::test::CcpuFrame;
using vyn::test::McpuFrame;
using vyn::test::Record;
using vyn::test::Text;
using vyn::test::ToRecord;

TEST(CommandParsersTest, TextsAreCutOrRefusedAndTheLayoutIsChecked) {
  CVYNCommandSet command_set;
  unsigned char version = 0;
  uint16_t type = 0;
  std::string t[7];
  auto parse = [&](const Bytes& payload, unsigned char size) {
    Record record = ToRecord(CcpuFrame(0x4001, payload));
    for (std::string& text : t) text = "old";
    return command_set.ProcessAckGetDeviceInfo(record.data(), &version, &type, &t[0], &t[1], &t[2],
                                               &t[3], &t[4], &t[5], &t[6], size);
  };
  // Three bytes and seven empty texts.
  EXPECT_EQ(parse({9, 0x34, 0x12, 0, 0, 0, 0, 0, 0, 0}, 32), 0);
  for (const std::string& text : t) EXPECT_EQ(text, "");

  const std::string forty(40, 'v');
  EXPECT_EQ(parse(Cat({{1, 0, 0}, Text(forty), Text("s"), {0, 0, 0, 0}, Text("L")}), 32),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(t[0], forty.substr(0, 31));
  EXPECT_EQ(t[1], "s");
  EXPECT_EQ(t[6], "L");

  // The last text is not terminated inside the payload.
  EXPECT_EQ(parse({1, 0, 0, 0, 0, 0, 0, 0, 0, 'a', 'b'}, 32), VYN_STATUS_INVALID_PARAMETER);
  // A byte left over after the seventh text.
  EXPECT_EQ(parse({1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, 32), RX_WRONG_LENGTH);
  // Too small a text size; the fixed fields are delivered all the same.
  version = 0;
  EXPECT_EQ(parse({5, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(version, 5);

  // The production texts take any size; size 0 leaves no room at all.
  std::string date;
  std::string user;
  Record record = ToRecord(CcpuFrame(0x4054, Cat({Text("2024"), Text("ann")})));
  EXPECT_EQ(command_set.ProcessAckGetProductionInfo(record.data(), &date, &user, 0),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(date + user, "");
  EXPECT_EQ(command_set.ProcessAckGetProductionInfo(record.data(), &date, &user, 4),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(date, "202");
  EXPECT_EQ(user, "ann");

  uint16_t source = 0;
  unsigned char priority = 0;
  record = ToRecord(CcpuFrame(0xBFFF, {2, 1, 3, 'o', 'k', 'a', 'y'}));
  EXPECT_EQ(command_set.ProcessNotDebug(record.data(), &source, &priority, &date, 3),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(date, "ok");
  // A device text with its zero, and one with bytes after the zero: the
  // string ends at the zero; whether it fits is a matter of the bytes sent.
  record = ToRecord(CcpuFrame(0xBFFF, {2, 1, 3, 'o', 'k', 0}));
  EXPECT_EQ(command_set.ProcessNotDebug(record.data(), &source, &priority, &date, 32), 0);
  EXPECT_EQ(date, "ok");
  record = ToRecord(CcpuFrame(0xBFFF, {2, 1, 3, 'o', 0, 'x', 'y'}));
  EXPECT_EQ(command_set.ProcessNotDebug(record.data(), &source, &priority, &date, 4),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(date, "o");
}

TEST(CommandParsersTest, TracesAndListsKeepToTheirCapacity) {
  CVYNCommandSet command_set;
  uint16_t count = 0;
  int16_t trace[3] = {};
  const Bytes samples = {1, 0, 0xFF, 0xFF, 3, 0};
  Record record = ToRecord(CcpuFrame(0xBFFE, samples));
  EXPECT_EQ(command_set.ProcessNotTrace(record.data(), &count, trace, 2),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(count, 3);
  EXPECT_EQ(trace[0], 0);
  EXPECT_EQ(command_set.ProcessNotTrace(record.data(), &count, trace, 3), 0);
  EXPECT_EQ(trace[0], 1);
  EXPECT_EQ(trace[1], -1);
  EXPECT_EQ(trace[2], 3);
  // Only whole, non-empty lists of samples are traces.
  for (size_t n = 0; n < samples.size(); ++n) {
    record = ToRecord(CcpuFrame(0xBFFE, Bytes(samples.begin(), samples.begin() + n)), 0xA5);
    EXPECT_EQ(command_set.ProcessNotTrace(record.data(), &count, trace, 3),
              n > 0 && n % 2 == 0 ? 0 : RX_WRONG_LENGTH)
        << n;
  }

  // More entries than any request can name: 255 are taken, no more.
  unsigned char entries = 0;
  unsigned char codes[255] = {};
  unsigned char values[1020] = {};
  record = ToRecord(CcpuFrame(0x4011, Bytes(300, 4)));
  EXPECT_EQ(command_set.ProcessAckControl(record.data(), &entries, codes), RX_WRONG_LENGTH);
  EXPECT_EQ(entries, 255);
  EXPECT_EQ(codes[254], 4);
  record = ToRecord(CcpuFrame(0x8002, Bytes(300, 9)));
  EXPECT_EQ(command_set.ProcessNotStatus(record.data(), &entries, codes, values), RX_WRONG_LENGTH);
  EXPECT_EQ(entries, 255);
}

TEST(CommandParsersTest, McpuRepliesReadTheirFieldsAtTheirPlaces) {
  CVYNCommandSet command_set;
  unsigned char state = 0;
  std::string version;
  auto board_version = [&](uint32_t number, unsigned char size) {
    Bytes board = Cat({Bytes(7, 0), vyn::test::Le32(number), Bytes(7, 0)});
    Record record = ToRecord(McpuFrame(0x56, board));
    EXPECT_EQ(command_set.ProcessAckBoardInfo(record.data(), &state, &version, size), 0);
    return version;
  };
  EXPECT_EQ(board_version(20101, 32), "V 01.00.00");
  EXPECT_EQ(board_version(30205, 6), "V 02.");

  Bytes realtime = Cat(
      {Bytes(14, 0), {0x78, 0x56, 0xBB}, Bytes(35, 0), {0x34, 0x12, 0, 0, 0, 0xAA}, Bytes(5, 0)});
  unsigned char a = 0;
  unsigned char d = 0;
  uint16_t b = 0;
  uint16_t c = 0;
  Record record = ToRecord(McpuFrame(0x17, realtime));
  EXPECT_EQ(command_set.ProcessRealtimeData3(record.data(), &a, &b, &c, &d), 0);
  EXPECT_EQ(a, 0xAA);
  EXPECT_EQ(b, 0x1234);
  EXPECT_EQ(c, 0x5678);
  EXPECT_EQ(d, 0xBB);
  realtime.pop_back();
  record = ToRecord(McpuFrame(0x17, realtime));
  EXPECT_EQ(command_set.ProcessRealtimeData3(record.data(), &a, &b, &c, &d), RX_WRONG_LENGTH);

  unsigned char command = 0;
  record = ToRecord(McpuFrame(0x43, {0x45, 1}));
  EXPECT_EQ(command_set.ProcessAckConfirm(record.data(), &command), 0);
  EXPECT_EQ(command, 0x45);
  record = ToRecord(McpuFrame(0x43, {}));
  EXPECT_EQ(command_set.ProcessAckConfirm(record.data(), &command), RX_WRONG_LENGTH);
}

}  // namespace
