// The crash handlers, the dump file and the user message. Everything reached
// from TopLevelFilter runs inside a signal handler: it allocates nothing,
// takes no lock and formats its texts with FormatSignalSafe.
#include "vyn/diagnostics/memory_dump.h"

#include <strings.h>

#include <cstring>

#include "vyn/core/internal/log_output.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/diagnostics/internal/signal_safe_format.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/crash.h"
#include "vyn/platform/crash_signals.h"
#include "vyn/platform/dump_writer_process.h"
#include "vyn/platform/helper_programs.h"
#include "vyn/platform/message_box.h"
#include "vyn/platform/process.h"

using vyn::diagnostics::FormatSignalSafe;

namespace {

constexpr const char* kDefaultName = "VYN Memory Dump";
constexpr const char* kDumpFolder = "/Dumps";
// The longest a dump may take before the writer is given up (a full-memory
// dump of a large process is the slow case).
constexpr uint32_t kDumpTimeoutMs = 120000;

const char* Text(int32_t number) {
  return GetVYNLanguage().GetString(VYN_MODULE_MEMORY_DUMP, number);
}

}  // namespace

CVYNMemoryDump::CVYNMemoryDump() = default;

// The heap-check thread stops with its member's destructor; the handlers
// stay, and the library is kept loaded while they are installed.
CVYNMemoryDump::~CVYNMemoryDump() = default;

int32_t CVYNMemoryDump::Initialize(std::string name) {
  if (initialized_) return VYN_STATUS_SUCCESS;
  name_ = name.empty() ? kDefaultName : std::move(name);
  GenerateFileNames();
  int32_t status = VYN_STATUS_SUCCESS;
  if (!IsRundll32()) {
    status = SetTopLevelFilters();
    ApplyIniSettings();
  }
  initialized_ = true;
  return status;
}

