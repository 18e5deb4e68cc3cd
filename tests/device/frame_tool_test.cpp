#include <gtest/gtest.h>

#include "tests/support/child_process.h"

namespace {

using vyn::test::RunChild;

TEST(FrameToolTest, BuildsRequestsAndRendersReplies) {
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
      {{"dump", "42 02 40 02 00 01 45 00 04 04"},
       "CCPU_CMD_ID_ACK_GET_STATUS; internal status; 0; status count; 2; status 1; "
       "STATUS_SUCCESS; status 2; STATUS_BUSY\n"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> argv = {VYN_TOOL, "frame"};
    argv.insert(argv.end(), c.args.begin(), c.args.end());
    const auto result = RunChild(argv);
    EXPECT_EQ(result.exit_code, 0) << c.args[1] << ": " << result.output;
    EXPECT_EQ(result.output, c.output) << c.args[1];
  }
  // Wrong arguments and frames without a line fail.
  for (std::vector<std::string> args : {std::vector<std::string>{"build", "Control", "5"},
                                        {"build", "GetStatus", "5:256"},
                                        {"build", "NoSuchRequest"},
                                        {"dump", "41 00"},
                                        {"dump", "42 01 00 00 00 01 02"}}) {
    args.insert(args.begin(), {VYN_TOOL, "frame"});
    const auto result = RunChild(args);
    EXPECT_NE(result.exit_code, 0) << args[3] << " was taken: " << result.output;
  }
}

}  // namespace
