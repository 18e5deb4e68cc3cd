#include "tools/minidump/minidump_reader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "vyn/platform/scoped_descriptor.h"
#include "vyn/platform/system_error.h"

namespace vyn::minidump {
namespace {

constexpr uint32_t kMostEntries = 1u << 20;
constexpr uint32_t kLongestString = 1u << 16;

class File {
 public:
  explicit File(const std::string& path) : descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat info {};
    if (descriptor_.IsValid() && fstat(descriptor_.get(), &info) == 0)
      size_ = static_cast<uint64_t>(info.st_size);
  }

  bool IsOpen() const { return descriptor_.IsValid(); }
  uint64_t size() const { return size_; }

  bool Read(uint64_t offset, void* buffer, uint64_t length) const {
    if (offset > size_ || length > size_ - offset) return false;
    auto* bytes = static_cast<char*>(buffer);
    while (length > 0) {
      const ssize_t got = pread(descriptor_.get(), bytes, length, static_cast<off_t>(offset));
      if (got < 0 && errno == EINTR) continue;
      if (got <= 0) return false;
      bytes += got;
      offset += static_cast<uint64_t>(got);
      length -= static_cast<uint64_t>(got);
    }
    return true;
  }
  template <typename T>
  bool ReadObject(uint64_t offset, T* value) const {
    return Read(offset, value, sizeof *value);
  }

  // A length-prefixed UTF-16 string, as UTF-8.
  bool ReadString(uint64_t offset, std::string* text) const {
    uint32_t length = 0;
    if (!ReadObject(offset, &length) || length > kLongestString || length % 2 != 0) return false;
    std::vector<uint16_t> units(length / 2);
    if (!Read(offset + sizeof length, units.data(), length)) return false;
    text->clear();
    for (size_t i = 0; i < units.size(); ++i) {
      uint32_t code = units[i];
      if (code >= 0xD800 && code < 0xDC00 && i + 1 < units.size() && units[i + 1] >= 0xDC00 &&
          units[i + 1] < 0xE000) {
        code = 0x10000 + ((code - 0xD800) << 10) + (units[++i] - 0xDC00);
      }
      if (code < 0x80) {
        *text += static_cast<char>(code);
      } else if (code < 0x800) {
        *text += static_cast<char>(0xC0 | (code >> 6));
        *text += static_cast<char>(0x80 | (code & 0x3F));
      } else if (code < 0x10000) {
        *text += static_cast<char>(0xE0 | (code >> 12));
        *text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        *text += static_cast<char>(0x80 | (code & 0x3F));
      } else {
        *text += static_cast<char>(0xF0 | (code >> 18));
        *text += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        *text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        *text += static_cast<char>(0x80 | (code & 0x3F));
      }
    }
    return true;
  }

