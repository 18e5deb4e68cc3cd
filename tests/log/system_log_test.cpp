// Acceptance, counting, formats and the view of the system log.
#include "vyn/log/system_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "tests/log/log_test_support.h"
#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"

namespace vyn::test {
namespace {

// Records the calls that the log sends to its view.
class RecordingEdit : public CMemoryEdit {
 public:
  void SetRedraw(bool redraw) override {
    calls.push_back(redraw ? "SetRedraw(1)" : "SetRedraw(0)");
    CMemoryEdit::SetRedraw(redraw);
  }
  void GetSel(int& start, int& end) const override {
    calls.push_back("GetSel");
    CMemoryEdit::GetSel(start, end);
  }
  void SetSel(int start, int end) override {
    calls.push_back("SetSel(" + std::to_string(start) + "," + std::to_string(end) + ")");
    CMemoryEdit::SetSel(start, end);
  }
  void ReplaceSel(const std::string& text, bool can_undo) override {
    calls.push_back(can_undo ? "ReplaceSel(undo)" : "ReplaceSel");
    CMemoryEdit::ReplaceSel(text, can_undo);
  }
  void ScrollCaret() override { calls.push_back("ScrollCaret"); }

  mutable std::vector<std::string> calls;  // read after Terminate only
};

TEST_F(LogTest, AcceptsOnlyWhileRunning) {
  const int64_t before = Statistics()[0];
  EXPECT_EQ(log_.Terminate(), VYN_STATUS_SUCCESS);  // nothing to stop
  EXPECT_EQ(log_.AddOutput("early", VYN_EVENT_ERROR), VYN_STATUS_FORBIDDEN);
  EXPECT_EQ(Statistics()[0], before);
  ASSERT_EQ(log_.Initialize(nullptr, "", ""), VYN_STATUS_SUCCESS);
  EXPECT_EQ(log_.Initialize(nullptr, "Other", "V 2"), VYN_STATUS_BUSY);
  EXPECT_EQ(log_.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(log_.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(log_.AddOutput("late", VYN_EVENT_ERROR), VYN_STATUS_FORBIDDEN);
  EXPECT_EQ(Statistics()[0], before + 1);  // only "The system log has been started."
  ASSERT_EQ(LogFiles().size(), 1u);
  const std::vector<Record> entries = ReadEntries(LogFiles()[0]);
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0][kText], "The system log has been started.");
  EXPECT_EQ(entries[0][kCaller], "CVYNSystemLogEx");
  EXPECT_NE(LogFiles()[0].find("Logs/VYN System Log 2"), std::string::npos);
}

TEST_F(LogTest, FiltersCountsAndCleansTexts) {
  ASSERT_EQ(log_.Initialize(nullptr, "Counting", "V 1"), VYN_STATUS_SUCCESS);
  const int64_t first = Statistics()[0];  // the start entry's number
  EXPECT_EQ(log_.AddOutput("no type", VYN_EVENT_UNKNOWN), VYN_STATUS_DISABLED);
  EXPECT_EQ(log_.AddOutput("", VYN_EVENT_ERROR), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(log_.AddOutput("unnamed bit", static_cast<_VYNSystemLogExEventType>(4)),
            VYN_STATUS_SUCCESS);
  const std::vector<std::string> texts = {"say \"hi\"", "a\r\n", "b\n\r\n\r", "c\r\n\r\n", "\r\n"};
  for (const std::string& text : texts) {
    EXPECT_EQ(log_.AddOutput(text, VYN_EVENT_ERROR, "", "", ""), VYN_STATUS_SUCCESS);
  }
  EXPECT_EQ(log_.AddOutput("checked", VYN_EVENT_DEBUG), VYN_STATUS_SUCCESS);
  WaitUntilWritten();
  log_.SetFileFilter(0);
  log_.SetOutputFilter(VYN_EVENT_ERROR);
  EXPECT_EQ(log_.AddOutput("shown only", VYN_EVENT_ERROR), VYN_STATUS_SUCCESS);
  EXPECT_EQ(log_.AddOutput("nowhere", VYN_EVENT_WARNING), VYN_STATUS_DISABLED);

  std::array<int64_t, 10> s = Statistics();
  EXPECT_EQ(s[0], first + 8);
  EXPECT_EQ(s, (std::array<int64_t, 10>{first + 8, 1, 0, 0, 0, 6, 0, 1, 0, 1}));
  EXPECT_EQ(log_.ResetPriorityCounter(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(Statistics(), (std::array<int64_t, 10>{first + 8}));
  WaitUntilWritten();
  EXPECT_EQ(log_.GetLogStatistics(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr),
            VYN_STATUS_SUCCESS);
  log_.SetFileFilter(0xFFFFFFFF);
  EXPECT_EQ(log_.AddOutput("next", VYN_EVENT_INFORMATION), VYN_STATUS_SUCCESS);
  log_.Terminate();
  EXPECT_EQ(log_.GetEntryCount(), 0);

  const std::vector<Record> entries = ReadEntries(LogFiles().at(0));
  ASSERT_EQ(entries.size(), 9u);  // "shown only" passed the output filter only
  EXPECT_EQ(entries[1][kEvent], "???");
  const std::vector<std::string> cleaned = {"say 'hi'", "a", "b\n\r", "c\r", ""};
  for (size_t i = 0; i < cleaned.size(); ++i) EXPECT_EQ(entries[2 + i][kText], cleaned[i]);
  EXPECT_EQ(entries[7][kEvent], "debug");
  EXPECT_EQ(entries[8][kNumber], std::to_string(first + 9));
  // The settings stay across a restart, the per-type counters do not.
  EXPECT_EQ(log_.GetFileFilter(), 0xFFFFFFFFu);
  EXPECT_EQ(log_.GetOutputFilter(), static_cast<uint32_t>(VYN_EVENT_ERROR));
  log_.SetAllowDowngrade(7);
  EXPECT_EQ(log_.GetAllowDowngrade(), 7u);
}

TEST_F(LogTest, WritesFileAndScreenLinesByteForByte) {
  CMemoryEdit view;
  log_.SetEnableOutput(true);
  ASSERT_EQ(log_.Initialize(&view, "Formats", "V 1"), VYN_STATUS_SUCCESS);
  log_.AddOutput("Port opened.", VYN_EVENT_COMMAND, "COM3", "CVYNSerialPort", "ctx");
  log_.AddOutput("plain", VYN_EVENT_WARNING);
  log_.Terminate();

  const std::string content = ReadFile(LogFiles().at(0));
  const std::string header =
      "Number;Date;Time;ms;ms [GMT];Event;Reference;Caller;Context;Message\r\n";
  ASSERT_EQ(content.compare(0, header.size(), header), 0);
  const std::vector<Record> entries = ReadEntries(LogFiles().at(0));
  ASSERT_EQ(entries.size(), 3u);
  std::string file_lines = header;
  std::string screen_lines;
  const char* const prefixes[] = {"", "COM3 > ", ""};
  for (size_t i = 0; i < entries.size(); ++i) {
    const Record& e = entries[i];
    char line[512];
    std::snprintf(line, sizeof line, "%s;%s;%s;%s;0;%s;%s;%s;%s;\"%s\"\r\n", e[kNumber].c_str(),
                  e[kDate].c_str(), e[kTime].c_str(), e[kMs].c_str(), e[kEvent].c_str(),
                  e[kReference].c_str(), e[kCaller].c_str(), e[kContext].c_str(), e[kText].c_str());
    file_lines += line;
    std::snprintf(line, sizeof line, "%s %s.%s > %s%s\r\n", e[kDate].c_str(), e[kTime].c_str(),
                  e[kMs].c_str(), prefixes[i], e[kText].c_str());
    screen_lines += line;
    EXPECT_EQ(e[kDate].size(), 10u);
    EXPECT_EQ(e[kTime].size(), 8u);
    EXPECT_EQ(e[kMs].size(), 3u);
  }
  EXPECT_EQ(content, file_lines);
  EXPECT_EQ(Record(entries[1].begin() + kEvent, entries[1].end()),
            (Record{"command", "COM3", "CVYNSerialPort", "ctx", "Port opened."}));
  EXPECT_EQ(view.GetWindowText(), screen_lines);
}

TEST_F(LogTest, SendsTheViewItsSequenceAndKeepsTheUsersSelection) {
  RecordingEdit view;
  view.SetWindowText("user text");
  view.SetSel(2, 4);
  view.calls.clear();
  log_.SetEnableOutput(true);
  log_.SetFileFilter(VYN_EVENT_ERROR);
  ASSERT_EQ(log_.Initialize(&view, "View", "V 1"), VYN_STATUS_SUCCESS);
  log_.AddOutput("warning on screen only", VYN_EVENT_WARNING);
  log_.Terminate();
  const std::vector<std::string> kept = {
      "SetRedraw(0)", "GetSel",      "SetSel(2000000000,2000000000)", "ReplaceSel", "SetSel(2,4)",
      "ScrollCaret",  "SetRedraw(1)"};
  ASSERT_EQ(view.calls.size(), 2 * kept.size());  // the start entry and the warning
  EXPECT_EQ(std::vector<std::string>(view.calls.begin(), view.calls.begin() + 7), kept);
  int start = 0;
  int end = 0;
  view.GetSel(start, end);
  EXPECT_EQ(start, 2);
  EXPECT_EQ(end, 4);
  EXPECT_EQ(view.GetWindowText().rfind("user text", 0), 0u);
  EXPECT_NE(view.GetWindowText().find("> warning on screen only\r\n"), std::string::npos);
  EXPECT_TRUE(ReadEntries(LogFiles().at(0)).empty());  // neither entry is an error

  view.calls.clear();
  log_.SetControlAutoScroll(true);
  ASSERT_EQ(log_.Initialize(&view, "View", "V 1"), VYN_STATUS_SUCCESS);
  WaitUntilWritten();
  log_.SetOutputFilter(VYN_EVENT_ERROR);
  log_.AddOutput("not shown", VYN_EVENT_WARNING);
  log_.Terminate();
  EXPECT_EQ(view.calls,
            (std::vector<std::string>{"GetSel", "SetSel(2000000000,2000000000)", "ReplaceSel"}));
  log_.SetOutputFilter(0xFFFFFFFF);
  log_.SetEnableOutput(false);
  view.calls.clear();
  ASSERT_EQ(log_.Initialize(&view, "View", "V 1"), VYN_STATUS_SUCCESS);
  log_.Terminate();
  EXPECT_TRUE(view.calls.empty());
}

TEST_F(LogTest, TerminateFromTheViewDoesNotWaitForItself) {
  CMemoryEdit view;
  std::atomic<int32_t> status{1};
  view.SetInsertObserver([&](const std::string& line) {
    if (line.find("stop now") != std::string::npos) status = log_.Terminate();
  });
  log_.SetEnableOutput(true);
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  log_.AddOutput("stop now", VYN_EVENT_INFORMATION);
  // Once the view has stopped the log, the log refuses; a new start works.
  for (int i = 0; i < 1000 && log_.AddOutput("probe", VYN_EVENT_DEBUG) == VYN_STATUS_SUCCESS; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(status, VYN_STATUS_SUCCESS);
  EXPECT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  log_.Terminate();  // before the view goes
}

}  // namespace
}  // namespace vyn::test
