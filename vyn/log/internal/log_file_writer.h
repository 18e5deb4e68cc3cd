// LogFileWriter: the system log's current CSV file, written in batches.
//
// Lines are collected in memory and handed to the operating system with one
// write when 64 KiB have gathered or when the owner calls Flush (the log does
// so whenever its queue runs empty and before every heartbeat). GetLength
// counts the lines collected as well as those written, so that the decision
// to start a new file is made line by line, exactly as if every line were
// written at once.
//
// A failed write closes the file. Only whole lines stay in it: a write that
// stopped inside a line is cut back to the end of the last whole line. Every
// entry line that is not whole in the file is counted as lost. A file left
// without a single entry line (the header at most) is removed, so that a
// full disk leaves no empty files behind from the retries. HasFailed tells
// the owner to start a new file later (RetryDue) instead of writing on into
// a broken one.
//
// Reports: every failure is written to standard error at once and kept
// until the owner takes it (TakeReports) to show it where the user looks.
//
// Ownership: owns the descriptor, the pending lines and the reports.
// Thread-safety: used by one thread at a time (the log's output thread, or
// Initialize while that thread does not run); GetLostLineCount and GetPath
// may be called from any thread. path_lock_ is a leaf.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

#include "vyn/base/mutex.h"
#include "vyn/base/thread_annotations.h"
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
  // The system's text for the last failure of the file.
  std::string GetLastErrorText() const { return file_.GetLastErrorText(); }

  // Adds one line (CR LF included); writes when 64 KiB are pending. Only
  // entry lines count as lost when they do not make it into the file.
  void AppendLine(const std::string& line, bool is_entry = true);
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

  // Entry lines that were meant for a file and are in none.
  void CountLostLines(int64_t lines) { lost_lines_.fetch_add(lines, std::memory_order_relaxed); }
  int64_t GetLostLineCount() const { return lost_lines_.load(std::memory_order_relaxed); }

  // The file that holds the entries written since ForgetPath: the open
  // file, or after a failure the last file that kept an entry line. Empty
  // when there is no such file.
  std::string GetPath() const;
  // Starts a new run: GetPath is empty until a file is created.
  void ForgetPath();

  // Writes `text` to standard error now and keeps it for TakeReports.
  void Report(const std::string& text);
  // The reports since the last call, oldest first.
  std::vector<std::string> TakeReports();

 private:
  struct PendingLine {
    size_t end;  // offset behind the line in pending_
    bool is_entry;
  };

  // `written` bytes of pending_ reached the file before the write failed.
  void Fail(size_t written, const std::string& reason);

  vyn::platform::File file_;
  std::string file_path_;  // of the open (or just failed) file
  std::string pending_;
  std::vector<PendingLine> lines_;
  int64_t length_ = 0;          // in the file and pending
  int64_t written_length_ = 0;  // in the file
  int64_t entries_in_file_ = 0;
  bool failed_ = false;
  uint32_t failed_at_ms_ = 0;
  std::atomic<int64_t> lost_lines_{0};
  std::vector<std::string> reports_;
  mutable vyn::Mutex path_lock_;
  std::string path_ VYN_GUARDED_BY(path_lock_);
  // GetPath's answer should the open file be removed.
  std::string earlier_path_ VYN_GUARDED_BY(path_lock_);
};

}  // namespace vyn::log
