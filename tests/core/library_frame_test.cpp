#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/child_process.h"

namespace {

TEST(LibraryFrameTest, SingletonsComeAndGoInTheFixedOrder) {
  const auto result = vyn::test::RunChild({VYN_LIFECYCLE_PROBE, VYN_SHARED_LIBRARY});
  ASSERT_EQ(result.exit_code, 0) << result.output;
  const char* const order[] = {
      "CVYNApp",         "CVYNLanguage",      "CVYNThreadMonitor",   "CVYNSystemLogEx",
      "CVYNSerialPort",  "CVYNMessageQueue",  "CVYNPluginManager",   "CVYNCommandSet",
      "CVYNCommandDump", "CVYNCommandHelper", "CVYNIniManager",      "CVYNMemoryDump",
      "CVYNCommandLine", "CVYNFileHeader",    "CVYNSTM32BootLoader", "CVYNMain",
  };
  std::ostringstream expected;
  for (const char* name : order) expected << "+" << name << "\n";
  // Loading starts no thread.
  expected << "loaded; new threads: 0\n";
  for (int i = static_cast<int>(std::size(order)) - 1; i >= 0; --i) {
    expected << "-" << order[i] << "\n";
  }
  expected << "unloaded\n";
  EXPECT_EQ(result.output, expected.str());
}

TEST(CommandLineTest, SplitsTheProcessArgumentsOnce) {
  const auto result = vyn::test::RunChild({VYN_COMMAND_LINE_PROBE, "a b", "c", "\xE4"});
  ASSERT_EQ(result.exit_code, 0) << result.output;
  EXPECT_EQ(result.output, std::string("[") + VYN_COMMAND_LINE_PROBE +
                               "]\n[a b]\n[c]\n[\xE4]\nVYN_STATUS_INVALID_PARAMETER\n"
                               "untouched VYN_STATUS_SUCCESS\n");
}

}  // namespace
