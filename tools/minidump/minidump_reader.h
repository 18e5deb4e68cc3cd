// Our reader of the minidumps the dump writer produces: what a person needs
// to see first (threads, modules, the exception, how much memory is in), and
// what the tests compare with an independent debugger.
//
// Every offset and count in the file is checked against the file's size, so
// a damaged or hostile file gives an error, never a read outside it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/minidump/minidump_format.h"

namespace vyn::minidump {

struct DumpThread {
  uint32_t id = 0;
  std::string name;
  uint64_t stack_start = 0;
  uint32_t stack_size = 0;
  bool has_context = false;
  ContextAmd64 context{};
};

struct DumpModule {
  uint64_t base = 0;
  uint32_t size = 0;
  std::string name;
  std::vector<uint8_t> build_id;
};

struct DumpSummary {
  uint64_t flags = 0;  // the dump type
  uint32_t time_date_stamp = 0;
  std::vector<uint32_t> stream_types;
  bool has_system_info = false;
  SystemInfo system{};
  std::string system_description;
  uint32_t process_id = 0;
  std::vector<DumpThread> threads;
  std::vector<DumpModule> modules;
  bool has_exception = false;
  uint32_t exception_thread = 0;
  Exception exception{};
  uint32_t memory_ranges = 0;
  uint64_t memory_bytes = 0;
  uint64_t memory64_ranges = 0;
  uint64_t memory64_bytes = 0;

  bool HasStream(uint32_t type) const;
};

// False, with a message in `error`, for a file that cannot be read or is not
// a well-formed minidump.
bool ReadMinidump(const std::string& path, DumpSummary* summary, std::string* error);

// "SIGSEGV" and so on; the number in decimal for others.
std::string SignalName(uint32_t signal);

// The summary as the `vyn dump info` command prints it.
std::string FormatSummary(const DumpSummary& summary);

}  // namespace vyn::minidump
