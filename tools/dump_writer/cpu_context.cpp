#include "tools/dump_writer/cpu_context.h"

#include <sys/ucontext.h>

#include <cstring>

namespace vyn::dump_writer {

#if !defined(__x86_64__)
#error "The dump writer knows the x86-64 processor context only"
#endif

minidump::ContextAmd64 ContextFromRegisters(const user_regs_struct& registers,
                                            const user_fpregs_struct& floating_point) {
  minidump::ContextAmd64 context{};
  context.context_flags = minidump::kContextFull;
  context.cs = static_cast<uint16_t>(registers.cs);
  context.ds = static_cast<uint16_t>(registers.ds);
  context.es = static_cast<uint16_t>(registers.es);
  context.fs = static_cast<uint16_t>(registers.fs);
  context.gs = static_cast<uint16_t>(registers.gs);
  context.ss = static_cast<uint16_t>(registers.ss);
  context.eflags = static_cast<uint32_t>(registers.eflags);
  context.rax = registers.rax;
  context.rcx = registers.rcx;
  context.rdx = registers.rdx;
  context.rbx = registers.rbx;
  context.rsp = registers.rsp;
  context.rbp = registers.rbp;
  context.rsi = registers.rsi;
  context.rdi = registers.rdi;
  context.r8 = registers.r8;
  context.r9 = registers.r9;
  context.r10 = registers.r10;
  context.r11 = registers.r11;
  context.r12 = registers.r12;
  context.r13 = registers.r13;
  context.r14 = registers.r14;
  context.r15 = registers.r15;
  context.rip = registers.rip;
  static_assert(sizeof floating_point == sizeof context.fxsave);
  std::memcpy(context.fxsave, &floating_point, sizeof context.fxsave);
  context.mx_csr = floating_point.mxcsr;
  return context;
}

minidump::ContextAmd64 ContextFromSignalContext(const void* signal_context,
                                                const void* floating_point) {
  ucontext_t saved{};
  std::memcpy(&saved, signal_context, sizeof saved);
  const greg_t* g = saved.uc_mcontext.gregs;
  minidump::ContextAmd64 context{};
  context.context_flags = minidump::kContextFull;
  // CSGSFS packs cs, gs, fs and (on current kernels) ss in 16-bit fields.
  const auto segments = static_cast<uint64_t>(g[REG_CSGSFS]);
  context.cs = static_cast<uint16_t>(segments);
  context.gs = static_cast<uint16_t>(segments >> 16);
  context.fs = static_cast<uint16_t>(segments >> 32);
  context.ss = static_cast<uint16_t>(segments >> 48);
  context.eflags = static_cast<uint32_t>(g[REG_EFL]);
  context.rax = static_cast<uint64_t>(g[REG_RAX]);
  context.rcx = static_cast<uint64_t>(g[REG_RCX]);
  context.rdx = static_cast<uint64_t>(g[REG_RDX]);
  context.rbx = static_cast<uint64_t>(g[REG_RBX]);
  context.rsp = static_cast<uint64_t>(g[REG_RSP]);
  context.rbp = static_cast<uint64_t>(g[REG_RBP]);
  context.rsi = static_cast<uint64_t>(g[REG_RSI]);
  context.rdi = static_cast<uint64_t>(g[REG_RDI]);
  context.r8 = static_cast<uint64_t>(g[REG_R8]);
  context.r9 = static_cast<uint64_t>(g[REG_R9]);
  context.r10 = static_cast<uint64_t>(g[REG_R10]);
  context.r11 = static_cast<uint64_t>(g[REG_R11]);
  context.r12 = static_cast<uint64_t>(g[REG_R12]);
  context.r13 = static_cast<uint64_t>(g[REG_R13]);
  context.r14 = static_cast<uint64_t>(g[REG_R14]);
  context.r15 = static_cast<uint64_t>(g[REG_R15]);
  context.rip = static_cast<uint64_t>(g[REG_RIP]);
  if (floating_point != nullptr) {
    std::memcpy(context.fxsave, floating_point, sizeof context.fxsave);
    std::memcpy(&context.mx_csr, context.fxsave + 24, sizeof context.mx_csr);
  } else {
    context.context_flags &= ~(minidump::kContextFloatingPoint & ~minidump::kContextAmd64);
  }
  return context;
}

}  // namespace vyn::dump_writer
