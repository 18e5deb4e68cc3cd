// The log's files: naming, rotation and awkward texts.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/log/log_test_support.h"
#include "vyn/core/status.h"

namespace vyn::test {
namespace {

int CountTexts(const std::vector<Record>& entries, const std::string& text) {
  return static_cast<int>(std::count_if(entries.begin(), entries.end(),
                                        [&](const Record& r) { return r.back() == text; }));
}

TEST_F(LogTest, EveryStartGetsAFileOfItsOwnEvenWithinOneSecond) {
  int64_t number = Statistics()[0];
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(log_.Initialize(nullptr, "Restart", "V 1"), VYN_STATUS_SUCCESS);
    log_.AddOutput("run " + std::to_string(i), VYN_EVENT_INFORMATION);
    log_.Terminate();
  }
  const std::vector<std::string> files = LogFiles();
  ASSERT_EQ(files.size(), 4u);
  std::map<std::string, int> copies;  // per second of the name
  for (int i = 0; i < 4; ++i) {
    const std::vector<Record> entries = ReadEntries(files[i]);
    ASSERT_EQ(entries.size(), 2u) << files[i];  // the title entry of a start is refused
    EXPECT_EQ(entries[0][kNumber] + entries[0][kText],
              std::to_string(++number) + "The system log has been started.");
    EXPECT_EQ(entries[1][kNumber] + entries[1][kText],
              std::to_string(++number) + "run " + std::to_string(i));
    const std::string name = std::filesystem::path(files[i]).filename().string();
    const std::string second = name.substr(0, 27);  // "Restart YYYY-MM-DD hh-mm-ss"
    const int copy = ++copies[second];
    EXPECT_EQ(name, second + (copy == 1 ? "" : " (" + std::to_string(copy) + ")") + ".csv");
    EXPECT_EQ(second.substr(7, 20).find_first_not_of("0123456789 -"), std::string::npos);
  }
  EXPECT_LT(copies.size(), 4u);  // some of them started within the same second
}

TEST_F(LogTest, StartsANewFileAfterTheLineThatPassesTenMebibytes) {
  // 10 kB cycling through every byte but NUL: CR, LF, ";", quotes, 0x80-0xFF among them.
  std::string text;
  while (text.size() < 10000) text += static_cast<char>(1 + text.size() % 255);
  ASSERT_EQ(log_.Initialize(nullptr, "Big", "V 2"), VYN_STATUS_SUCCESS);
  for (int i = 0; i < 1100; ++i) log_.AddOutput(text, VYN_EVENT_DEBUG, "ref;x", "C", "");
  WaitUntilWritten();
  log_.Terminate();
  const std::vector<std::string> files = LogFiles();
  ASSERT_EQ(files.size(), 2u);
  const std::string first = ReadFile(files[0]);
  EXPECT_GT(first.size(), 10485760u);
  EXPECT_LE(first.rfind("\r\n", first.size() - 3) + 2, 10485760u);  // before the last line
  std::replace(text.begin(), text.end(), '"', '\'');
  const std::vector<Record> second = ReadEntries(files[1]);
  // The title goes in once, behind whatever entries were waiting then.
  EXPECT_EQ(CountTexts(second, "Big V 2"), 1);
  // The reference is written as given, so its ';' splits it; the text stays whole.
  EXPECT_EQ(CountTexts(second, text), static_cast<int>(second.size()) - 1);
  for (const Record& record : second) {
    if (record.back() != "Big V 2") {
      EXPECT_EQ(record.size(), 11u);
    }
  }
}

TEST_F(LogTest, StartsANewFileAfter65000Entries) {
  // Every fifth entry is for the view only, and counts all the same.
  log_.SetFileFilter(~static_cast<uint32_t>(VYN_EVENT_DEBUG));
  ASSERT_EQ(log_.Initialize(nullptr, "", ""), VYN_STATUS_SUCCESS);
  const int64_t start = Statistics()[0];
  for (int i = 1; i <= 65100; ++i) {
    log_.AddOutput("entry", i % 5 == 0 ? VYN_EVENT_DEBUG : VYN_EVENT_INFORMATION);
  }
  WaitUntilWritten();
  log_.Terminate();
  const std::vector<std::string> files = LogFiles();
  ASSERT_EQ(files.size(), 2u);
  const std::vector<Record> first = ReadEntries(files[0]);
  EXPECT_EQ(first.size(), 1u + 65001u - 13000u);
  EXPECT_EQ(first.back()[kNumber], std::to_string(start + 65001));
  const std::vector<Record> second = ReadEntries(files[1]);
  EXPECT_EQ(CountTexts(second, "VYN System Log V 00.00 (2010-01-01)"), 1);
  EXPECT_EQ(first.size() + second.size(), 2u + 65100u - 13020u);  // + start and title
}

}  // namespace
}  // namespace vyn::test
