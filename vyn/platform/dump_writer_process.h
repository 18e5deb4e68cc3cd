// Starting the dump writer program from inside a signal handler, and the few
// file operations the dump procedure needs there.
//
// Everything that needs memory or locks (finding the program, the local time
// zone's rules) happens in PrepareDumpWriter, which the crash service calls
// when it installs its handlers. The functions marked signal-safe allocate
// nothing and take no lock, so they work while the heap is corrupt or a lock
// of the crashed thread is held.
//
// The writer runs as a child process: it is created with a raw fork (no
// fork handlers run, no allocator lock is taken), is allowed to trace this
// process (PR_SET_PTRACER, for systems that restrict tracing), stops every
// thread, writes the dump into an inherited descriptor and reports its
// result through a pipe. A writer that does not finish in time is killed.
//
// Thread-safety: PrepareDumpWriter once, before any crash; the rest from any
// thread, also from several crashing threads at once.
#pragma once

#include <cstdint>

#include "vyn/base/exception_pointers.h"
#include "vyn/platform/system_time.h"

namespace vyn::platform {

// The name of the writer program.
inline constexpr const char* kDumpWriterProgram = "vyn-dump-writer";

// Finds the writer program and caches what the signal-safe functions need.
// False when the program cannot be found (CheckDumpWriter then reports it).
bool PrepareDumpWriter();

enum class DumpWriterState {
  kReady,
  kMissing,   // no writer program was found, or it is gone
  kUnusable,  // the file is there but cannot be run
};

// Signal-safe.
DumpWriterState CheckDumpWriter();

struct DumpWriterResult {
  bool written = false;
  int error = 0;  // errno-style code of the failure
};

// Runs the writer for this process into `file` and waits for it, at most
// `timeout_ms`. `pointers` may be null (a dump without exception record).
// Signal-safe.
DumpWriterResult RunDumpWriter(int file, const EXCEPTION_POINTERS* pointers, uint32_t dump_type,
                               uint32_t timeout_ms);

// Creates `path` for writing, replacing a file of that name: the old file
// is removed first, so that a process still writing it (another program
// that crashed in the same second) keeps its own file and the two dumps
// never mix. -1 and `*error` on failure. Signal-safe.
int CreateDumpFile(const char* path, int* error);
// Replaces the file's content by `text`. Signal-safe.
bool ReplaceDumpFileContent(int file, const char* text, uint32_t size);
// Signal-safe.
void CloseDumpFile(int file);

// The local time now, from the rules of the time zone cached by
// PrepareDumpWriter (so a change of daylight-saving time in the next year
// is applied). Signal-safe.
SYSTEMTIME SignalSafeLocalTime();

// The kernel's id of the calling thread. Signal-safe.
uint32_t SignalSafeThreadId();

// Sleeps, resuming after interruptions. Signal-safe.
void SignalSafeSleep(uint32_t milliseconds);

// Ends the process at once with `code`: no exit handlers, no destructors,
// no flushing of buffers. Signal-safe.
[[noreturn]] void ExitProcessNow(int code);

}  // namespace vyn::platform
