// How `vyn` reads what it is given. Every number, on the command line and on
// standard input, by one rule: decimal unless written with 0x, within a
// range that a refusal names in the same words everywhere. Frames come as
// one byte per argument or one hex string and render exactly; damaged
// frames, texts over the limit, unknown subcommands and output that cannot
// be written fail the run.
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace vyn::test {
namespace {

constexpr int kRefused = 105;  // the option parser's exit code for a refused value

struct Input {
  std::string text;
  std::optional<int64_t> value;  // nothing: not a number at all
};

const std::vector<Input>& Inputs() {
  static const std::vector<Input> inputs = {
      {"09", 9},   {"010", 10}, {"0x10", 16}, {"-1", -1}, {"4294967296", 4294967296},
      {"1e3", {}}, {"", {}},    {" 1", {}},   {"+1", {}}, {std::string(10000, '9'), {}},
  };
  return inputs;
}

std::string Refusal(const std::string& text, int64_t min, int64_t max) {
  const std::string cut = "... (" + std::to_string(text.size()) + " characters)";
  return "'" + text.substr(0, 24) + (text.size() > 24 ? cut : "") + "' is not a number from " +
         std::to_string(min) + " to " + std::to_string(max) + " (decimal, or hex with 0x)";
}

TEST(NumberGrammar, EveryNumberOfEverySubcommandOnTheCommandLineAndOnInput) {
  struct Case {
    std::vector<std::string> args;  // "#" stands for the input
    int64_t min;
    int64_t max;
    std::string command = "";  // or a command on standard input takes it
  };
  const Case cases[] = {
      {{"frame", "build", "-s", "#", "GetDeviceInfo"}, 1, 255},
      {{"frame", "build", "GetStatus", "#:1"}, 0, 255},
      {{"frame", "build", "Control", "5:#"}, 0, 65535},
      {{"frame", "build", "SetHardwareInfo", "#", "v", "s"}, 0, 65535},
      {{"send", "-b", "#", "/nonexistent/port", "GetDeviceInfo"}, 0, 10},
      {{"send", "-w", "#", "/nonexistent/port", "GetDeviceInfo"}, 1, 600000},
      {{"monitor", "-b", "#", "/nonexistent/port"}, 0, 10},
      {{"monitor", "-t", "#", "/nonexistent/port"}, 0, 2592000},
      {{"demo", "--pause", "#"}, 0, 10000},  // accepted values are not run
      {{"sim", "device", "--period", "#"}, 1, 60000},
      {{"sim", "bootloader", "--baud", "#"}, 0, 100000000},
      {{"sim", "bootloader", "--chip-id", "#"}, 0, 65535},
      {{"sim", "bootloader", "--version", "#"}, 0, 255},
      {{"sim", "bootloader", "--flash-base", "#"}, 0, 4294967295},
      {{"sim", "bootloader", "--flash-size", "#"}, 1, 67108864},
      {{"sim", "bootloader", "--page-size", "#"}, 1, 67108864},
      {{"sim", "bootloader", "--erase-ms", "#"}, 0, 60000},
      {{"crash-test", "--dump-type", "#", "no-such-kind"}, 0, 4294967295},
      {{"firmware", "pack", "-t", "#", "/nonexistent/image", "/nonexistent/file"}, 0, 4294967295},
      {{"plugin", "load", "-e", "#", "/nonexistent/plugin.so"}, INT32_MIN, INT32_MAX},
      {{"sim", "device"}, 0, 4294967295, "garbage"},
      {{"sim", "device"}, 0, 4294967295, "stall"},
      {{"sim", "device"}, 1, 60000, "period"},
      {{"sim", "bootloader"}, 0, 65535, "chipid"},
      {{"sim", "bootloader"}, 0, 100000000, "baud"},
      {{"sim", "bootloader"}, 0, 4294967295, "loseack"},
      {{"plugin", "shell"}, INT32_MIN, INT32_MAX, "event"},
  };
  for (const Case& c : cases) {
    // Commands on input all go to one run; a blank is the word splitter's.
    std::string lines;
    for (const Input& input : Inputs()) {
      if (input.text.empty() || input.text[0] == ' ') continue;
      lines += c.command + " " + input.text + "\n";
    }
    const ChildResult on_input = c.command.empty() ? ChildResult{} : RunVyn(c.args, lines);
    for (const Input& input : Inputs()) {
      const bool accepted = input.value && *input.value >= c.min && *input.value <= c.max;
      SCOPED_TRACE(c.args[1] + " " + c.args.back() + " " + c.command + " <- '" +
                   input.text.substr(0, 12) + "'");
      const std::string refusal = Refusal(input.text, c.min, c.max);
      if (!c.command.empty()) {
        if (input.text.empty() || input.text[0] == ' ') continue;
        const bool refused = on_input.output.find("error: " + refusal + "\n") != std::string::npos;
        EXPECT_NE(refused, accepted) << on_input.output;
        continue;
      }
      if (accepted && c.args[0] == "demo") continue;
      std::vector<std::string> args = c.args;
      for (std::string& arg : args) {
        if (const size_t at = arg.find('#'); at != std::string::npos)
          arg.replace(at, 1, input.text);
      }
      const ChildResult run = RunVyn(args);
      if (accepted) {
        EXPECT_EQ(run.output.find("is not a number"), std::string::npos) << run.output;
      } else {
        EXPECT_EQ(run.exit_code, kRefused) << run.output;
        EXPECT_NE(run.output.find(refusal), std::string::npos) << refusal << "\n" << run.output;
      }
    }
  }
  // Where the value shows, a leading zero changes nothing.
  EXPECT_EQ(RunVyn({"frame", "build", "-s", "010", "GetStatus", "010:1"}).output,
            RunVyn({"frame", "build", "-s", "0xA", "GetStatus", "10:1"}).output);
}

TEST(FrameTool, BuildsAndRendersFramesExactlyAndFailsWrongInputWithItsReason) {
  struct Case {
    std::vector<std::string> args;
    int exit_code;
    std::string text;  // the whole output on success, else a part of it
  };
  const std::string status_line =
      "CCPU_CMD_ID_ACK_GET_STATUS; internal status; 0; status count; 2; status 1; "
      "STATUS_SUCCESS; status 2; STATUS_BUSY\n";
  const std::string too_long(255, 'u');
  const Case cases[] = {
      {{"build", "GetDeviceInfo"}, 0, "42 01 00 00 00 01 02\n"},
      {{"build", "-s", "255", "GetDeviceInfo"}, 0, "42 01 00 00 00 FF 00\n"},
      {{"build", "Control", "128:0x1234", "0"}, 0, "42 11 00 04 00 01 16 80 34 12 00 C6\n"},
      {{"build", "SetHardwareInfo", "0x0102", "A", "7"},
       0,
       "42 51 00 06 00 01 58 02 01 41 00 37 00 7B\n"},
      {{"build", "MotorsOff"}, 0, "3E 45 01 46 0C 0C\n"},
      {{"dump", "42", "02", "40", "02", "00", "01", "45", "00", "04", "04"}, 0, status_line},
      // Single digits are whole bytes, never halves of a pair across arguments.
      {{"dump", "42", "2", "40", "2", "0", "1", "45", "0", "4", "4"}, 0, status_line},
      {{"dump", "4202400200014500 0404"}, 0, status_line},
      {{"build", "Control", "5"}, kRefused, "properties 5, 6, 7 and 128 take ID:VALUE"},
      {{"build", "NoSuchRequest"}, kRefused, "unknown request 'NoSuchRequest'"},
      {{"build", "GetDeviceInfo", "1"}, kRefused, "expects: GetDeviceInfo"},
      {{"build", "SetProductionInfo", "d", too_long}, kRefused, "255 characters; at most 254 fit"},
      {{"build", "SetHardwareInfo", "1", too_long, "s"}, kRefused, "VERSION"},
      {{"dump", "1", "2", "3", "4"}, 1, "start byte 0x01"},
      {{"dump", "42", "024"}, kRefused, "not one byte"},
      {{"dump", "42 01 00 00 00 01 02"}, 1, "no line for this frame"},
      {{"dump", "42 02 40 02 00 01 45 00 04 05"}, 1, "bad payload checksum: 0x05, expected 0x04"},
      {{"dump", "42 02 40 02 00 01 46 00 04 04"}, 1, "bad header checksum: 0x46, expected 0x45"},
      {{"dump", "42 02 40 02 00 01 45 00"}, 1, "declares 10 bytes, 8 given"},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"frame"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const ChildResult result = RunVyn(args);
    SCOPED_TRACE(c.text);
    EXPECT_EQ(result.exit_code, c.exit_code) << result.output;
    if (c.exit_code == 0) {
      EXPECT_EQ(result.output, c.text);
    } else {
      EXPECT_NE(result.output.find(c.text), std::string::npos) << result.output;
    }
  }
  EXPECT_EQ(RunVyn({"frame", "build", "SetProductionInfo", "d", too_long.substr(1)}).exit_code, 0);
  const ChildResult bogus = RunVyn({"bogus"});
  EXPECT_NE(bogus.exit_code, 0);
  for (const char* text : {"unknown subcommand 'bogus'", "\n  demo", "\n  sim", "\n  frame",
                           "\n  monitor", "\n  send", "\n  firmware"}) {
    EXPECT_NE(bogus.output.find(text), std::string::npos) << bogus.output;
  }
  // Output that cannot be written fails the run.
  const std::string vyn = std::string("exec '") + VYN_TOOL + "' frame ";
  EXPECT_NE(RunChild({"/bin/sh", "-c", vyn + "build GetDeviceInfo > /dev/full"}).exit_code, 0);
  EXPECT_EQ(RunChild({"/bin/sh", "-c", vyn + "build GetDeviceInfo > /dev/null"}).exit_code, 0);
  EXPECT_NE(
      RunChild({"/bin/sh", "-c", vyn + "dump 42 02 40 02 00 01 45 00 04 04 > /dev/full"}).exit_code,
      0);
}

}  // namespace
}  // namespace vyn::test
