// The ELF objects mapped into a process (program, shared libraries), with
// the address range each covers and its build id, read from the process's
// memory (the file on disk may have been replaced since it was loaded).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/dump_writer/process_snapshot.h"

namespace vyn::dump_writer {

struct ModuleInfo {
  uint64_t base = 0;
  uint64_t end = 0;  // end of its last mapping, its zero-filled data included
  std::string path;
  std::vector<uint8_t> build_id;  // empty when the object has none

  bool Contains(uint64_t address) const { return address >= base && address < end; }
};

std::vector<ModuleInfo> FindModules(const ProcessSnapshot& process);

}  // namespace vyn::dump_writer
