// The log's files: naming, rotation, awkward texts and failures.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "tests/log/log_test_support.h"
#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"
#include "vyn/log/system_log_testing.h"

namespace vyn::test {
namespace {

TEST_F(LogTest, EveryStartGetsAFileOfItsOwnEvenWithinOneSecond) {
  const int64_t before = Statistics()[0];
  constexpr int kStarts = 4;
  for (int i = 0; i < kStarts; ++i) {
    ASSERT_EQ(log_.Initialize(nullptr, "Restart", "V 1"), VYN_STATUS_SUCCESS);
    log_.AddOutput("run " + std::to_string(i), VYN_EVENT_INFORMATION);
    log_.Terminate();
  }
  const std::vector<std::string> files = LogFiles();
  ASSERT_EQ(files.size(), static_cast<size_t>(kStarts));
  int64_t number = before;
  std::map<std::string, int> copies;  // per second
  for (int i = 0; i < kStarts; ++i) {
    SCOPED_TRACE(files[i]);
    const std::vector<Record> entries = ReadEntries(files[i]);
    ASSERT_EQ(entries.size(), 2u);  // the title entry of a start is refused
    EXPECT_EQ(entries[0][kText], "The system log has been started.");
    EXPECT_EQ(entries[1][kText], "run " + std::to_string(i));
    EXPECT_EQ(entries[0][kNumber], std::to_string(++number));
    EXPECT_EQ(entries[1][kNumber], std::to_string(++number));
    // A name taken within the same second is followed by " (2)", " (3)", ...
    const std::string name = std::filesystem::path(files[i]).filename().string();
    const std::string second = name.substr(0, 27);  // "Restart YYYY-MM-DD hh-mm-ss"
    const int copy = ++copies[second];
    EXPECT_EQ(name, second + (copy == 1 ? "" : " (" + std::to_string(copy) + ")") + ".csv");
    for (const size_t digit : {8, 9, 10, 11, 13, 14, 16, 17, 19, 20, 22, 23, 25, 26}) {
      EXPECT_TRUE(std::isdigit(static_cast<unsigned char>(second.at(digit)))) << digit;
    }
    EXPECT_EQ(second.substr(0, 8) + second[12] + second[15] + second[18] + second[21] + second[24],
              "Restart -- --");
  }
  EXPECT_LT(copies.size(), static_cast<size_t>(kStarts));  // some started in the same second
}

TEST_F(LogTest, StartsANewFileAfterTheLineThatPassesTenMebibytes) {
  // Long texts of every byte value but quotes and line breaks at the end.
  std::string text;
  for (int i = 0; text.size() < 10000; ++i) text += static_cast<char>(1 + i % 255);
  std::replace(text.begin(), text.end(), '"', '\'');
  text += "\x80\xFF end";
  ASSERT_EQ(log_.Initialize(nullptr, "Big", "V 2"), VYN_STATUS_SUCCESS);
  for (int i = 0; i < 1100; ++i) log_.AddOutput(text, VYN_EVENT_DEBUG, "ref;x", "C", "");
  WaitUntilWritten();  // a title entry offered after Terminate would be refused
  log_.Terminate();
  const std::vector<std::string> files = LogFiles();
  ASSERT_EQ(files.size(), 2u);
  const std::string first = ReadFile(files[0]);
  const size_t last_line = first.rfind("\r\n", first.size() - 3) + 2;
  EXPECT_GT(first.size(), 10485760u);
  EXPECT_LE(last_line, 10485760u);
  // The title entry queues behind the entries that were waiting.
  const std::vector<Record> second = ReadEntries(files[1]);
  const auto is_title = [](const Record& r) {
    return r.size() == 10 && r[kEvent] == "information" && r[kCaller].empty() &&
           r[kText] == "Big V 2";
  };
  EXPECT_EQ(std::count_if(second.begin(), second.end(), is_title), 1);
  // Every other record is one of ours; the ';' of the reference splits its
  // column (it is written as given), the quoted text stays whole.
  EXPECT_EQ(std::count_if(second.begin(), second.end(),
                          [&](const Record& r) { return r.size() == 11 && r.back() == text; }),
            static_cast<long>(second.size()) - 1);
}

TEST_F(LogTest, StartsANewFileAfter65000Entries) {
  // Every fifth entry is for the view only; it counts all the same.
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
  EXPECT_EQ(std::count_if(
                second.begin(), second.end(),
                [](const Record& r) { return r[kText] == "VYN System Log V 00.00 (2010-01-01)"; }),
            1);
  EXPECT_EQ(first.size() + second.size(), 2u + 65100u - 13020u);  // start and title entries
}

TEST_F(LogTest, TextsKeepLineBreaksSeparatorsAndHighBytes) {
  const std::vector<std::string> texts = {"a;b;c",
                                          "line 1\r\nline 2\nline 3\r",
                                          "tab\there",
                                          "\xC4\xD6\xDC\xDF \x80\x9F\xFF",
                                          "'single' \"double\"",
                                          std::string(10240, 'x') + "\n"};
  const std::vector<std::string> cleaned = {
      "a;b;c",  "line 1\r\nline 2\nline 3", "tab\there",
      texts[3], "'single' 'double'",        std::string(10240, 'x')};
  CMemoryEdit view;
  view.SetLimitText(0);
  log_.SetEnableOutput(true);
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  for (const std::string& text : texts) log_.AddOutput(text, VYN_EVENT_WARNING);
  log_.Terminate();
  const std::vector<Record> entries = ReadEntries(LogFiles().at(0));
  ASSERT_EQ(entries.size(), texts.size() + 1);
  for (size_t i = 0; i < texts.size(); ++i) {
    EXPECT_EQ(entries[i + 1][kText], cleaned[i]);
    EXPECT_NE(view.GetWindowText().find("> " + cleaned[i] + "\r\n"), std::string::npos);
  }
}

TEST_F(LogTest, WithoutAFileTheViewStillGetsEverything) {
  WriteFile("Logs", "a file where the directory should be");
  CMemoryEdit view;
  log_.SetEnableOutput(true);
  const int64_t lost = log_.GetLostEntryCount();
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  log_.AddOutput("to the view", VYN_EVENT_ERROR);
  log_.Terminate();
  EXPECT_NE(view.GetWindowText().find("> The system log has been started.\r\n"), std::string::npos);
  EXPECT_NE(view.GetWindowText().find("> to the view\r\n"), std::string::npos);
  EXPECT_EQ(view.GetWindowText().find("logfile"), std::string::npos);  // refused while starting
  EXPECT_EQ(log_.GetLostEntryCount(), lost + 2);

  // A current directory that is gone: no file either, and the log runs.
  TempDir doomed;
  ScopedCurrentDirectory inside(doomed.path());
  std::filesystem::remove(doomed.path());
  view.SetWindowText("");
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  log_.AddOutput("still shown", VYN_EVENT_ERROR);
  log_.Terminate();
  EXPECT_NE(view.GetWindowText().find("> still shown\r\n"), std::string::npos);
  EXPECT_EQ(log_.GetLostEntryCount(), lost + 4);
}

TEST_F(LogTest, AFailingWriteLosesItsLinesAndANewFileFollows) {
  vyn::testing::SetSystemLogRetryInterval(200);
  CMemoryEdit view;
  view.SetLimitText(0);
  log_.SetEnableOutput(true);
  ASSERT_EQ(log_.Initialize(&view, "Full", "V 3"), VYN_STATUS_SUCCESS);
  log_.AddOutput("kept", VYN_EVENT_ERROR);
  WaitUntilWritten();
  const int64_t lost = log_.GetLostEntryCount();
  vyn::testing::RedirectSystemLogFile("/dev/full");
  for (int i = 0; i < 5; ++i) log_.AddOutput("lost " + std::to_string(i), VYN_EVENT_ERROR);
  WaitUntilWritten();
  EXPECT_EQ(log_.GetLostEntryCount(), lost + 5);
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  log_.AddOutput("after the retry", VYN_EVENT_ERROR);
  WaitUntilWritten();
  log_.Terminate();
  vyn::testing::SetSystemLogRetryInterval(10000);

  const std::vector<std::string> files = LogFiles();
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(ReadEntries(files[0]).back()[kText], "kept");
  const std::vector<Record> second = ReadEntries(files[1]);
  ASSERT_EQ(second.size(), 2u);
  EXPECT_EQ(second[0][kText], "after the retry");
  EXPECT_EQ(second[1][kText], "Full V 3");
  EXPECT_NE(view.GetWindowText().find("> lost 4\r\n"), std::string::npos);
}

}  // namespace
}  // namespace vyn::test
