// How `vyn` reads what it is given: bytes and numbers on the command line,
// texts with limits, unknown subcommands, and output that cannot be written.
#include <gtest/gtest.h>

#include <string>

#include "tests/support/child_process.h"

namespace {

using vyn::test::ChildResult;
using vyn::test::RunChild;

ChildResult Vyn(std::vector<std::string> args) {
  args.insert(args.begin(), VYN_TOOL);
  return RunChild(args, 60);
}

bool Contains(const ChildResult& result, const std::string& text) {
  return result.output.find(text) != std::string::npos;
}

TEST(FrameInput, DumpTakesOneBytePerArgumentOrOneHexString) {
  const ChildResult spaced =
      Vyn({"frame", "dump", "42", "02", "40", "02", "00", "01", "45", "00", "04", "04"});
  ASSERT_EQ(spaced.exit_code, 0) << spaced.output;
  // Single digits are whole bytes, never halves of a pair across arguments.
  const ChildResult short_digits =
      Vyn({"frame", "dump", "42", "2", "40", "2", "0", "1", "45", "0", "4", "4"});
  EXPECT_EQ(short_digits.exit_code, 0) << short_digits.output;
  EXPECT_EQ(short_digits.output, spaced.output);
  const ChildResult one_string = Vyn({"frame", "dump", "4202400200014500 0404"});
  EXPECT_EQ(one_string.exit_code, 0) << one_string.output;
  EXPECT_EQ(one_string.output, spaced.output);

  const ChildResult pairs = Vyn({"frame", "dump", "1", "2", "3", "4"});
  EXPECT_NE(pairs.exit_code, 0);
  EXPECT_TRUE(Contains(pairs, "start byte 0x01")) << pairs.output;
  const ChildResult too_wide = Vyn({"frame", "dump", "42", "024"});
  EXPECT_NE(too_wide.exit_code, 0);
  EXPECT_TRUE(Contains(too_wide, "not one byte")) << too_wide.output;
}

TEST(FrameInput, DumpFlagsBadChecksumsAndShortFrames) {
  const ChildResult payload =
      Vyn({"frame", "dump", "42", "02", "40", "02", "00", "01", "45", "00", "04", "05"});
  EXPECT_EQ(payload.exit_code, 1) << payload.output;
  EXPECT_TRUE(Contains(payload, "bad payload checksum: 0x05, expected 0x04")) << payload.output;
  const ChildResult header =
      Vyn({"frame", "dump", "42", "02", "40", "02", "00", "01", "46", "00", "04", "04"});
  EXPECT_EQ(header.exit_code, 1) << header.output;
  EXPECT_TRUE(Contains(header, "bad header checksum: 0x46, expected 0x45")) << header.output;
  const ChildResult cut = Vyn({"frame", "dump", "42 02 40 02 00 01 45 00"});
  EXPECT_EQ(cut.exit_code, 1) << cut.output;
  EXPECT_TRUE(Contains(cut, "declares 10 bytes, 8 given")) << cut.output;
}

TEST(FrameInput, NumbersAreDecimalUnlessWrittenInHex) {
  const ChildResult leading_zero = Vyn({"frame", "build", "GetStatus", "010:1"});
  const ChildResult ten = Vyn({"frame", "build", "GetStatus", "10:1"});
  const ChildResult hex = Vyn({"frame", "build", "GetStatus", "0xA:1"});
  const ChildResult eight = Vyn({"frame", "build", "GetStatus", "8:1"});
  ASSERT_EQ(ten.exit_code, 0) << ten.output;
  EXPECT_EQ(leading_zero.output, ten.output);
  EXPECT_EQ(hex.output, ten.output);
  EXPECT_NE(eight.output, ten.output);
  for (const char* bad : {"256:1", "-1:1", " 1:1", "+1:1", "0x:1", "1e1:1"}) {
    const ChildResult refused = Vyn({"frame", "build", "GetStatus", bad});
    EXPECT_NE(refused.exit_code, 0) << bad;
    EXPECT_TRUE(Contains(refused, "0 to 255")) << bad << ": " << refused.output;
  }
}

TEST(FrameInput, TextsAboveTheLimitAreRefusedWithTheLimit) {
  const std::string fits(254, 'u');
  const std::string too_long(255, 'u');
  EXPECT_EQ(Vyn({"frame", "build", "SetProductionInfo", "2026-11-23", fits}).exit_code, 0);
  const ChildResult refused = Vyn({"frame", "build", "SetProductionInfo", "2026-11-23", too_long});
  EXPECT_NE(refused.exit_code, 0);
  EXPECT_TRUE(Contains(refused, "255 characters; at most 254 fit")) << refused.output;
  const ChildResult version =
      Vyn({"frame", "build", "SetHardwareInfo", "1", too_long + "v", "serial"});
  EXPECT_NE(version.exit_code, 0);
  EXPECT_TRUE(Contains(version, "VERSION")) << version.output;
}

TEST(FrameInput, UnknownSubcommandIsNamedWithTheList) {
  const ChildResult bogus = Vyn({"bogus"});
  EXPECT_NE(bogus.exit_code, 0);
  EXPECT_TRUE(Contains(bogus, "unknown subcommand 'bogus'")) << bogus.output;
  for (const char* name : {"demo", "sim", "frame", "monitor", "send", "firmware"}) {
    EXPECT_TRUE(Contains(bogus, std::string("\n  ") + name)) << name;
  }
}

TEST(FrameInput, OutputThatCannotBeWrittenFailsTheRun) {
  const std::string command = std::string("exec '") + VYN_TOOL + "' frame build GetDeviceInfo";
  const ChildResult full = RunChild({"/bin/sh", "-c", command + " > /dev/full"});
  EXPECT_NE(full.exit_code, 0) << full.output;
  EXPECT_EQ(RunChild({"/bin/sh", "-c", command + " > /dev/null"}).exit_code, 0);
  const ChildResult dump = RunChild({"/bin/sh", "-c",
                                     std::string("exec '") + VYN_TOOL +
                                         "' frame dump 42 02 40 02 00 01 45 "
                                         "00 04 04 > /dev/full"});
  EXPECT_NE(dump.exit_code, 0) << dump.output;
}

}  // namespace
