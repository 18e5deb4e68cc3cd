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
enum Column { kNumber, kDate, kTime, kMs, kMsGmt, kEvent, kReference, kCaller, kContext, kText };

// Records end with CR LF outside quotes, fields with ';'; a field that starts
// with '"' runs to the closing quote ("" stands for one quote).
inline std::vector<Record> ParseCsv(const std::string& text) {
  std::vector<Record> records(1, Record(1));
  bool quoted = false;
  for (size_t i = 0; i < text.size(); ++i) {
    std::string& field = records.back().back();
    if (text[i] == '"' && (quoted ? text[i + 1] != '"' : field.empty())) {
      quoted = !quoted;
    } else if (quoted) {
      field += text[i];
      i += text[i] == '"';  // the second of a doubled quote
    } else if (text[i] == ';') {
      records.back().emplace_back();
    } else if (text.compare(i, 2, "\r\n") == 0) {
      records.emplace_back(1);
      ++i;
    } else {
      field += text[i];
    }
  }
  EXPECT_EQ(records.back(), Record(1)) << "the last record does not end with CR LF";
  records.pop_back();
  return records;
}

// "Name 2024-01-02 10-11-12.csv" before "... (2).csv", "... (3).csv", ...
inline std::vector<std::string> LogFiles() {
  std::vector<std::pair<std::pair<std::string, int>, std::string>> files;
  std::error_code ignored;
  for (const auto& item : std::filesystem::directory_iterator("Logs", ignored)) {
    const std::string stem = item.path().stem().string();
    const size_t copy = stem.back() == ')' ? stem.rfind(" (") : stem.size();
    files.push_back(
        {{stem.substr(0, copy), copy < stem.size() ? std::stoi(stem.substr(copy + 2)) : 1},
         item.path().string()});
  }
  std::sort(files.begin(), files.end());
  std::vector<std::string> paths;
  for (const auto& file : files) paths.push_back(file.second);
  return paths;
}

// The entry records of a file, after checking its header.
inline std::vector<Record> ReadEntries(const std::string& path) {
  std::vector<Record> records = ParseCsv(ReadFile(path));
  EXPECT_EQ(records.at(0), (Record{"Number", "Date", "Time", "ms", "ms [GMT]", "Event", "Reference",
                                   "Caller", "Context", "Message"}));
  records.erase(records.begin());
  return records;
}

inline std::array<int64_t, 10> Statistics() {
  std::array<int64_t, 10> s{};
  GetVYNSystemLogEx().GetLogStatistics(&s[0], &s[1], &s[2], &s[3], &s[4], &s[5], &s[6], &s[7],
                                       &s[8], &s[9]);
  return s;
}

// Filters are read when an entry is written, and a new file's title entry is
// accepted only while the log runs: tests wait for the writing first.
inline void WaitUntilWritten() {
  for (int i = 0; i < 6000 && GetVYNSystemLogEx().GetEntryCount() != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(GetVYNSystemLogEx().GetEntryCount(), 0);
}

class LogTest : public ::testing::Test {
 protected:
  LogTest() {
    log_.SetFileFilter(0xFFFFFFFF);
    log_.SetOutputFilter(0xFFFFFFFF);
    log_.SetEnableOutput(false);
    log_.SetControlAutoScroll(false);
  }
  ~LogTest() override { log_.Terminate(); }

  CVYNSystemLogEx& log_ = GetVYNSystemLogEx();
  TempDir directory_;
  ScopedCurrentDirectory current_{directory_.path()};
};

}  // namespace vyn::test
