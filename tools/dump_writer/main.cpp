// vyn-dump-writer: writes a minidump of a crashed process. The crash
// handlers of the library start it from the crashing thread:
//
//   vyn-dump-writer PID RECORD-ADDRESS DUMP-FD REPORT-FD
//
// It reads the crash record at RECORD-ADDRESS in the process PID, stops
// every thread of that process, writes the dump into the inherited
// descriptor DUMP-FD, releases the crashed thread and reports the result to
// it as a DumpWriterReport on REPORT-FD, then releases the other threads. The exit code is 0 when
// the dump was written, 1 otherwise.
#include <signal.h>
#include <sys/ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tools/dump_writer/cpu_context.h"
#include "tools/dump_writer/memory_plan.h"
#include "tools/dump_writer/minidump_file_writer.h"
#include "tools/dump_writer/module_list.h"
#include "tools/dump_writer/process_snapshot.h"
#include "vyn/platform/crash_record.h"

namespace {

using vyn::dump_writer::DumpContent;
using vyn::dump_writer::DumpThread;
using vyn::dump_writer::ProcessSnapshot;
using vyn::platform::CrashRecord;

constexpr int kStopTimeoutMs = 3000;

bool ParseNumber(const char* text, unsigned long long* value) {
  if (text == nullptr || *text == '\0') return false;
  char* end = nullptr;
  errno = 0;
  *value = std::strtoull(text, &end, 0);
  return errno == 0 && *end == '\0';
}

void Report(int descriptor, bool written, int error) {
  const vyn::platform::DumpWriterReport report{written ? 1u : 0u, static_cast<uint32_t>(error)};
  const ssize_t sent = write(descriptor, &report, sizeof report);
  static_cast<void>(sent);
}

// The faulting thread's context as the kernel saved it on delivering the
// signal (its registers now only show the signal handler waiting for us).
bool ReadSignalContext(const ProcessSnapshot& process, uint64_t address,
                       vyn::minidump::ContextAmd64* context) {
  ucontext_t saved{};
  if (process.ReadMemory(address, &saved, sizeof saved) != sizeof saved) return false;
  uint8_t floating_point[512];
  const auto fpregs = reinterpret_cast<uintptr_t>(saved.uc_mcontext.fpregs);
  const bool has_fp =
      fpregs != 0 &&
      process.ReadMemory(fpregs, floating_point, sizeof floating_point) == sizeof floating_point;
  *context = vyn::dump_writer::ContextFromSignalContext(&saved, has_fp ? floating_point : nullptr);
  return true;
}

int Run(pid_t pid, uint64_t record_address, int dump_file, int report) {
  int error = 0;
  ProcessSnapshot process(pid);
  CrashRecord record{};
  if (process.ReadMemory(record_address, &record, sizeof record) != sizeof record ||
      record.magic != vyn::platform::kCrashRecordMagic ||
      record.version != vyn::platform::kCrashRecordVersion) {
    Report(report, false, EINVAL);
    return 1;
  }
  if (!process.Suspend(kStopTimeoutMs, &error)) {
    Report(report, false, error);
    return 1;
  }
  if (!process.ReadMappings()) {
    Report(report, false, errno != 0 ? errno : EIO);
    return 1;
  }
  DumpContent content;
  content.dump_type = record.dump_type;
  content.modules = vyn::dump_writer::FindModules(process);
  vyn::minidump::ContextAmd64 fault_context{};
  const bool has_fault_context = record.context_address != 0 &&
                                 ReadSignalContext(process, record.context_address, &fault_context);
  std::vector<vyn::dump_writer::ThreadMemory> memories;
  for (const vyn::dump_writer::ThreadState& state : process.threads()) {
    DumpThread thread;
    thread.id = state.id;
    thread.name = state.name;
    thread.context =
        has_fault_context && state.id == record.thread_id
            ? fault_context
            : vyn::dump_writer::ContextFromRegisters(state.registers, state.floating_point);
    thread.memory.stack = vyn::dump_writer::StackRange(process, thread.context.rsp);
    thread.memory.thread_pointer = state.registers.fs_base;
    memories.push_back(thread.memory);
    content.threads.push_back(thread);
  }
  if (record.has_exception != 0) {
    content.has_exception = true;
    content.exception_thread = record.thread_id;
    content.exception.code = record.exception_code;
    content.exception.flags = record.exception_flags;
    content.exception.address = record.exception_address;
    content.exception.parameter_count = std::min<uint32_t>(record.number_parameters, 15);
    for (uint32_t i = 0; i < content.exception.parameter_count; ++i) {
      content.exception.parameters[i] = record.exception_information[i];
    }
    content.exception_context = fault_context;
  }
  content.memory =
      vyn::dump_writer::PlanMemory(record.dump_type, process, content.modules, memories);
  const bool written = vyn::dump_writer::WriteMinidump(dump_file, process, content, &error);
  // The crashed thread waits for the report; the process usually ends right
  // after it, so the other threads are released last.
  process.ResumeThread(record.thread_id);
  Report(report, written, error);
  process.Resume();
  return written ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  unsigned long long pid = 0;
  unsigned long long record = 0;
  unsigned long long dump_file = 0;
  unsigned long long report = 0;
  if (argc != 5 || !ParseNumber(argv[1], &pid) || !ParseNumber(argv[2], &record) ||
      !ParseNumber(argv[3], &dump_file) || !ParseNumber(argv[4], &report)) {
    std::fprintf(stderr, "usage: %s PID RECORD-ADDRESS DUMP-FD REPORT-FD\n", argv[0]);
    return 2;
  }
  // A full disk or a file-size limit must end in a report, not in a signal.
  signal(SIGXFSZ, SIG_IGN);
  signal(SIGPIPE, SIG_IGN);
  return Run(static_cast<pid_t>(pid), record, static_cast<int>(dump_file),
             static_cast<int>(report));
}
