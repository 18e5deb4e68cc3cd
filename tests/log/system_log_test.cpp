// Acceptance, counting, formats and the view of the system log.
#include "vyn/log/system_log.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

#include "tests/log/log_test_support.h"
#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"

namespace vyn::test {
namespace {

TEST_F(LogTest, AcceptsFiltersCountsAndCleans) {
  const int64_t loaded = Statistics()[0];
  EXPECT_EQ(log_.Terminate(), VYN_STATUS_SUCCESS);  // nothing to stop
  EXPECT_EQ(log_.AddOutput("early", VYN_EVENT_ERROR), VYN_STATUS_FORBIDDEN);
  ASSERT_EQ(log_.Initialize(nullptr, "", ""), VYN_STATUS_SUCCESS);
  EXPECT_EQ(log_.Initialize(nullptr, "Other", "V 2"), VYN_STATUS_BUSY);
  EXPECT_EQ(Statistics()[0], loaded + 1);  // "The system log has been started."
  EXPECT_EQ(log_.AddOutput("no type", VYN_EVENT_UNKNOWN), VYN_STATUS_DISABLED);
  EXPECT_EQ(log_.AddOutput("", VYN_EVENT_ERROR), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(log_.AddOutput("unnamed bit", static_cast<_VYNSystemLogExEventType>(4)),
            VYN_STATUS_SUCCESS);
  for (const char* text : {"say \"hi\"", "a\r\n", "b\n\r\n\r", "c\r\n\r\n", "\r\n"}) {
    EXPECT_EQ(log_.AddOutput(text, VYN_EVENT_ERROR), VYN_STATUS_SUCCESS);
  }
  WaitUntilWritten();
  log_.SetFileFilter(0);
  log_.SetOutputFilter(VYN_EVENT_ERROR);
  EXPECT_EQ(log_.AddOutput("view only", VYN_EVENT_ERROR), VYN_STATUS_SUCCESS);
  EXPECT_EQ(log_.AddOutput("nowhere", VYN_EVENT_WARNING), VYN_STATUS_DISABLED);
  EXPECT_EQ(Statistics(), (std::array<int64_t, 10>{loaded + 8, 1, 0, 0, 0, 6, 0, 1, 0, 0}));
  EXPECT_EQ(log_.ResetPriorityCounter(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(Statistics(), (std::array<int64_t, 10>{loaded + 8}));
  EXPECT_EQ(log_.GetLogStatistics(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr),
            VYN_STATUS_SUCCESS);
  WaitUntilWritten();
  log_.SetFileFilter(0xFFFFFFFF);
  EXPECT_EQ(log_.AddOutput("next", VYN_EVENT_DEBUG), VYN_STATUS_SUCCESS);
  log_.Terminate();
  EXPECT_EQ(log_.Terminate(), VYN_STATUS_SUCCESS);  // twice
  EXPECT_EQ(log_.AddOutput("late", VYN_EVENT_ERROR), VYN_STATUS_FORBIDDEN);
  EXPECT_EQ(Statistics()[0], loaded + 9);

  const std::vector<Record> entries = ReadEntries(LogFiles().at(0));
  ASSERT_EQ(entries.size(), 8u);  // "view only" passed the output filter only
  EXPECT_EQ(entries[1][kEvent], "???");
  const std::vector<std::string> cleaned = {"say 'hi'", "a", "b\n\r", "c\r", ""};
  for (size_t i = 0; i < cleaned.size(); ++i) EXPECT_EQ(entries[2 + i][kText], cleaned[i]);
  EXPECT_EQ(entries[7][kNumber], std::to_string(loaded + 9));
}

TEST_F(LogTest, WritesFileAndScreenLinesByteForByte) {
  CMemoryEdit view;
  log_.SetEnableOutput(true);
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  log_.AddOutput("Port opened.", VYN_EVENT_COMMAND, "COM3", "CVYNSerialPort", "ctx");
  log_.Terminate();
  const std::string file = LogFiles().at(0);
  EXPECT_NE(file.find("Logs/VYN System Log 20"), std::string::npos);
  const std::vector<Record> e = ReadEntries(file);
  ASSERT_EQ(e.size(), 2u);
  // Date, time and milliseconds are taken from the file; the rest is fixed.
  const auto at = [&e](size_t i) { return e[i][kDate] + ";" + e[i][kTime] + ";" + e[i][kMs]; };
  const auto shown = [&e](size_t i) { return e[i][kDate] + " " + e[i][kTime] + "." + e[i][kMs]; };
  EXPECT_EQ(ReadFile(file),
            "Number;Date;Time;ms;ms [GMT];Event;Reference;Caller;Context;Message\r\n" +
                e[0][kNumber] + ";" + at(0) +
                ";0;information;;CVYNSystemLogEx;;\"The system log has been started.\"\r\n" +
                e[1][kNumber] + ";" + at(1) +
                ";0;command;COM3;CVYNSerialPort;ctx;\"Port opened.\"\r\n");
  EXPECT_EQ(view.GetWindowText(), shown(0) + " > The system log has been started.\r\n" + shown(1) +
                                      " > COM3 > Port opened.\r\n");
  EXPECT_EQ(at(1).size(), std::string("2018-11-28;14:28:25;042").size());
}

// Records the calls that the log sends to its view (read after Terminate).
class RecordingEdit : public CMemoryEdit {
 public:
  void SetRedraw(bool on) override { calls += on ? "SetRedraw(1) " : "SetRedraw(0) "; }
  void GetSel(int& start, int& end) const override {
    calls += "GetSel ";
    CMemoryEdit::GetSel(start, end);
  }
  void SetSel(int start, int end) override {
    calls += "SetSel(" + std::to_string(start) + "," + std::to_string(end) + ") ";
    CMemoryEdit::SetSel(start, end);
  }
  void ReplaceSel(const std::string& text, bool undo) override {
    calls += undo ? "ReplaceSel(undo) " : "ReplaceSel ";
    CMemoryEdit::ReplaceSel(text, undo);
  }
  void ScrollCaret() override { calls += "ScrollCaret "; }
  mutable std::string calls;
};

TEST_F(LogTest, SendsTheViewItsSequenceAndKeepsTheUsersSelection) {
  RecordingEdit view;
  view.SetWindowText("user text");
  view.SetSel(2, 4);
  view.calls.clear();
  log_.SetEnableOutput(true);
  log_.SetFileFilter(VYN_EVENT_ERROR);
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  WaitUntilWritten();
  log_.AddOutput("warning on screen only", VYN_EVENT_WARNING);
  log_.Terminate();
  const std::string kept =
      "SetRedraw(0) GetSel SetSel(2000000000,2000000000) ReplaceSel SetSel(2,4) ScrollCaret "
      "SetRedraw(1) ";
  EXPECT_EQ(view.calls, kept + kept);  // the start entry and the warning
  int start = 0;
  int end = 0;
  view.GetSel(start, end);
  EXPECT_EQ(std::make_pair(start, end), std::make_pair(2, 4));
  EXPECT_EQ(view.GetWindowText().rfind("user text", 0), 0u);
  EXPECT_NE(view.GetWindowText().find("> warning on screen only\r\n"), std::string::npos);
  EXPECT_TRUE(ReadEntries(LogFiles().at(0)).empty());  // no error among them

  view.calls.clear();
  log_.SetControlAutoScroll(true);
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  WaitUntilWritten();
  log_.SetOutputFilter(VYN_EVENT_ERROR);
  log_.AddOutput("not shown", VYN_EVENT_WARNING);
  log_.SetEnableOutput(false);
  log_.AddOutput("not shown either", VYN_EVENT_ERROR);
  log_.Terminate();
  EXPECT_EQ(view.calls, "GetSel SetSel(2000000000,2000000000) ReplaceSel ");
}

TEST_F(LogTest, TerminateFromTheViewDoesNotWaitForItself) {
  CMemoryEdit view;
  std::atomic<bool> stopped{false};
  view.SetInsertObserver([&](const std::string& line) {
    if (line.find("stop now") != std::string::npos) stopped = log_.Terminate() == 0;
  });
  log_.SetEnableOutput(true);
  ASSERT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);
  log_.AddOutput("stop now", VYN_EVENT_INFORMATION);
  for (int i = 0; i < 1000 && log_.AddOutput("probe", VYN_EVENT_DEBUG) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(stopped);
  EXPECT_EQ(log_.Initialize(&view, "", ""), VYN_STATUS_SUCCESS);  // collects the old thread
  log_.Terminate();                                               // before the view goes
}

}  // namespace
}  // namespace vyn::test