 private:
  vyn::platform::ScopedDescriptor descriptor_;
  uint64_t size_ = 0;
};

// A list stream: a 32-bit count followed by `count` entries of T.
template <typename T>
bool ReadList(const File& file, const Location& location, std::vector<T>* entries) {
  uint32_t count = 0;
  if (location.data_size < sizeof count || !file.ReadObject(location.rva, &count)) return false;
  if (count > kMostEntries || sizeof count + uint64_t{count} * sizeof(T) > location.data_size) {
    return false;
  }
  entries->resize(count);
  return count == 0 || file.Read(location.rva + sizeof count, entries->data(), count * sizeof(T));
}

bool ReadThreads(const File& file, const Location& location, DumpSummary* summary) {
  std::vector<Thread> threads;
  if (!ReadList(file, location, &threads)) return false;
  for (const Thread& thread : threads) {
    DumpThread read;
    read.id = thread.thread_id;
    read.stack_start = thread.stack.start;
    read.stack_size = thread.stack.memory.data_size;
    if (thread.context.data_size >= sizeof(ContextAmd64)) {
      read.has_context = file.ReadObject(thread.context.rva, &read.context);
    }
    summary->threads.push_back(read);
  }
  return true;
}

bool ReadThreadNames(const File& file, const Location& location, DumpSummary* summary) {
  std::vector<ThreadName> names;
  if (!ReadList(file, location, &names)) return false;
  for (const ThreadName& name : names) {
    for (DumpThread& thread : summary->threads) {
      if (thread.id == name.thread_id && !file.ReadString(name.name_rva, &thread.name)) {
        return false;
      }
    }
  }
  return true;
}

bool ReadModules(const File& file, const Location& location, DumpSummary* summary) {
  std::vector<Module> modules;
  if (!ReadList(file, location, &modules)) return false;
  for (const Module& module : modules) {
    DumpModule read;
    read.base = module.base;
    read.size = module.size;
    if (!file.ReadString(module.name_rva, &read.name)) return false;
    uint32_t signature = 0;
    if (module.cv_record.data_size > sizeof signature && module.cv_record.data_size <= 1024 &&
        file.ReadObject(module.cv_record.rva, &signature) && signature == kCodeViewElfSignature) {
      read.build_id.resize(module.cv_record.data_size - sizeof signature);
      if (!file.Read(module.cv_record.rva + sizeof signature, read.build_id.data(),
                     read.build_id.size())) {
        return false;
      }
    }
    summary->modules.push_back(read);
  }
  return true;
}

bool ReadMemory64(const File& file, const Location& location, DumpSummary* summary) {
  uint64_t head[2] = {};
  if (location.data_size < sizeof head || !file.Read(location.rva, head, sizeof head)) return false;
  if (head[0] > kMostEntries ||
      sizeof head + head[0] * sizeof(Memory64Descriptor) > location.data_size) {
    return false;
  }
  std::vector<Memory64Descriptor> ranges(head[0]);
  if (!ranges.empty() &&
      !file.Read(location.rva + sizeof head, ranges.data(), ranges.size() * sizeof ranges[0])) {
    return false;
  }
  summary->memory64_ranges = head[0];
  uint64_t total = 0;
  for (const Memory64Descriptor& range : ranges) total += range.size;
  if (head[1] > file.size() || total > file.size() - head[1]) return false;
  summary->memory64_bytes = total;
  return true;
}

bool ReadStream(const File& file, const Directory& entry, DumpSummary* summary) {
  const Location& location = entry.location;
  switch (entry.stream_type) {
    case kThreadListStream:
      return ReadThreads(file, location, summary);
    case kModuleListStream:
      return ReadModules(file, location, summary);
    case kMemoryListStream: {
      std::vector<MemoryDescriptor> ranges;
      if (!ReadList(file, location, &ranges)) return false;
      summary->memory_ranges = static_cast<uint32_t>(ranges.size());
      for (const MemoryDescriptor& range : ranges) {
        if (uint64_t{range.memory.rva} + range.memory.data_size > file.size()) return false;
        summary->memory_bytes += range.memory.data_size;
      }
      return true;
    }
    case kMemory64ListStream:
      return ReadMemory64(file, location, summary);
    case kExceptionStream: {
      ExceptionStream exception{};
      if (location.data_size < sizeof exception || !file.ReadObject(location.rva, &exception)) {
        return false;
      }
      summary->has_exception = true;
      summary->exception_thread = exception.thread_id;
      summary->exception = exception.exception;
      return true;
    }
    case kSystemInfoStream:
      if (location.data_size < sizeof summary->system ||
          !file.ReadObject(location.rva, &summary->system)) {
        return false;
      }
      summary->has_system_info = true;
      return file.ReadString(summary->system.csd_version_rva, &summary->system_description);
    case kMiscInfoStream: {
      MiscInfo misc{};
      if (location.data_size < sizeof misc || !file.ReadObject(location.rva, &misc)) return false;
      if ((misc.flags1 & kMiscProcessId) != 0) summary->process_id = misc.process_id;
      return true;
    }
    default:
      return uint64_t{location.rva} + location.data_size <= file.size();
  }
}

std::string Hex(const std::vector<uint8_t>& bytes) {
  std::string text;
  char digits[3];
  for (const uint8_t byte : bytes) {
    std::snprintf(digits, sizeof digits, "%02x", byte);
    text += digits;
  }
  return text;
}

const char* ReasonText(uint64_t reason) {
  switch (reason) {
    case 1:
      return "requested";
    case 2:
      return "a thread has stopped to respond";
    case 3:
      return "heap corruption";
    case 4:
      return "pure virtual function call";
    default:
      return "unknown reason";
  }
}

}  // namespace

bool DumpSummary::HasStream(uint32_t type) const {
  return std::find(stream_types.begin(), stream_types.end(), type) != stream_types.end();
}

