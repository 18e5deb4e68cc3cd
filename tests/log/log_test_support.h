// What the log tests share: a reader of the CSV files that honours quoting,
// the files of Logs/ in the order they were started, and a fixture that runs
// each test in a fresh current directory with the log's settings reset.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/temp_dir.h"
#include "vyn/log/system_log.h"

namespace vyn::test {

using Record = std::vector<std::string>;

// Records end with CR LF outside quotes; fields are separated by ';'; a field
// that starts with '"' runs to the closing quote ("" stands for one quote).
inline std::vector<Record> ParseCsv(const std::string& text) {
  std::vector<Record> records;
  Record record;
  std::string field;
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quoted) {
      if (c != '"') {
        field += c;
      } else if (i + 1 < text.size() && text[i + 1] == '"') {
        field += text[++i];
      } else {
        quoted = false;
      }
    } else if (c == '"' && field.empty()) {
      quoted = true;
    } else if (c == ';') {
      record.push_back(std::move(field));
      field.clear();
    } else if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
      record.push_back(std::move(field));
      field.clear();
      records.push_back(std::move(record));
      record.clear();
      ++i;
    } else {
      field += c;
    }
  }
  EXPECT_TRUE(field.empty() && record.empty()) << "the last record is not ended by CR LF";
  return records;
}

// The ten columns of a record.
enum Column { kNumber, kDate, kTime, kMs, kMsGmt, kEvent, kReference, kCaller, kContext, kText };

// "Name 2024-01-02 10-11-12.csv" sorts before "... (2).csv", "... (3).csv".
inline std::vector<std::string> LogFiles() {
  std::vector<std::pair<std::pair<std::string, int>, std::string>> keyed;
  std::error_code ignored;
  for (const auto& item : std::filesystem::directory_iterator("Logs", ignored)) {
    std::string stem = item.path().stem().string();
    int copy = 1;
    const size_t open = stem.rfind(" (");
    if (!stem.empty() && stem.back() == ')' && open != std::string::npos) {
      copy = std::stoi(stem.substr(open + 2));
      stem.resize(open);
    }
    keyed.push_back({{stem, copy}, item.path().string()});
  }
  std::sort(keyed.begin(), keyed.end());
  std::vector<std::string> files;
  for (const auto& item : keyed) files.push_back(item.second);
  return files;
}

// The entry records of one file, checking its header on the way.
inline std::vector<Record> ReadEntries(const std::string& path) {
  std::vector<Record> records = ParseCsv(ReadFile(path));
  EXPECT_FALSE(records.empty()) << path;
  if (records.empty()) return records;
  EXPECT_EQ(records.front(), (Record{"Number", "Date", "Time", "ms", "ms [GMT]", "Event",
                                     "Reference", "Caller", "Context", "Message"}));
  records.erase(records.begin());
  return records;
}

inline std::array<int64_t, 10> Statistics() {
  std::array<int64_t, 10> s{};
  GetVYNSystemLogEx().GetLogStatistics(&s[0], &s[1], &s[2], &s[3], &s[4], &s[5], &s[6], &s[7],
                                       &s[8], &s[9]);
  return s;
}

// Filters are read when an entry is written: before changing one, a test
// waits until the output thread has written everything.
inline void WaitUntilWritten() {
  for (int i = 0; i < 6000 && GetVYNSystemLogEx().GetEntryCount() != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(GetVYNSystemLogEx().GetEntryCount(), 0);
}

class LogTest : public ::testing::Test {
 protected:
  LogTest() {
    CVYNSystemLogEx& log = GetVYNSystemLogEx();
    log.SetFileFilter(0xFFFFFFFF);
    log.SetOutputFilter(0xFFFFFFFF);
    log.SetEnableOutput(false);
    log.SetControlAutoScroll(false);
  }
  ~LogTest() override { GetVYNSystemLogEx().Terminate(); }

  CVYNSystemLogEx& log_ = GetVYNSystemLogEx();
  TempDir directory_;
  ScopedCurrentDirectory current_{directory_.path()};
};

}  // namespace vyn::test
