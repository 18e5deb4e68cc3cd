// Lays out and writes a whole minidump: the streams built in a FileImage,
// followed by the memory of the plan, read from the stopped process while
// the file is written (so a large dump never sits in memory as a whole).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/dump_writer/memory_plan.h"
#include "tools/dump_writer/module_list.h"
#include "tools/dump_writer/process_snapshot.h"
#include "tools/minidump/minidump_format.h"

namespace vyn::dump_writer {

struct DumpThread {
  uint32_t id = 0;
  std::string name;
  minidump::ContextAmd64 context{};
  ThreadMemory memory;
};

struct DumpContent {
  uint32_t dump_type = 0;
  std::vector<DumpThread> threads;
  std::vector<ModuleInfo> modules;
  MemoryPlan memory;
  bool has_exception = false;
  uint32_t exception_thread = 0;
  minidump::Exception exception{};
  // The faulting thread's context when that thread is not among `threads`.
  minidump::ContextAmd64 exception_context{};
};

// Writes the dump to `file`; false with `*error` (an errno value) when a
// write fails.
bool WriteMinidump(int file, const ProcessSnapshot& process, const DumpContent& content,
                   int* error);

}  // namespace vyn::dump_writer
