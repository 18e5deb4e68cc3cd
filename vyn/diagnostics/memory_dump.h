// CVYNMemoryDump: the process's crash-dump service.
//
// From Initialize on, every fatal condition of the process ends the same
// way: a minidump of the whole process is written to
//   CWD/Dumps/NAME YYYY-MM-DD HH-MM-SS (NN).dmp
// (CWD the directory that was current at Initialize, NAME the name given to
// Initialize, local time of the dump, NN the number of the crash), a message box may
// tell the user where it is, and the process ends at once with exit code 1.
// Fatal conditions on Linux are the signals SIGSEGV, SIGBUS, SIGFPE, SIGILL,
// SIGABRT (abort, failed assertions, std::terminate, the C library's own
// heap and buffer checks), SIGSYS and SIGTRAP; a stack overflow (the filter
// runs on an alternate signal stack); a call of a pure virtual function; a
// damaged heap found by the cyclic heap check; and an explicit request
// (CreateMemoryDump, the thread monitor's verdict on a hung thread).
//
// The dump is written by the helper program vyn-dump-writer, which the
// filter starts and waits for: it stops every thread of the process and
// writes threads with registers and stacks, modules with build ids, the
// exception, memory as the dump type asks, and the process's own records
// (maps, status, command line, auxiliary vector, environment). The user
// message is shown by the helper program vyn-rundll, which calls the
// exported ShowMessageBox of this library.
//
// Dump type: the platform's minidump flags (constants below). Honoured on
// Linux: MiniDumpWithDataSegs (writable data of every module),
// MiniDumpWithFullMemory (all readable memory; anonymous memory only where
// pages are present), MiniDumpWithHandleData (open file descriptors),
// MiniDumpFilterMemory (stack words that point nowhere useful are zeroed),
// MiniDumpWithIndirectlyReferencedMemory (memory around pointers found on
// the stacks), MiniDumpFilterModulePaths (module names without folders),
// MiniDumpWithProcessThreadData (each thread's control block and TLS),
// MiniDumpWithPrivateReadWriteMemory, MiniDumpWithFullMemoryInfo (the
// memory map as a memory-info list), MiniDumpWithThreadInfo (thread times),
// MiniDumpWithCodeSegs, MiniDumpWithPrivateWriteCopyMemory,
// MiniDumpWithModuleHeaders, MiniDumpWithoutOptionalData (leaves out the
// environment and the processor description). Other flags have no
// equivalent and change nothing. 0 writes stacks only.
//
// Settings: the section [VYNMemoryDump] of VYN.ini, read once by Initialize
// (keys DumpType, DEPPolicy, DumpAfterHeapCorruption, MessageBoxAfterDump,
// HeapCheckInterval; decimal values read as atoi does).
//
// Heap check: the thread "VYN Heap Check" validates every heap in the
// process-wide list of validating heaps (the library's own heap and those an
// application adds); the C library's allocator validates its chunks itself
// and aborts on damage, which ends in a dump as well.
//
// Not on Linux: data-execution prevention per process (SetDEPPolicy answers
// VYN_STATUS_NOT_FOUND), and a lock against other code replacing the signal
// handlers (LockTopLevelFilters answers VYN_STATUS_NOT_FOUND).
//
// The handlers are process-wide and never removed; once they are installed
// the library stays loaded until the process ends, so they never lead into
// unloaded code.
//
// Ownership: owns the heap-check thread; the helper programs are found when
// the handlers are installed.
// Thread-safety: Initialize and the setters belong to the application's
// controlling thread. The filter runs on whichever thread crashed, several
// at once if need be: it takes no lock and allocates nothing; the crash
// count separates concurrent crashes, and every crash after the first waits
// n x 2 s, so the first one ends the process. The dump type and the flags
// are atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "vyn/base/exception_pointers.h"
#include "vyn/base/export.h"
#include "vyn/core/log_event_type.h"
#include "vyn/threads/monitored_thread.h"

// The platform's minidump flags (MINIDUMP_TYPE).
inline constexpr uint32_t MiniDumpNormal = 0x00000000;
inline constexpr uint32_t MiniDumpWithDataSegs = 0x00000001;
inline constexpr uint32_t MiniDumpWithFullMemory = 0x00000002;
inline constexpr uint32_t MiniDumpWithHandleData = 0x00000004;
inline constexpr uint32_t MiniDumpFilterMemory = 0x00000008;
inline constexpr uint32_t MiniDumpScanMemory = 0x00000010;
inline constexpr uint32_t MiniDumpWithUnloadedModules = 0x00000020;
inline constexpr uint32_t MiniDumpWithIndirectlyReferencedMemory = 0x00000040;
inline constexpr uint32_t MiniDumpFilterModulePaths = 0x00000080;
inline constexpr uint32_t MiniDumpWithProcessThreadData = 0x00000100;
inline constexpr uint32_t MiniDumpWithPrivateReadWriteMemory = 0x00000200;
inline constexpr uint32_t MiniDumpWithoutOptionalData = 0x00000400;
inline constexpr uint32_t MiniDumpWithFullMemoryInfo = 0x00000800;
inline constexpr uint32_t MiniDumpWithThreadInfo = 0x00001000;
inline constexpr uint32_t MiniDumpWithCodeSegs = 0x00002000;
inline constexpr uint32_t MiniDumpWithPrivateWriteCopyMemory = 0x00010000;
inline constexpr uint32_t MiniDumpWithModuleHeaders = 0x00080000;

