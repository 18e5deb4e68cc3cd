// Every number the vyn program takes, on the command line and on standard
// input, read by one rule: decimal unless written with 0x, within a range
// that a refusal names in the same words everywhere.
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
  const std::string shown =
      text.size() > 24 ? text.substr(0, 24) + "... (" + std::to_string(text.size()) + " characters)"
                       : text;
  return "'" + shown + "' is not a number from " + std::to_string(min) + " to " +
         std::to_string(max) + " (decimal, or hex with 0x)";
}

TEST(NumberGrammar, EveryNumberOptionAndArgumentOfEverySubcommand) {
  struct Case {
    std::vector<std::string> args;  // "#" stands for the input
    int64_t min;
    int64_t max;
    bool run_accepted = true;  // false where an accepted value starts a long run
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
      {{"demo", "--pause", "#"}, 0, 10000, false},
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
  };
  for (const Case& c : cases) {
    for (const Input& input : Inputs()) {
      std::vector<std::string> args = c.args;
      for (std::string& arg : args) {
        if (const size_t at = arg.find('#'); at != std::string::npos)
          arg.replace(at, 1, input.text);
      }
      const bool accepted = input.value && *input.value >= c.min && *input.value <= c.max;
      SCOPED_TRACE(c.args[0] + " " + c.args[1] + " " + c.args[2] + " <- '" +
                   input.text.substr(0, 12) + "'");
      if (accepted && !c.run_accepted) continue;
      const ChildResult run = RunVyn(args);
      const std::string refusal = Refusal(input.text, c.min, c.max);
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

TEST(NumberGrammar, CommandsOnStandardInputAnswerTheSameRefusal) {
  struct Case {
    std::vector<std::string> args;
    std::string command;  // the input follows it
    int64_t min;
    int64_t max;
  };
  const Case cases[] = {
      {{"sim", "device"}, "garbage", 0, 4294967295},
      {{"sim", "device"}, "stall", 0, 4294967295},
      {{"sim", "device"}, "period", 1, 60000},
      {{"sim", "bootloader"}, "chipid", 0, 65535},
      {{"sim", "bootloader"}, "baud", 0, 100000000},
      {{"sim", "bootloader"}, "loseack", 0, 4294967295},
      {{"plugin", "shell"}, "event", INT32_MIN, INT32_MAX},
  };
  for (const Case& c : cases) {
    std::string input;
    for (const Input& number : Inputs()) {
      if (!number.text.empty()) input += c.command + " " + number.text + "\n";
    }
    const ChildResult run = RunVyn(c.args, input);
    for (const Input& number : Inputs()) {
      if (number.text.empty() || number.text[0] == ' ') continue;  // the word splitter's business
      SCOPED_TRACE(c.command + " " + number.text.substr(0, 12));
      const bool accepted = number.value && *number.value >= c.min && *number.value <= c.max;
      const std::string refusal = "error: " + Refusal(number.text, c.min, c.max) + "\n";
      EXPECT_EQ(run.output.find(refusal) == std::string::npos, accepted) << run.output;
    }
  }
}

}  // namespace
}  // namespace vyn::test
