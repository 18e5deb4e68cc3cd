#include "vyn/log/internal/log_file_writer.h"

#include <cstdio>
#include <mutex>
#include <utility>

#include "vyn/base/mutex.h"
#include "vyn/log/internal/system_log_testing.h"
#include "vyn/platform/clock.h"

namespace vyn::log {
namespace {

// Large enough that a burst costs few system calls, small enough that the
// memory stays negligible.
constexpr size_t kWriteChunk = size_t{64} * 1024;

vyn::Mutex g_redirect_mutex;
std::string g_redirect_path VYN_GUARDED_BY(g_redirect_mutex);
std::atomic<bool> g_redirect_pending{false};

}  // namespace
}  // namespace vyn::log

namespace vyn::testing {

void RedirectSystemLogFile(const std::string& path) {
  vyn::MutexLock lock(&vyn::log::g_redirect_mutex);
  vyn::log::g_redirect_path = path;
  vyn::log::g_redirect_pending = true;
}

}  // namespace vyn::testing

namespace vyn::log {

vyn::platform::FileCreateResult LogFileWriter::Create(const std::string& path) {
  Close();
  failed_ = false;
  const vyn::platform::FileCreateResult result = file_.CreateNew(path);
  if (result == vyn::platform::FileCreateResult::kCreated) length_ = 0;
  return result;
}

void LogFileWriter::AppendLine(const std::string& line) {
  pending_ += line;
  line_ends_.push_back(pending_.size());
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
  if (file_.WriteAll(pending_.data(), pending_.size(), &written)) {
    pending_.clear();
    line_ends_.clear();
  } else {
    Fail(written);
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

void LogFileWriter::Fail(size_t written) {
  // A line counts as written only when all of it made it into the file.
  int64_t lost = 0;
  for (const size_t end : line_ends_) {
    if (end > written) ++lost;
  }
  CountLostLines(lost);
  std::fprintf(stderr,
               "VYN System Log: a write to the log file failed (%s); %lld entries lost, "
               "a new file follows later\n",
               file_.GetLastErrorText().c_str(), static_cast<long long>(lost));
  pending_.clear();
  line_ends_.clear();
  file_.Close();
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

}  // namespace vyn::log
