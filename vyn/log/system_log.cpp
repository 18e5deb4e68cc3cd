#include "vyn/log/system_log.h"

#include <cstdio>
#include <limits>
#include <new>

#include "vyn/base/mutex.h"
#include "vyn/core/internal/log_output.h"
#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/core/synchronize.h"
#include "vyn/log/internal/log_file_writer.h"
#include "vyn/log/internal/log_line_format.h"
#include "vyn/log/internal/system_log_testing.h"
#include "vyn/platform/process.h"
#include "vyn/platform/system_time.h"
#include "vyn/platform/wake_up_event.h"

namespace {

constexpr char kThreadName[] = "VYN System Log";
constexpr char kDefaultName[] = "VYN System Log";
constexpr char kDefaultVersion[] = "V 00.00 (2010-01-01)";
constexpr char kCaller[] = "CVYNSystemLogEx";
constexpr char kLogDirectory[] = "/Logs";
constexpr char kFileNameFormat[] = "/%s %04i-%02i-%02i %02i-%02i-%02i.csv";
constexpr char kFileCopyNameFormat[] = "/%s %04i-%02i-%02i %02i-%02i-%02i (%i).csv";
constexpr char kTitleFormat[] = "%s %s";
// More files than this within one second means something else is wrong.
constexpr int kMaxCopiesPerSecond = 999;

constexpr int64_t kMaxFileBytes = 10485760;
constexpr int64_t kMaxFileEntries = 65000;
constexpr uint32_t kIdleWaitMs = 500;
// A long batch still stamps the heartbeat (and hands its lines on) this often.
constexpr size_t kEntriesPerHeartBeat = 1024;
// Past any text's length: the caret goes to the end of the text.
constexpr int kEndOfText = 2000000000;

std::atomic<uint32_t> g_retry_interval_ms{10000};

enum LogText : int32_t {
  kTextFileNotCreated = 1,
  kTextNoCurrentDirectory = 2,
  kTextStarted = 3,
  kTextNotStarted = 4,
};

}  // namespace

namespace vyn::seams {

void SetSystemLogRetryInterval(uint32_t milliseconds) { g_retry_interval_ms = milliseconds; }

}  // namespace vyn::seams

struct CVYNSystemLogEx::Output {
  vyn::log::LogFileWriter file;
  vyn::log::LocalTimeCache local_time;
  // Raised by AddOutput and by a stop; the output thread's idle wait.
  vyn::platform::WakeUpEvent wake;
  // Serialises Initialize; a leaf (nothing that waits is called under it).
  vyn::Mutex initialize_lock;
  // The lost-entry count when this run started (set before the thread).
  int64_t lost_at_start = 0;
};

CVYNSystemLogEx::CVYNSystemLogEx() : output_(std::make_unique<Output>()) {}

CVYNSystemLogEx::~CVYNSystemLogEx() {
  // Before any member goes: the thread writes what is queued, with them.
  StopOutputThread();
}

