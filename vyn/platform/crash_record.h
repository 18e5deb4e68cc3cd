// The record that a crashing process hands to the dump writer program. The
// crashing thread fills it in its own frame and passes its address; the
// writer reads it from the crashed process's memory, so the layout is fixed
// (plain fields, no pointers into the writer's address space) and versioned.
#pragma once

#include <cstdint>

namespace vyn::platform {

inline constexpr uint32_t kCrashRecordMagic = 0x52434E56;  // "VNCR"
inline constexpr uint32_t kCrashRecordVersion = 1;

struct CrashRecord {
  uint32_t magic;
  uint32_t version;
  uint32_t thread_id;  // the thread that runs the dump procedure
  uint32_t dump_type;  // the minidump flags that choose what goes in
  uint32_t has_exception;
  uint32_t exception_code;
  uint32_t exception_flags;
  uint32_t number_parameters;
  uint64_t exception_address;
  uint64_t exception_information[15];
  // The thread's ucontext_t at the fault, in the crashed process; 0 when the
  // dump was asked for without a fault (then the thread's own registers at
  // the time of the dump are written).
  uint64_t context_address;
};

// What the writer reports back through its result pipe, just before it ends.
struct DumpWriterReport {
  uint32_t written;  // 1 when the dump is complete
  uint32_t error;    // errno of the failing step otherwise
};

}  // namespace vyn::platform
