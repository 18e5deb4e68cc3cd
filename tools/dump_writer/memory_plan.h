// Which memory of the process goes into the dump, chosen by the dump type:
// stacks always, and as the flags ask the modules' data, code and headers,
// thread control blocks, private memory, memory that stack words point to,
// or all of it.
//
// The plan has two lists: ranges that the 32-bit memory list describes
// (stacks and the modest extras, placed early in the file) and, for large
// dumps, ranges for the 64-bit memory list at the end of the file. Both are
// sorted and disjoint, and no range of one overlaps the other.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/dump_writer/module_list.h"
#include "tools/dump_writer/process_snapshot.h"

namespace vyn::dump_writer {

struct MemoryRange {
  uint64_t start = 0;
  uint64_t end = 0;
  uint64_t size() const { return end - start; }
};

struct MemoryPlan {
  std::vector<MemoryRange> listed;  // the 32-bit memory list
  std::vector<MemoryRange> bulk;    // the 64-bit memory list
};

// The stack memory of a thread worth writing: from just below the stack
// pointer (the area a function may use without moving it) up to the end of
// its mapping, at most 256 KiB. For a stack pointer in the guard page of an
// overflowed stack, the stack above it. Empty when nothing readable is near.
MemoryRange StackRange(const ProcessSnapshot& process, uint64_t stack_pointer);

struct ThreadMemory {
  MemoryRange stack;
  uint64_t thread_pointer = 0;  // fs base: control block and TLS
};

MemoryPlan PlanMemory(uint32_t dump_type, const ProcessSnapshot& process,
                      const std::vector<ModuleInfo>& modules,
                      const std::vector<ThreadMemory>& threads);

// With MiniDumpFilterMemory, the stack words that survive: those pointing
// into a module or into the stack itself (return addresses, frame links).
bool IsKeptStackWord(uint64_t word, const MemoryRange& stack,
                     const std::vector<ModuleInfo>& modules);

// Sorts and merges overlapping or touching ranges.
std::vector<MemoryRange> Normalize(std::vector<MemoryRange> ranges);

}  // namespace vyn::dump_writer
