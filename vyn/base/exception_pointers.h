// The record of a fatal condition as the crash filter receives it, under the
// names applications know from other platforms.
//
// On Linux a fatal condition is a signal: ExceptionCode holds the signal
// number, ExceptionFlags its si_code, ExceptionAddress the faulting address
// where the signal carries one (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP from
// a breakpoint), and ContextRecord points to the ucontext_t that the kernel
// saved for the interrupted thread. The end-of-process request
// (vyn/platform/crash.h) arrives as SIGTRAP with two parameters: the code
// 0xC0000025 and the reason below.
//
// Ownership: the filter receives pointers into the signal handler's frame;
// they are valid while the filter runs and must not be kept.
#pragma once

#include <cstdint>

// The most parameters a record carries (ExceptionInformation's length).
inline constexpr uint32_t EXCEPTION_MAXIMUM_PARAMETERS = 15;

// The code of the non-continuable end-of-process exception.
inline constexpr uint32_t VYN_END_OF_PROCESS_CODE = 0xC0000025;

// Why the process is being ended on purpose (the second parameter of the
// end-of-process record).
enum _VYNEndOfProcessReason : uint32_t {
  VYN_END_OF_PROCESS_REQUESTED = 1,        // CreateMemoryDump, an application's request
  VYN_END_OF_PROCESS_HUNG_THREAD = 2,      // the thread monitor found a hung thread
  VYN_END_OF_PROCESS_HEAP_CORRUPTION = 3,  // the heap check found a damaged heap
  VYN_END_OF_PROCESS_PURE_VIRTUAL = 4,     // a pure virtual function was called
};

// What went wrong: one record per fatal condition.
struct EXCEPTION_RECORD {
  uint32_t ExceptionCode;             // the signal number
  uint32_t ExceptionFlags;            // the signal's si_code (0 or below: sent by a process)
  EXCEPTION_RECORD* ExceptionRecord;  // always null: signals do not nest records
  void* ExceptionAddress;             // the faulting address, or null when the signal has none
  uint32_t NumberParameters;  // used entries of ExceptionInformation: 0, or 2 for an end of process
  uintptr_t ExceptionInformation[EXCEPTION_MAXIMUM_PARAMETERS];  // code, then reason
};

// The pair the crash filter receives: the record and the saved context.
struct EXCEPTION_POINTERS {
  EXCEPTION_RECORD* ExceptionRecord;  // the library's signal handler always sets it
  void* ContextRecord;                // the interrupted thread's ucontext_t
};
