// The log when its files fail: no folder, a folder it may not write, a full
// disk, a failing device. It tells why, names only its own file, keeps whole
// lines, counts every entry it could not write and leaves no empty files.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "tests/log/log_test_support.h"
#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"
#include "vyn/log/internal/system_log_testing.h"

namespace vyn::test {
namespace {

using ::testing::HasSubstr;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

// Retries come after a few milliseconds, and the seams are put back however
// the test ends.
class LogFailureTest : public LogTest {
 protected:
  LogFailureTest() {
    vyn::seams::SetSystemLogRetryInterval(kRetryMs);
    log_.SetEnableOutput(true);
  }
  ~LogFailureTest() override {
    vyn::seams::SetSystemLogFreeSpace(-1);
    vyn::seams::SetSystemLogRetryInterval(10000);
  }
  // Waits until the next entry makes the log try a new file.
  static void PassRetryInterval() {
    std::this_thread::sleep_for(std::chrono::milliseconds(kRetryMs + 10));
  }

  static constexpr uint32_t kRetryMs = 20;
  CMemoryEdit view_;
};

TEST_F(LogFailureTest, WithoutAFileTheReasonIsToldAndTheViewStillGetsEverything) {
  WriteFile("Logs", "a file where the directory should be");
  const std::string logs = std::filesystem::current_path().string() + "/Logs/VYN System Log ";
  const int64_t lost = log_.GetLostEntryCount();
  CaptureStderr();
  ASSERT_EQ(log_.Initialize(&view_, "", ""), VYN_STATUS_SUCCESS);
  const std::string told = GetCapturedStderr();  // at once, not when the thread gets to it
  EXPECT_THAT(told, HasSubstr(logs));
  EXPECT_THAT(told, HasSubstr(": Not a directory"));
  EXPECT_EQ(log_.GetFilePath(), "");
  log_.AddOutput("to the view", VYN_EVENT_ERROR);
  log_.Terminate();
  {
    // A current directory that is gone: no file either.
    TempDir doomed;
    ScopedCurrentDirectory inside(doomed.path());
    std::filesystem::remove(doomed.path());
    ASSERT_EQ(log_.Initialize(&view_, "", ""), VYN_STATUS_SUCCESS);
    log_.AddOutput("still shown", VYN_EVENT_ERROR);
    log_.Terminate();
    EXPECT_EQ(log_.GetFilePath(), "");
  }
  const std::string shown = view_.GetWindowText();
  // Per start: the reason, the start entry, the text and the run's loss;
  // the error entries offered while Initialize runs are refused.
  EXPECT_EQ(std::count(shown.begin(), shown.end(), '\n'), 8) << shown;
  EXPECT_THAT(shown, HasSubstr("> Entries of this run that are in no logfile: 2.\r\n"));
  EXPECT_THAT(shown, HasSubstr("> The logfile could not be created. " + logs));
  EXPECT_THAT(shown, HasSubstr(".csv: Not a directory\r\n"));
  EXPECT_THAT(shown, HasSubstr("> The current directory can not be determined"));
  EXPECT_THAT(shown, HasSubstr("> to the view\r\n"));
  EXPECT_THAT(shown, HasSubstr("> still shown\r\n"));
  EXPECT_EQ(log_.GetLostEntryCount(), lost + 4);
  EXPECT_TRUE(std::filesystem::is_regular_file("Logs"));
}

TEST_F(LogFailureTest, AnOldFileIsNotTakenForTheLogsOwnWhenNoneCanBeCreated) {
  std::filesystem::create_directory("Logs");
  WriteFile("Logs/Old 2020-01-01 00-00-00.csv", "Number\r\n");
  // A name longer than the file system allows fails for every user.
  ASSERT_EQ(log_.Initialize(nullptr, std::string(250, 'n'), ""), VYN_STATUS_SUCCESS);
  log_.Terminate();
  EXPECT_EQ(log_.GetFilePath(), "");

  if (geteuid() == 0) GTEST_SKIP() << "permissions do not bind the superuser";
  ASSERT_EQ(chmod("Logs", 0555), 0);
  CaptureStderr();
  ASSERT_EQ(log_.Initialize(nullptr, "", ""), VYN_STATUS_SUCCESS);
  const std::string told = GetCapturedStderr();
  log_.Terminate();
  chmod("Logs", 0755);
  EXPECT_EQ(log_.GetFilePath(), "");
  EXPECT_THAT(told, HasSubstr(": Permission denied"));
  EXPECT_EQ(LogFiles(), std::vector<std::string>{"Logs/Old 2020-01-01 00-00-00.csv"});
}

TEST_F(LogTest, TwoLogsInOneFolderEachNameTheirOwnFile) {
  CVYNSystemLogEx other;
  ASSERT_EQ(log_.Initialize(nullptr, "Twin", "V 1"), VYN_STATUS_SUCCESS);
  ASSERT_EQ(other.Initialize(nullptr, "Twin", "V 2"), VYN_STATUS_SUCCESS);
  log_.AddOutput("mine", VYN_EVENT_ERROR);
  other.AddOutput("the other's", VYN_EVENT_ERROR);
  log_.Terminate();
  other.Terminate();
  ASSERT_EQ(LogFiles().size(), 2u);
  ASSERT_NE(log_.GetFilePath(), other.GetFilePath());
  EXPECT_EQ(ReadEntries(log_.GetFilePath()).back()[kText], "mine");
  EXPECT_EQ(ReadEntries(other.GetFilePath()).back()[kText], "the other's");
}

TEST_F(LogFailureTest, AFullDiskLeavesWholeLinesAnExactLostCountAndNoEmptyFiles) {
  const int64_t number = Statistics()[0];
  const int64_t lost = log_.GetLostEntryCount();
  ASSERT_EQ(log_.Initialize(&view_, "Full", "V 3"), VYN_STATUS_SUCCESS);
  log_.AddOutput("kept", VYN_EVENT_ERROR);
  WaitUntilWritten();
  const std::string first = log_.GetFilePath();
  ASSERT_EQ(LogFiles(), std::vector<std::string>{"Logs/" + first.substr(first.rfind('/') + 1)});

  // Room for one line and part of the next: that part is cut off again.
  vyn::seams::SetSystemLogFreeSpace(80);
  CaptureStderr();
  for (int i = 0; i < 50; ++i) log_.AddOutput("line " + std::to_string(i), VYN_EVENT_ERROR);
  WaitUntilWritten();
  // How many of them that first write lost depends on how the thread took
  // them off the queue; the total comes at the end of the run.
  EXPECT_THAT(GetCapturedStderr(), HasSubstr(first + " failed: No space left on device; "));
  // Each retry creates a file, fails on its header and removes it again.
  for (int retry = 0; retry < 3; ++retry) {
    PassRetryInterval();
    log_.AddOutput("retry " + std::to_string(retry), VYN_EVENT_ERROR);
    WaitUntilWritten();
  }
  EXPECT_EQ(LogFiles().size(), 1u);
  EXPECT_EQ(log_.GetFilePath(), first);
  const std::string text = ReadFile(first);
  EXPECT_EQ(text.substr(text.size() - 2), "\r\n");
  const std::vector<Record> kept = ReadEntries(first);
  ASSERT_EQ(kept.size(), 3u);
  EXPECT_EQ(kept.back().size(), 10u);
  EXPECT_EQ(kept.back()[kText], "line 0");

  // Room again: the next retry starts a file that holds the entries.
  vyn::seams::SetSystemLogFreeSpace(-1);
  PassRetryInterval();
  log_.AddOutput("after the retry", VYN_EVENT_ERROR);
  WaitUntilWritten();
  CaptureStderr();
  log_.Terminate();
  EXPECT_THAT(GetCapturedStderr(), HasSubstr("Entries of this run that are in no logfile: 52.\n"));
  ASSERT_EQ(LogFiles().size(), 2u);
  const std::string second = log_.GetFilePath();
  EXPECT_NE(second, first);
  const std::vector<Record> later = ReadEntries(second);
  ASSERT_EQ(later.size(), 2u);
  EXPECT_EQ(later[0][kText] + ", " + later[1][kText], "after the retry, Full V 3");

  // Every accepted entry is in a file or counted lost, none in both.
  std::set<std::string> numbers;
  for (const Record& entry : kept) numbers.insert(entry[kNumber]);
  for (const Record& entry : later) numbers.insert(entry[kNumber]);
  EXPECT_EQ(numbers.size(), kept.size() + later.size());
  EXPECT_EQ(log_.GetLostEntryCount() - lost, 49 + 3);
  EXPECT_EQ(static_cast<int64_t>(numbers.size()) + 49 + 3, Statistics()[0] - number);
  EXPECT_THAT(view_.GetWindowText(), HasSubstr("> Writing the logfile " + first + " failed"));
  EXPECT_THAT(view_.GetWindowText(), HasSubstr("the file held no entry and was removed.\r\n"));
}

TEST_F(LogFailureTest, AFailingDeviceLosesItsLinesAndANewFileFollows) {
  ASSERT_EQ(log_.Initialize(&view_, "Broken", "V 3"), VYN_STATUS_SUCCESS);
  log_.AddOutput("kept", VYN_EVENT_ERROR);
  WaitUntilWritten();
  const int64_t lost = log_.GetLostEntryCount();
  vyn::seams::RedirectSystemLogFile("/dev/full");
  for (int i = 0; i < 5; ++i) log_.AddOutput("lost " + std::to_string(i), VYN_EVENT_ERROR);
  WaitUntilWritten();
  EXPECT_EQ(log_.GetLostEntryCount(), lost + 5);
  PassRetryInterval();
  log_.AddOutput("after the retry", VYN_EVENT_ERROR);
  WaitUntilWritten();
  log_.Terminate();

  const std::vector<std::string> files = LogFiles();
  ASSERT_EQ(files.size(), 2u);
  EXPECT_EQ(ReadEntries(files[0]).back()[kText], "kept");
  const std::vector<Record> second = ReadEntries(files[1]);
  ASSERT_EQ(second.size(), 2u);
  EXPECT_EQ(second[0][kText] + ", " + second[1][kText], "after the retry, Broken V 3");
  EXPECT_THAT(view_.GetWindowText(), HasSubstr("> lost 4\r\n"));
}

}  // namespace
}  // namespace vyn::test
