// LogFileWriter: the system log's current CSV file, written in batches.
//
// Lines are collected in memory and handed to the operating system with one
// write when 64 KiB have gathered or when the owner calls Flush (the log does
// so whenever its queue runs empty and before every heartbeat). GetLength
// counts the lines collected as well as those written, so that the decision
// to start a new file is made line by line, exactly as if every line were
// written at once.
//
// A failed write closes the file: the lines of that write are counted as
// lost, one line goes to standard error, and HasFailed tells the owner to
// start a new file later (RetryDue) instead of writing on into a broken one.
//
// Ownership: owns the descriptor and the pending lines.
// Thread-safety: used by one thread at a time (the log's output thread, or
// Initialize while that thread does not run); GetLostLineCount may be read
// from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "vyn/platform/file.h"

namespace vyn::log {

class LogFileWriter {
 public:
  LogFileWriter() = default;
  LogFileWriter(const LogFileWriter&) = delete;
  LogFileWriter& operator=(const LogFileWriter&) = delete;

  // Closes the current file (writing what is pending) and creates `path`,
  // which must not exist yet. Clears a failure of the previous file.
  vyn::platform::FileCreateResult Create(const std::string& path);
  bool IsOpen() const { return file_.IsOpen(); }
  // Length of the current file with the lines not yet written.
  int64_t GetLength() const { return length_; }

  // Adds one line (CR LF included); writes when 64 KiB are pending.
  void AppendLine(const std::string& line);
  // Writes every pending line.
  void Flush();
  // Writes what is pending and asks the device to store it.
  void FlushToDevice();
  void Close();

  // The current file was closed because a write failed.
  bool HasFailed() const { return failed_; }
  // Marks the state after a failed attempt to replace a failed file.
  void MarkFailed();
  // A failed file may be replaced once `retry_interval_ms` have passed
  // since the failure.
  bool RetryDue(uint32_t retry_interval_ms) const;

  // Lines that were meant for a file and are in none.
  void CountLostLines(int64_t lines) { lost_lines_.fetch_add(lines, std::memory_order_relaxed); }
  int64_t GetLostLineCount() const { return lost_lines_.load(std::memory_order_relaxed); }

 private:
  void Fail(size_t written);

  vyn::platform::File file_;
  std::string pending_;
  std::vector<size_t> line_ends_;  // end offsets of the pending lines
  int64_t length_ = 0;
  bool failed_ = false;
  uint32_t failed_at_ms_ = 0;
  std::atomic<int64_t> lost_lines_{0};
};

}  // namespace vyn::log