int32_t CVYNSystemLogEx::AddOutput(std::string text, _VYNSystemLogExEventType type,
                                   std::string reference, std::string caller, std::string context) {
  // The refusals are tested before anything is allocated; the running flag
  // is tested again under the lock, where it decides.
  if (!output_thread_.IsRunning()) return VYN_STATUS_FORBIDDEN;
  if ((type & file_filter_.load(std::memory_order_relaxed)) == 0 &&
      (type & output_filter_.load(std::memory_order_relaxed)) == 0) {
    return VYN_STATUS_DISABLED;
  }
  if (text.empty()) return VYN_STATUS_INVALID_PARAMETER;

  try {
    auto queued = std::make_unique<QueuedEntry>();
    vyn::log::CleanLogText(&text);
    _VYN_SYSTEM_LOG_EX_ENTRY& entry = queued->entry;
    entry.strText = std::move(text);
    entry.eType = type;
    entry.strReference = std::move(reference);
    entry.strCaller = std::move(caller);
    entry.strContext = std::move(context);

    vyn::ScopedLock guard(&queue_lock_);
    if (!output_thread_.IsRunning()) return VYN_STATUS_FORBIDDEN;
    const int64_t number = sequence_number_.load(std::memory_order_relaxed) + 1;
    entry.llNumber = number;
    // Stamped under the lock, so that times never run backwards against
    // the numbers; the conversion to local time waits for the output thread.
    queued->accepted_at = vyn::platform::GetSystemTimeAsFileTime();
    queue_.push_back(std::move(queued));  // the one step that may fail
    sequence_number_.store(number, std::memory_order_relaxed);
    IncreasePriorityCounter(type);
  } catch (const std::bad_alloc&) {
    return VYN_STATUS_NO_MEMORY;
  } catch (...) {
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  // After the lock is given back, so that the woken thread finds it free. A
  // wake-up costs a system call only when the thread is idle.
  output_->wake.Signal();
  return VYN_STATUS_SUCCESS;
}

void CVYNSystemLogEx::SetFileFilter(uint32_t mask) { file_filter_ = mask; }

uint32_t CVYNSystemLogEx::GetFileFilter() { return file_filter_; }

void CVYNSystemLogEx::SetOutputFilter(uint32_t mask) { output_filter_ = mask; }

uint32_t CVYNSystemLogEx::GetOutputFilter() { return output_filter_; }

void CVYNSystemLogEx::SetEnableOutput(bool enable) { enable_output_ = enable; }

void CVYNSystemLogEx::SetControlAutoScroll(bool auto_scroll) { auto_scroll_ = auto_scroll; }

bool CVYNSystemLogEx::GetControlAutoScroll() { return auto_scroll_; }

void CVYNSystemLogEx::SetAllowDowngrade(uint32_t value) { allow_downgrade_ = value; }

uint32_t CVYNSystemLogEx::GetAllowDowngrade() { return allow_downgrade_; }

int32_t CVYNSystemLogEx::GetEntryCount() {
  vyn::ScopedLock guard(&queue_lock_);
  const int64_t count = static_cast<int64_t>(queue_.size()) + taken_not_written_;
  return static_cast<int32_t>(std::min<int64_t>(count, std::numeric_limits<int32_t>::max()));
}

int32_t CVYNSystemLogEx::ResetPriorityCounter() {
  vyn::ScopedLock guard(&queue_lock_);
  for (auto& counter : counters_) counter.store(0, std::memory_order_relaxed);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSystemLogEx::GetLogStatistics(int64_t* number, int64_t* unknown, int64_t* exception,
                                          int64_t* assert_count, int64_t* fatal, int64_t* error,
                                          int64_t* warning, int64_t* information, int64_t* command,
                                          int64_t* debug) {
  if (number != nullptr) *number = sequence_number_.load(std::memory_order_relaxed);
  int64_t* const targets[9] = {unknown, exception,   assert_count, fatal, error,
                               warning, information, command,      debug};
  for (int i = 0; i < 9; ++i) {
    if (targets[i] != nullptr) *targets[i] = counters_[i].load(std::memory_order_relaxed);
  }
  return VYN_STATUS_SUCCESS;
}

int64_t CVYNSystemLogEx::GetLostEntryCount() { return output_->file.GetLostLineCount(); }

std::string CVYNSystemLogEx::GetFilePath() { return output_->file.GetPath(); }

int32_t CVYNSystemLogEx::IncreasePriorityCounter(_VYNSystemLogExEventType type) {
  counters_[vyn::log::EventTypeCounterIndex(type)].fetch_add(1, std::memory_order_relaxed);
  return VYN_STATUS_SUCCESS;
}

std::string CVYNSystemLogEx::GetEventTypeAsString(_VYNSystemLogExEventType type) {
  return vyn::log::EventTypeText(type);
}

int32_t CVYNSystemLogEx::Initialize(CEdit* view, std::string name, std::string version) {
  // A running log answers at once, also to a call from its own view.
  if (output_thread_.IsRunning()) return VYN_STATUS_BUSY;
  // Collects a thread that was asked to stop from inside (Terminate from the
  // view); it writes what is left and ends. Done before the lock is taken:
  // that thread may still call into the view, and the view into us.
  output_thread_.DestroyThread(true);
  vyn::MutexLock serialised(&output_->initialize_lock);
  if (output_thread_.IsRunning()) return VYN_STATUS_BUSY;

  view_ = view;
  name_ = name.empty() ? kDefaultName : std::move(name);
  version_ = version.empty() ? kDefaultVersion : std::move(version);
  ResetPriorityCounter();
  output_->file.ForgetPath();
  output_->lost_at_start = output_->file.GetLostLineCount();
  GenerateFileNames();  // without a file the log still feeds the view
  output_thread_.SetThreadName(kThreadName);
  const int32_t status =
      output_thread_.CreateThread(&OutputThreadFunction, this, nullptr, 0, 0, false);
  if (status == VYN_STATUS_SUCCESS) {
    AddOwnOutput(GetVYNLanguage().GetString(VYN_MODULE_SYSTEM_LOG_EX, kTextStarted),
                 VYN_EVENT_INFORMATION);
  } else {
    AddOwnOutput(GetVYNLanguage().GetString(VYN_MODULE_SYSTEM_LOG_EX, kTextNotStarted),
                 VYN_EVENT_ERROR);
  }
  return status;
}

int32_t CVYNSystemLogEx::Terminate() {
  StopOutputThread();
  return VYN_STATUS_SUCCESS;
}

void CVYNSystemLogEx::StopOutputThread() {
  // The stop request first, then the wake-up: the woken loop must already
  // find its running flag cleared.
  output_thread_.DestroyThread(false);
  output_->wake.Signal();
  output_thread_.DestroyThread(true);
}

int32_t CVYNSystemLogEx::OutputThreadFunction(void* log) {
  return static_cast<CVYNSystemLogEx*>(log)->RunOutputThread();
}

int32_t CVYNSystemLogEx::RunOutputThread() {
  Batch batch;
  if (!output_thread_.IsRunning()) {
    // Stopped before the thread got here: what was accepted in between (the
    // start entry, at least) still goes out.
    WriteUntilEmpty(&batch);
    return VYN_STATUS_NOT_INITIALIZED;
  }
  output_thread_.SignalStart();
  ShowReports();  // why Initialize found no file, if it found none
  while (output_thread_.IsRunning()) {
    // Entries waiting: write them and come back at once. The heartbeat
    // follows the writing, so that what woke the thread (a hang report of
    // the thread monitor, say) is in the file before a freeze can hold it.
    if (TakeQueued(&batch)) {
      WriteBatch(&batch);
      HeartBeat();
      continue;
    }
    CatchUp();
    HeartBeat();
    // Cut short by AddOutput and by Terminate.
    output_->wake.Wait(kIdleWaitMs);
  }
  // Stopped: everything accepted until the running flag fell goes out too.
  WriteUntilEmpty(&batch);
  return VYN_STATUS_SUCCESS;
}

void CVYNSystemLogEx::WriteUntilEmpty(Batch* batch) {
  while (TakeQueued(batch)) WriteBatch(batch);
  CatchUp();
  output_->file.FlushToDevice();
  // One total per run: the failures' own reports cover only their writes.
  const int64_t lost = output_->file.GetLostLineCount() - output_->lost_at_start;
  if (lost > 0) {
    output_->file.Report("Entries of this run that are in no logfile: " + std::to_string(lost) +
                         ".");
  }
  ShowReports();
}

bool CVYNSystemLogEx::TakeQueued(Batch* batch) {
  vyn::ScopedLock guard(&queue_lock_);
  batch->swap(queue_);
  taken_not_written_ += static_cast<int64_t>(batch->size());
  return !batch->empty();
}

void CVYNSystemLogEx::WriteBatch(Batch* batch) {
  size_t since_heartbeat = 0;
  for (std::unique_ptr<QueuedEntry>& queued : *batch) {
    queued->entry.stTime = output_->local_time.ToLocalTime(queued->accepted_at);
    try {
      ProcessEntry(&queued->entry);
    } catch (...) {
      // A view that throws, or no memory for a line: that entry is not
      // shown, and the thread goes on with the next one.
    }
    queued.reset();
    if (++since_heartbeat == kEntriesPerHeartBeat) {
      since_heartbeat = 0;
      HeartBeat();
    }
  }
  batch->clear();  // keeps its capacity for the next swap
}

void CVYNSystemLogEx::CatchUp() {
  output_->file.Flush();
  vyn::ScopedLock guard(&queue_lock_);
  taken_not_written_ = 0;
}

void CVYNSystemLogEx::HeartBeat() {
  output_->file.Flush();
  ShowReports();
  output_thread_.UpdateStatus();
}

void CVYNSystemLogEx::ProcessEntry(_VYN_SYSTEM_LOG_EX_ENTRY* entry) {
  if (entry == nullptr) return;
  const bool to_file = (entry->eType & file_filter_.load(std::memory_order_relaxed)) != 0;
  if (to_file) RetryFailedFile();
  ++file_entry_count_;
  if (to_file) {
    if (output_->file.IsOpen()) {
      vyn::log::FormatCsvLine(*entry, &line_);
      output_->file.AppendLine(line_);
      CheckLogFile();
    } else {
      output_->file.CountLostLines(1);
    }
  }

  ShowOnView(*entry);
}

void CVYNSystemLogEx::ShowOnView(const _VYN_SYSTEM_LOG_EX_ENTRY& entry) {
  CEdit* const view = view_;
  if (view == nullptr || !enable_output_ ||
      (entry.eType & output_filter_.load(std::memory_order_relaxed)) == 0) {
    return;
  }
  vyn::log::FormatScreenLine(entry, &line_);
  const bool auto_scroll = auto_scroll_;
  if (!auto_scroll) view->SetRedraw(false);
  int start = 0;
  int end = 0;
  view->GetSel(start, end);
  view->SetSel(kEndOfText, kEndOfText);
  view->ReplaceSel(line_, false);
  if (!auto_scroll) {
    view->SetSel(start, end);
    view->ScrollCaret();
    view->SetRedraw(true);
  }
}

void CVYNSystemLogEx::ShowReports() {
  std::vector<std::string> reports = output_->file.TakeReports();
  if (reports.empty()) return;
  _VYN_SYSTEM_LOG_EX_ENTRY notice;
  notice.stTime = vyn::platform::GetLocalTime();
  notice.eType = VYN_EVENT_ERROR;
  for (std::string& text : reports) {
    notice.strText = std::move(text);
    try {
      ShowOnView(notice);
    } catch (...) {
      // As for an entry: a view that throws misses this line only.
    }
  }
}

void CVYNSystemLogEx::RetryFailedFile() {
  if (!output_->file.RetryDue(g_retry_interval_ms.load())) return;
  GenerateFileNames();
  if (!output_->file.IsOpen()) output_->file.MarkFailed();  // the next try waits again
}

int32_t CVYNSystemLogEx::CheckLogFile() {
  if (!output_->file.IsOpen()) return VYN_STATUS_SUCCESS;
  if (output_->file.GetLength() > kMaxFileBytes) {
    output_->file.Close();
    GenerateFileNames();
  }
  if (file_entry_count_ > kMaxFileEntries) {
    output_->file.Close();
    GenerateFileNames();
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSystemLogEx::GenerateFileNames() {
  output_->file.Close();
  std::string directory;
  if (!vyn::platform::GetCurrentDirectory(&directory)) {
    const std::string text =
        GetVYNLanguage().GetString(VYN_MODULE_SYSTEM_LOG_EX, kTextNoCurrentDirectory);
    output_->file.Report(text);
    AddOwnOutput(text.c_str(), VYN_EVENT_ERROR);
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  directory += kLogDirectory;
  vyn::platform::CreateDirectory(directory);  // a failure shows when the file is created

  const SYSTEMTIME now = vyn::platform::GetLocalTime();
  std::vector<char> file_name(name_.size() + 64);
  bool created = false;
  for (int copy = 1; copy <= kMaxCopiesPerSecond && !created; ++copy) {
    if (copy == 1) {
      std::snprintf(file_name.data(), file_name.size(), kFileNameFormat, name_.c_str(), now.wYear,
                    now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond);
    } else {
      std::snprintf(file_name.data(), file_name.size(), kFileCopyNameFormat, name_.c_str(),
                    now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, copy);
    }
    path_ = directory + file_name.data();
    const vyn::platform::FileCreateResult result = output_->file.Create(path_);
    created = result == vyn::platform::FileCreateResult::kCreated;
    if (result == vyn::platform::FileCreateResult::kFailed) break;
  }
  if (!created) {
    const std::string text =
        GetVYNLanguage().GetString(VYN_MODULE_SYSTEM_LOG_EX, kTextFileNotCreated);
    output_->file.Report(text + " " + path_ + ": " + output_->file.GetLastErrorText());
    AddOwnOutput(text.c_str(), VYN_EVENT_ERROR);
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  file_entry_count_ = 0;
  WriteCSVHeader();
  // Not even the header fits (a full disk): the file is gone again.
  if (!output_->file.IsOpen()) return VYN_STATUS_UNSPECIFIC_ERROR;
  std::vector<char> title(name_.size() + version_.size() + 2);
  std::snprintf(title.data(), title.size(), kTitleFormat, name_.c_str(), version_.c_str());
  AddOutput(title.data(), VYN_EVENT_INFORMATION, "", "", "");
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSystemLogEx::WriteCSVHeader() {
  output_->file.AppendLine(vyn::log::kCsvHeader, false);
  output_->file.Flush();  // the header is in the file as soon as the file exists
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSystemLogEx::AddOwnOutput(const char* text, _VYNSystemLogExEventType type) {
  return AddOutput(text, type, "", kCaller, "");
}

namespace vyn {

int32_t LogAddOutput(const std::string& text, _VYNSystemLogExEventType type,
                     const std::string& reference, const std::string& caller,
                     const std::string& context) {
  return GetVYNSystemLogEx().AddOutput(text, type, reference, caller, context);
}

}  // namespace vyn