int32_t CVYNMemoryDump::Terminate() {
  heap_check_thread_.DestroyThread(true);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMemoryDump::CreateMemoryDump() {
  if (!handlers_installed_) return VYN_STATUS_NOT_INITIALIZED;
  CrashFast(VYN_END_OF_PROCESS_REQUESTED);
}

void CVYNMemoryDump::SetShowMessageBoxAfterDump(bool show) { message_box_after_dump_ = show; }

int32_t CVYNMemoryDump::GenerateFileNames() {
  std::string directory;
  if (!vyn::platform::GetCurrentDirectory(&directory)) {
    AddOutput(Text(2), VYN_EVENT_ERROR);
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  directory += kDumpFolder;
  // A shortened folder would put dumps somewhere else; a folder too long
  // for the buffer counts as one that cannot be determined.
  if (directory.size() >= kDirectorySize) {
    AddOutput(Text(2), VYN_EVENT_ERROR);
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  std::memcpy(dump_directory_, directory.c_str(), directory.size() + 1);
  if (!vyn::platform::CreateDirectory(directory)) {
    AddOutput(Text(1), VYN_EVENT_ERROR);
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMemoryDump::SetTopLevelFilters() {
  if (handlers_installed_) return VYN_STATUS_SUCCESS;
  handlers_installed_ = true;
  // Everything the filter needs later is found now, while memory and locks
  // can still be used.
  vyn::platform::PrepareDumpWriter();
  vyn::platform::PrepareMessageBoxDisplay();
  vyn::platform::PrepareMessageBoxHost("ShowMessageBox");
  vyn::platform::PinLibrary();
  vyn::platform::EnsureSignalStackForCurrentThread();
  vyn::platform::InstallCrashSignalHandlers(&TopLevelFilterStatic);
  vyn::platform::SetPureVirtualCallHandler(&TopLevelPureVirtualFunctionCallHandlerRoutine);
  vyn::platform::MarkCrashHandlersInstalled();
  LockTopLevelFilters();
  return VYN_STATUS_SUCCESS;
}

// Linux offers no means to keep other code from installing its own signal
// handlers later; the handlers stay in force unless someone replaces them.
int32_t CVYNMemoryDump::LockTopLevelFilters() {
  if (handlers_locked_) return VYN_STATUS_SUCCESS;
  return VYN_STATUS_NOT_FOUND;
}

bool CVYNMemoryDump::IsRundll32() {
  const std::string program = vyn::platform::GetProgramFileName();
  return !program.empty() &&
         strcasecmp(program.c_str(), vyn::platform::kMessageBoxHostProgram) == 0;
}

int32_t CVYNMemoryDump::TopLevelFilterStatic(EXCEPTION_POINTERS* pointers) {
  // The filter runs on the signal stack, which has room for the whole
  // procedure even when the thread's own stack overflowed; no helper thread
  // is needed.
  return GetVYNMemoryDump().TopLevelFilter(pointers, true);
}

void CVYNMemoryDump::TopLevelPureVirtualFunctionCallHandlerRoutine() {
  AddOutputStatic("A pure virtual function call has been detected.", VYN_EVENT_FATAL);
  CrashFast(VYN_END_OF_PROCESS_PURE_VIRTUAL);
}

void CVYNMemoryDump::CrashFast(_VYNEndOfProcessReason reason) {
  vyn::platform::RaiseEndOfProcess(reason);
}

bool CVYNMemoryDump::IsDumpingOnThisThread(uint32_t thread_id) {
  for (const std::atomic<uint32_t>& dumping : dumping_threads_) {
    if (dumping.load() == thread_id) return true;
  }
  return false;
}

int32_t CVYNMemoryDump::TopLevelFilter(EXCEPTION_POINTERS* pointers, bool end_process) {
  const uint32_t thread_id = vyn::platform::SignalSafeThreadId();
  if (IsDumpingOnThisThread(thread_id)) {
    // A signal that another thread or process sent while this thread writes
    // its dump broke nothing here: the dump goes on. A fault inside the
    // procedure itself leaves nothing that could be done safely.
    const bool sent = pointers != nullptr && pointers->ExceptionRecord != nullptr &&
                      static_cast<int32_t>(pointers->ExceptionRecord->ExceptionFlags) <= 0;
    if (sent) return vyn::platform::kContinueExecution;
    vyn::platform::ExitProcessNow(1);
  }
  const int32_t crash_number = crash_count_.fetch_add(1) + 1;
  if (crash_number >= 2) {
    const int32_t waits = crash_number < 1000 ? crash_number : 1000;
    vyn::platform::SignalSafeSleep(static_cast<uint32_t>(waits) * 2000);
  }
  std::atomic<uint32_t>& slot = dumping_threads_[(crash_number - 1) % kTrackedDumps];
  slot = thread_id;

  char detail[kTextSize];
  WriteDumpFile(pointers, crash_number, detail, sizeof detail);

  if (message_box_after_dump_) {
    char message[kTextSize];
    FormatSignalSafe(message, sizeof message, "%s\r\n\r\n", {Text(8)});
    const size_t used = std::strlen(message);
    FormatSignalSafe(message + used, sizeof message - used, "%s", {detail});
    if (ShowMessageBoxViaNewProcess(message, name_.c_str(), MB_ICONERROR) != VYN_STATUS_SUCCESS) {
      vyn::platform::ShowMessageBoxHere(message, name_.c_str(), MB_ICONERROR);
    }
  }
  if (end_process) vyn::platform::ExitProcessNow(1);
  slot = 0;
  return -1;
}

void CVYNMemoryDump::WriteDumpFile(EXCEPTION_POINTERS* pointers, int32_t crash_number, char* detail,
                                   size_t detail_size) {
  switch (vyn::platform::CheckDumpWriter()) {
    case vyn::platform::DumpWriterState::kMissing:
      FormatSignalSafe(detail, detail_size, "%s", {Text(7)});
      return;
    case vyn::platform::DumpWriterState::kUnusable:
      FormatSignalSafe(detail, detail_size, "%s", {Text(6)});
      return;
    case vyn::platform::DumpWriterState::kReady:
      break;
  }
  // The name is shortened, never the folder or the date, when the path
  // would not fit.
  const SYSTEMTIME now = vyn::platform::SignalSafeLocalTime();
  char suffix[64];
  FormatSignalSafe(
      suffix, sizeof suffix, " %04d-%02d-%02d %02d-%02d-%02d (%02d).dmp",
      {now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute, now.wSecond, crash_number});
  char path[kTextSize];
  const size_t folder_length =
      FormatSignalSafe(path, sizeof path, "%s/", {static_cast<const char*>(dump_directory_)});
  const size_t room = sizeof path - folder_length - std::strlen(suffix);
  const size_t name_length = name_.size() < room ? name_.size() : room - 1;
  std::memcpy(path + folder_length, name_.c_str(), name_length);
  path[folder_length + name_length] = '\0';
  FormatSignalSafe(path + folder_length + name_length, sizeof path - folder_length - name_length,
                   "%s", {suffix});

  int error = 0;
  const int file = vyn::platform::CreateDumpFile(path, &error);
  if (file < 0) {
    FormatSignalSafe(detail, detail_size, "%s (GetLastError() = 0x%08x):\r\n\r\n%s",
                     {Text(5), error, path});
    return;
  }
  const vyn::platform::DumpWriterResult result =
      vyn::platform::RunDumpWriter(file, pointers, dump_type_.load(), kDumpTimeoutMs);
  if (result.written) {
    FormatSignalSafe(detail, detail_size, "%s\r\n\r\n%s", {Text(3), path});
  } else {
    const size_t length =
        FormatSignalSafe(detail, detail_size, "%s (GetLastError() = 0x%08x):\r\n\r\n%s",
                         {Text(4), result.error, path});
    vyn::platform::ReplaceDumpFileContent(file, detail, static_cast<uint32_t>(length));
  }
  vyn::platform::CloseDumpFile(file);
}

// The texts travel to the host as separate arguments, not through a command
// line that would need quoting, so they are passed unchanged.
int32_t CVYNMemoryDump::ShowMessageBoxViaNewProcess(const char* text, const char* caption,
                                                    uint32_t type) {
  return vyn::platform::StartMessageBoxHost(text, caption, type) ? VYN_STATUS_SUCCESS
                                                                 : VYN_STATUS_UNSPECIFIC_ERROR;
}

int32_t CVYNMemoryDump::GetCrashCount() { return crash_count_.load(); }

CVYNMemoryDump* CVYNMemoryDump::GetPointer() { return this; }

int32_t CVYNMemoryDump::AddOutput(std::string text, _VYNSystemLogExEventType type) {
  return AddOutputStatic(std::move(text), type);
}

int32_t CVYNMemoryDump::AddOutputStatic(std::string text, _VYNSystemLogExEventType type) {
  return vyn::LogAddOutput(text, type, "", "CVYNMemoryDump", "");
}
