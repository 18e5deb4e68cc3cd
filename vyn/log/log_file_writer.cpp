#include "vyn/log/internal/log_file_writer.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <mutex>
#include <utility>

#include "vyn/base/mutex.h"
#include "vyn/log/internal/system_log_testing.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/system_error.h"

namespace vyn::log {
namespace {

// Large enough that a burst costs few system calls, small enough that the
// memory stays negligible.
constexpr size_t kWriteChunk = size_t{64} * 1024;

vyn::Mutex g_redirect_mutex;
std::string g_redirect_path VYN_GUARDED_BY(g_redirect_mutex);
std::atomic<bool> g_redirect_pending{false};
// Bytes the log may still write before its writes fail as on a full disk;
// negative: no limit.
std::atomic<int64_t> g_free_space{-1};

// Writes what the free space of SetSystemLogFreeSpace allows; a write cut
// short by it fails with ENOSPC like one on a full device.
bool WriteWithinFreeSpace(vyn::platform::File* file, const std::string& data, size_t* written,
                          std::string* reason) {
  size_t allowed = data.size();
  const int64_t free_space = g_free_space.load();
  if (free_space >= 0) allowed = std::min<size_t>(allowed, static_cast<size_t>(free_space));
  const bool ok = file->WriteAll(data.data(), allowed, written);
  if (free_space >= 0) g_free_space.fetch_sub(static_cast<int64_t>(*written));
  if (!ok) {
    *reason = file->GetLastErrorText();
    return false;
  }
  if (allowed < data.size()) {
    *reason = vyn::platform::SystemErrorText(ENOSPC);
    return false;
  }
  return true;
}

}  // namespace
}  // namespace vyn::log

namespace vyn::seams {

void RedirectSystemLogFile(const std::string& path) {
  vyn::MutexLock lock(&vyn::log::g_redirect_mutex);
  vyn::log::g_redirect_path = path;
  vyn::log::g_redirect_pending = true;
}

void SetSystemLogFreeSpace(int64_t bytes) { vyn::log::g_free_space = bytes; }

}  // namespace vyn::seams

namespace vyn::log {

vyn::platform::FileCreateResult LogFileWriter::Create(const std::string& path) {
  Close();
  failed_ = false;
  const vyn::platform::FileCreateResult result = file_.CreateNew(path);
  if (result == vyn::platform::FileCreateResult::kCreated) {
    file_path_ = path;
    length_ = 0;
    written_length_ = 0;
    entries_in_file_ = 0;
    vyn::MutexLock lock(&path_lock_);
    earlier_path_ = path_;
    path_ = path;
  }
  return result;
}

void LogFileWriter::AppendLine(const std::string& line, bool is_entry) {
  pending_ += line;
  lines_.push_back({pending_.size(), is_entry});
  length_ += static_cast<int64_t>(line.size());
  if (pending_.size() >= kWriteChunk) Flush();
}

void LogFileWriter::Flush() {
  if (pending_.empty()) return;
  if (g_redirect_pending.exchange(false)) {
    vyn::MutexLock lock(&g_redirect_mutex);
    vyn::platform::File replacement;
    if (file_.IsOpen() && replacement.OpenForWriting(g_redirect_path)) {
      file_ = std::move(replacement);
    }
  }
  size_t written = 0;
  std::string reason;
  if (WriteWithinFreeSpace(&file_, pending_, &written, &reason)) {
    written_length_ += static_cast<int64_t>(pending_.size());
    for (const PendingLine& line : lines_) entries_in_file_ += line.is_entry ? 1 : 0;
    pending_.clear();
    lines_.clear();
  } else {
    Fail(written, reason);
  }
}

void LogFileWriter::FlushToDevice() {
  Flush();
  file_.DataSync();
}

void LogFileWriter::Close() {
  Flush();
  file_.Close();
}

void LogFileWriter::Fail(size_t written, const std::string& reason) {
  // A line counts as written only when all of it made it into the file; a
  // line cut short is taken out again.
  size_t whole = 0;
  int64_t lost = 0;
  for (const PendingLine& line : lines_) {
    if (line.end <= written) {
      whole = line.end;
      entries_in_file_ += line.is_entry ? 1 : 0;
    } else {
      lost += line.is_entry ? 1 : 0;
    }
  }
  written_length_ += static_cast<int64_t>(whole);
  CountLostLines(lost);
  pending_.clear();
  lines_.clear();
  std::string text = "Writing the logfile " + file_path_ + " failed: " + reason +
                     "; entries of that write lost: " + std::to_string(lost);
  if (written > whole && !file_.Truncate(written_length_)) {
    text += "; its last line could not be cut off (" + file_.GetLastErrorText() + ")";
  }
  file_.Close();
  if (entries_in_file_ == 0 && vyn::platform::RemoveFile(file_path_)) {
    // Nothing but the header: a file that tells nothing is not left behind.
    text += "; the file held no entry and was removed";
    vyn::MutexLock lock(&path_lock_);
    path_ = earlier_path_;
  }
  Report(text + ".");
  MarkFailed();
}

void LogFileWriter::MarkFailed() {
  failed_ = true;
  failed_at_ms_ = vyn::platform::GetTickCount();
}

bool LogFileWriter::RetryDue(uint32_t retry_interval_ms) const {
  // Unsigned difference: correct across the wrap of the tick count.
  return failed_ && vyn::platform::GetTickCount() - failed_at_ms_ >= retry_interval_ms;
}

std::string LogFileWriter::GetPath() const {
  vyn::MutexLock lock(&path_lock_);
  return path_;
}

void LogFileWriter::ForgetPath() {
  vyn::MutexLock lock(&path_lock_);
  path_.clear();
  earlier_path_.clear();
}

void LogFileWriter::Report(const std::string& text) {
  std::fprintf(stderr, "VYN System Log: %s\n", text.c_str());
  reports_.push_back(text);
}

std::vector<std::string> LogFileWriter::TakeReports() {
  std::vector<std::string> reports;
  reports.swap(reports_);
  return reports;
}

}  // namespace vyn::log