bool ReadMinidump(const std::string& path, DumpSummary* summary, std::string* error) {
  *summary = DumpSummary{};
  const File file(path);
  if (!file.IsOpen()) {
    *error = "cannot open " + path + ": " + vyn::platform::SystemErrorText(errno);
    return false;
  }
  Header header{};
  if (!file.ReadObject(0, &header) || header.signature != kSignature ||
      (header.version & 0xFFFF) != kVersion) {
    *error = path + " is not a minidump";
    return false;
  }
  if (header.stream_count > 4096) {
    *error = path + ": implausible number of streams";
    return false;
  }
  std::vector<Directory> directory(header.stream_count);
  if (!directory.empty() && !file.Read(header.stream_directory_rva, directory.data(),
                                       directory.size() * sizeof(Directory))) {
    *error = path + ": the stream directory lies outside the file";
    return false;
  }
  summary->flags = header.flags;
  summary->time_date_stamp = header.time_date_stamp;
  // Thread names refer to threads: read the thread list first.
  std::stable_sort(directory.begin(), directory.end(), [](const Directory& a, const Directory& b) {
    return a.stream_type == kThreadListStream && b.stream_type != kThreadListStream;
  });
  for (const Directory& entry : directory) {
    summary->stream_types.push_back(entry.stream_type);
    const bool read = entry.stream_type == kThreadNamesStream
                          ? ReadThreadNames(file, entry.location, summary)
                          : ReadStream(file, entry, summary);
    if (!read) {
      char text[96];
      std::snprintf(text, sizeof text, ": stream of type 0x%x is damaged", entry.stream_type);
      *error = path + text;
      return false;
    }
  }
  return true;
}

std::string SignalName(uint32_t signal) {
  static const char* const kNames[] = {
      nullptr,     "SIGHUP",  "SIGINT",    "SIGQUIT", "SIGILL",   "SIGTRAP", "SIGABRT", "SIGBUS",
      "SIGFPE",    "SIGKILL", "SIGUSR1",   "SIGSEGV", "SIGUSR2",  "SIGPIPE", "SIGALRM", "SIGTERM",
      "SIGSTKFLT", "SIGCHLD", "SIGCONT",   "SIGSTOP", "SIGTSTP",  "SIGTTIN", "SIGTTOU", "SIGURG",
      "SIGXCPU",   "SIGXFSZ", "SIGVTALRM", "SIGPROF", "SIGWINCH", "SIGIO",   "SIGPWR",  "SIGSYS"};
  if (signal < sizeof kNames / sizeof kNames[0] && kNames[signal] != nullptr) return kNames[signal];
  return std::to_string(signal);
}

std::string FormatSummary(const DumpSummary& summary) {
  std::string out;
  char line[512];
  std::snprintf(line, sizeof line, "Dump type: 0x%08" PRIx64 "\n", summary.flags);
  out += line;
  if (summary.has_system_info) {
    std::snprintf(line, sizeof line, "System: %s, %u processors\n",
                  summary.system_description.c_str(), summary.system.processor_count);
    out += line;
  }
  if (summary.process_id != 0) {
    std::snprintf(line, sizeof line, "Process: %u\n", summary.process_id);
    out += line;
  }
  if (summary.has_exception) {
    const Exception& e = summary.exception;
    std::snprintf(line, sizeof line,
                  "Exception: %s (code %d) on thread %u, address 0x%" PRIx64 "\n",
                  SignalName(e.code).c_str(), static_cast<int32_t>(e.flags),
                  summary.exception_thread, e.address);
    out += line;
    if (e.parameter_count >= 2 && e.parameters[0] == 0xC0000025) {
      std::snprintf(line, sizeof line, "  end of process (0xC0000025): %s\n",
                    ReasonText(e.parameters[1]));
      out += line;
    }
  } else {
    out += "Exception: none\n";
  }
  std::snprintf(line, sizeof line, "Threads: %zu\n", summary.threads.size());
  out += line;
  for (const DumpThread& thread : summary.threads) {
    std::snprintf(
        line, sizeof line, "  %u \"%s\" pc 0x%" PRIx64 " sp 0x%" PRIx64 ", %u stack bytes%s\n",
        thread.id, thread.name.c_str(), thread.context.rip, thread.context.rsp, thread.stack_size,
        summary.has_exception && thread.id == summary.exception_thread ? " (crashed)" : "");
    out += line;
  }
  std::snprintf(line, sizeof line, "Modules: %zu\n", summary.modules.size());
  out += line;
  for (const DumpModule& module : summary.modules) {
    std::snprintf(line, sizeof line, "  0x%016" PRIx64 " %10u %s%s%s\n", module.base, module.size,
                  module.name.c_str(), module.build_id.empty() ? "" : " build id ",
                  Hex(module.build_id).c_str());
    out += line;
  }
  std::snprintf(line, sizeof line, "Memory: %u ranges, %" PRIu64 " bytes", summary.memory_ranges,
                summary.memory_bytes);
  out += line;
  if (summary.memory64_ranges != 0) {
    std::snprintf(line, sizeof line, "; full memory: %" PRIu64 " ranges, %" PRIu64 " bytes",
                  summary.memory64_ranges, summary.memory64_bytes);
    out += line;
  }
  out += "\n";
  return out;
}

}  // namespace vyn::minidump