// Message-box styles (the platform's values).
inline constexpr uint32_t MB_OK = 0x00000000;
inline constexpr uint32_t MB_ICONERROR = 0x00000010;

class VYN_EXPORT CVYNMemoryDump {
 public:
  // The dump type until SetDumpType or the DumpType setting changes it:
  // writable module data and open file descriptors (the memory-scan flag has
  // no equivalent on Linux).
  static constexpr uint32_t kDefaultDumpType =
      MiniDumpWithDataSegs | MiniDumpWithHandleData | MiniDumpScanMemory;

  CVYNMemoryDump();
  virtual ~CVYNMemoryDump();
  CVYNMemoryDump(const CVYNMemoryDump&) = delete;
  CVYNMemoryDump& operator=(const CVYNMemoryDump&) = delete;

  // Installs the handlers and reads the settings; an empty name becomes
  // "VYN Memory Dump". A second call changes nothing. Inside the
  // message-box host nothing is installed.
  int32_t Initialize(std::string name);
  // Stops the heap check; the handlers stay.
  int32_t Terminate();
  // Ends the process through the dump procedure; VYN_STATUS_NOT_INITIALIZED
  // while the handlers are not installed.
  int32_t CreateMemoryDump();
  // The dump procedure. Does not return when `end_process` is true;
  // otherwise returns -1 after the dump. `pointers` may be null.
  int32_t TopLevelFilter(EXCEPTION_POINTERS* pointers, bool end_process);
  // With `show`, a message box tells the user where the dump was written
  // before the process ends; off until set here or by MessageBoxAfterDump.
  void SetShowMessageBoxAfterDump(bool show);

  // Settings, heap check and fault provocation.
  void SetDumpType(uint32_t dump_type);
  // VYN_STATUS_NOT_FOUND: Linux has no per-process policy.
  int32_t SetDEPPolicy(uint32_t flags);
  // Once on, stays on; false afterwards gives VYN_STATUS_UNSPECIFIC_ERROR.
  int32_t SetDumpAfterHeapCorruption(bool on);
  // Starts (interval > 0) or stops (0) the cyclic heap check; a stop waits
  // for the thread's end.
  int32_t SetCyclicHeapCheck(uint32_t interval_ms);
  // The body of the heap-check thread.
  int32_t RunHeapCheckThread();
  // Write to address 0 on the calling thread.
  int32_t ProvokeCrash();
  // The calling thread sleeps 1 ms at a time for ever.
  int32_t ProvokeHang();
  // Damages a block of the library's heap and returns.
  int32_t ProvokeHeapCorruption();

 private:
  int32_t SetTopLevelFilters();
  int32_t LockTopLevelFilters();
  int32_t GenerateFileNames();
  int32_t ApplyIniSettings();
  int32_t CheckHeapConsistency();
  int32_t ShowMessageBoxViaNewProcess(const char* text, const char* caption, uint32_t type);
  int32_t GetCrashCount();
  CVYNMemoryDump* GetPointer();
  int32_t AddOutput(std::string text, _VYNSystemLogExEventType type);
  static int32_t AddOutputStatic(std::string text, _VYNSystemLogExEventType type);

  static int32_t TopLevelFilterStatic(EXCEPTION_POINTERS* pointers);
  static void TopLevelPureVirtualFunctionCallHandlerRoutine();
  [[noreturn]] static void CrashFast(_VYNEndOfProcessReason reason = VYN_END_OF_PROCESS_REQUESTED);
  static bool IsRundll32();
  static int32_t HeapCheckThreadFunction(void* service);

  // Writes the dump file (or the failure text) and fills `detail` with the
  // message for the user. Signal-safe.
  void WriteDumpFile(EXCEPTION_POINTERS* pointers, int32_t crash_number, char* detail,
                     size_t detail_size);
  bool IsDumpingOnThisThread(uint32_t thread_id);

  static constexpr size_t kDirectorySize = 260;
  static constexpr size_t kTextSize = 1024;
  static constexpr int kTrackedDumps = 8;

  std::atomic<bool> initialized_{false};  // read by the heap-check thread
  std::string name_;
  char dump_directory_[kDirectorySize] = {};
  std::atomic<uint32_t> dump_type_{kDefaultDumpType};
  uint32_t dep_policy_ = 0;
  std::atomic<bool> dump_after_heap_corruption_{false};
  std::atomic<bool> message_box_after_dump_{false};
  std::atomic<bool> handlers_installed_{false};
  bool handlers_locked_ = false;
  std::atomic<int32_t> crash_count_{0};
  CVYNMonitoredThread heap_check_thread_;
  std::atomic<uint32_t> heap_check_interval_{0};
  // The threads running the dump procedure, by crash number, so that a
  // fault inside the procedure itself ends the process instead of waiting.
  std::atomic<uint32_t> dumping_threads_[kTrackedDumps] = {};
};

// The process's one CVYNMemoryDump, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNMemoryDump& GetVYNMemoryDump();

// The entry point that the message-box host (vyn-rundll) calls: shows the
// text, caption and type given as arguments 2, 3 and 4 of the host's command
// line and returns when the user has closed the box. The host's own
// arguments are not used.
extern "C" VYN_EXPORT void ShowMessageBox(void* window, void* instance, const char* command_line,
                                          int show);
