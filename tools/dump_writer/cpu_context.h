// Processor contexts in the minidump's x86-64 layout, from the registers
// that ptrace reports for a stopped thread or from the context the kernel
// saved when it delivered a signal.
#pragma once

#include <sys/user.h>

#include "tools/minidump/minidump_format.h"

namespace vyn::dump_writer {

minidump::ContextAmd64 ContextFromRegisters(const user_regs_struct& registers,
                                            const user_fpregs_struct& floating_point);

// `signal_context` is the raw ucontext_t and `floating_point` the 512-byte
// FXSAVE image its fpregs pointer leads to (null when there is none).
minidump::ContextAmd64 ContextFromSignalContext(const void* signal_context,
                                                const void* floating_point);

// The stack pointer and thread pointer (fs base) of a context.
inline uint64_t StackPointerOf(const minidump::ContextAmd64& context) { return context.rsp; }

}  // namespace vyn::dump_writer
