// `vyn frame` builds requests and renders replies exactly; bytes come one
// per argument or as one hex string; damaged frames, texts over the limit,
// unknown subcommands and output that cannot be written fail the run.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace vyn::test {
namespace {

bool Contains(const ChildResult& result, const std::string& text) {
  return result.output.find(text) != std::string::npos;
}

const char kStatusLine[] =
    "CCPU_CMD_ID_ACK_GET_STATUS; internal status; 0; status count; 2; status 1; "
    "STATUS_SUCCESS; status 2; STATUS_BUSY\n";

TEST(FrameTool, BuildsRequestsAndRendersRepliesInEitherByteForm) {
  struct Case {
    std::vector<std::string> args;
    std::string output;
  };
  const Case cases[] = {
      {{"build", "GetDeviceInfo"}, "42 01 00 00 00 01 02\n"},
      {{"build", "-s", "255", "GetDeviceInfo"}, "42 01 00 00 00 FF 00\n"},
      {{"build", "Control", "128:0x1234", "0"}, "42 11 00 04 00 01 16 80 34 12 00 C6\n"},
      {{"build", "SetHardwareInfo", "0x0102", "A", "7"},
       "42 51 00 06 00 01 58 02 01 41 00 37 00 7B\n"},
      {{"build", "MotorsOff"}, "3E 45 01 46 0C 0C\n"},
      {{"build", "SetProductionInfo", "d", std::string(254, 'u')}, ""},
      {{"dump", "42", "02", "40", "02", "00", "01", "45", "00", "04", "04"}, kStatusLine},
      // Single digits are whole bytes, never halves of a pair across arguments.
      {{"dump", "42", "2", "40", "2", "0", "1", "45", "0", "4", "4"}, kStatusLine},
      {{"dump", "4202400200014500 0404"}, kStatusLine},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"frame"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const ChildResult result = RunVyn(args);
    SCOPED_TRACE(c.args[1]);
    EXPECT_EQ(result.exit_code, 0) << result.output;
    if (!c.output.empty()) {
      EXPECT_EQ(result.output, c.output);
    }
  }
}

TEST(FrameTool, WrongInputFailsWithItsReason) {
  struct Case {
    std::vector<std::string> args;
    int exit_code;
    std::string message;
  };
  const std::string too_long(255, 'u');
  const Case cases[] = {
      {{"build", "Control", "5"}, 105, "properties 5, 6, 7 and 128 take ID:VALUE"},
      {{"build", "NoSuchRequest"}, 105, "unknown request 'NoSuchRequest'"},
      {{"build", "GetDeviceInfo", "1"}, 105, "expects: GetDeviceInfo"},
      {{"build", "SetProductionInfo", "d", too_long}, 105, "255 characters; at most 254 fit"},
      {{"build", "SetHardwareInfo", "1", too_long, "s"}, 105, "VERSION"},
      {{"dump", "1", "2", "3", "4"}, 1, "start byte 0x01"},
      {{"dump", "42", "024"}, 105, "not one byte"},
      {{"dump", "42 01 00 00 00 01 02"}, 1, "no line for this frame"},
      {{"dump", "42 02 40 02 00 01 45 00 04 05"}, 1, "bad payload checksum: 0x05, expected 0x04"},
      {{"dump", "42 02 40 02 00 01 46 00 04 04"}, 1, "bad header checksum: 0x46, expected 0x45"},
      {{"dump", "42 02 40 02 00 01 45 00"}, 1, "declares 10 bytes, 8 given"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"frame"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const ChildResult result = RunVyn(args);
    SCOPED_TRACE(c.message);
    EXPECT_EQ(result.exit_code, c.exit_code) << result.output;
    EXPECT_TRUE(Contains(result, c.message)) << result.output;
  }
  const ChildResult bogus = RunVyn({"bogus"});
  EXPECT_NE(bogus.exit_code, 0);
  EXPECT_TRUE(Contains(bogus, "unknown subcommand 'bogus'")) << bogus.output;
  for (const char* name : {"demo", "sim", "frame", "monitor", "send", "firmware"}) {
    EXPECT_TRUE(Contains(bogus, std::string("\n  ") + name)) << name;
  }
}

TEST(FrameTool, OutputThatCannotBeWrittenFailsTheRun) {
  const std::string vyn = std::string("exec '") + VYN_TOOL + "' frame ";
  EXPECT_NE(RunChild({"/bin/sh", "-c", vyn + "build GetDeviceInfo > /dev/full"}).exit_code, 0);
  EXPECT_EQ(RunChild({"/bin/sh", "-c", vyn + "build GetDeviceInfo > /dev/null"}).exit_code, 0);
  EXPECT_NE(
      RunChild({"/bin/sh", "-c", vyn + "dump 42 02 40 02 00 01 45 00 04 04 > /dev/full"}).exit_code,
      0);
}

}  // namespace
}  // namespace vyn::test
