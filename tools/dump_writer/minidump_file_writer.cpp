#include "tools/dump_writer/minidump_file_writer.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

#include "tools/dump_writer/file_image.h"
#include "tools/dump_writer/process_streams.h"
#include "vyn/diagnostics/memory_dump.h"

namespace vyn::dump_writer {
namespace {

constexpr size_t kChunk = 1 << 20;

class Output {
 public:
  explicit Output(int file) : file_(file) {}
  bool Write(const void* data, size_t size) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    while (size > 0 && error_ == 0) {
      const ssize_t written = write(file_, bytes, size);
      if (written < 0 && errno == EINTR) continue;
      if (written <= 0) {
        error_ = written < 0 ? errno : ENOSPC;
        break;
      }
      bytes += written;
      size -= static_cast<size_t>(written);
    }
    return error_ == 0;
  }
  int error() const { return error_; }

 private:
  int file_;
  int error_ = 0;
};

bool Has(uint32_t dump_type, uint32_t flag) { return (dump_type & flag) != 0; }

minidump::Location AddRaw(FileImage& image, const std::string& content) {
  return {static_cast<uint32_t>(content.size()), image.Add(content.data(), content.size())};
}

std::string ModuleName(const ModuleInfo& module, uint32_t dump_type) {
  if (!Has(dump_type, MiniDumpFilterModulePaths)) return module.path;
  const size_t slash = module.path.rfind('/');
  return slash == std::string::npos ? module.path : module.path.substr(slash + 1);
}

minidump::Location AddModules(FileImage& image, const DumpContent& content) {
  const auto count = static_cast<uint32_t>(content.modules.size());
  const uint32_t offset = image.Reserve(sizeof count + count * sizeof(minidump::Module));
  image.Put(offset, count);
  for (uint32_t i = 0; i < count; ++i) {
    const ModuleInfo& info = content.modules[i];
    minidump::Module module{};
    module.base = info.base;
    module.size = static_cast<uint32_t>(std::min<uint64_t>(info.end - info.base, UINT32_MAX));
    module.version_info.signature = minidump::kFixedFileInfoSignature;
    module.version_info.struct_version = 0x10000;
    module.name_rva = image.AddString(ModuleName(info, content.dump_type));
    if (!info.build_id.empty()) {
      std::vector<uint8_t> record(sizeof(uint32_t) + info.build_id.size());
      const uint32_t signature = minidump::kCodeViewElfSignature;
      std::memcpy(record.data(), &signature, sizeof signature);
      std::memcpy(record.data() + sizeof signature, info.build_id.data(), info.build_id.size());
      module.cv_record = {static_cast<uint32_t>(record.size()),
                          image.Add(record.data(), record.size())};
    }
    image.Put(static_cast<uint32_t>(offset + sizeof count + i * sizeof module), module);
  }
  return {static_cast<uint32_t>(sizeof count + count * sizeof(minidump::Module)), offset};
}

minidump::Location AddThreadNames(FileImage& image, const DumpContent& content) {
  const auto count = static_cast<uint32_t>(content.threads.size());
  const size_t size = sizeof count + count * sizeof(minidump::ThreadName);
  const uint32_t offset = image.Reserve(size);
  image.Put(offset, count);
  for (uint32_t i = 0; i < count; ++i) {
    minidump::ThreadName name{};
    name.thread_id = content.threads[i].id;
    name.name_rva = image.AddString(content.threads[i].name);
    image.Put(static_cast<uint32_t>(offset + sizeof count + i * sizeof name), name);
  }
  return {static_cast<uint32_t>(size), offset};
}

// Streams memory of `range` into the file, zero-filling pages that cannot
// be read and, with MiniDumpFilterMemory, stack words that point nowhere.
bool WriteRange(Output& out, const ProcessSnapshot& process, const DumpContent& content,
                const MemoryRange& range, std::vector<uint8_t>& buffer) {
  const bool filter = Has(content.dump_type, MiniDumpFilterMemory);
  for (uint64_t at = range.start; at < range.end;) {
    const size_t size = static_cast<size_t>(std::min<uint64_t>(kChunk, range.end - at));
    size_t got = 0;
    while (got < size) {
      got += process.ReadMemory(at + got, buffer.data() + got, size - got);
      if (got >= size) break;
      // An unreadable page: zeros, and on behind it.
      const size_t page_end = std::min(size, static_cast<size_t>(((at + got) | 4095) + 1 - at));
      std::memset(buffer.data() + got, 0, page_end - got);
      got = page_end;
    }
    if (filter) {
      for (const DumpThread& thread : content.threads) {
        const MemoryRange& stack = thread.memory.stack;
        const uint64_t from = std::max(stack.start, at);
        const uint64_t to = std::min(stack.end, at + size);
        for (uint64_t word = (from + 7) & ~7ull; word + 8 <= to; word += 8) {
          uint64_t value = 0;
          std::memcpy(&value, buffer.data() + (word - at), sizeof value);
          if (!IsKeptStackWord(value, stack, content.modules)) {
            std::memset(buffer.data() + (word - at), 0, sizeof value);
          }
        }
      }
    }
    if (!out.Write(buffer.data(), size)) return false;
    at += size;
  }
  return true;
}

}  // namespace

bool WriteMinidump(int file, const ProcessSnapshot& process, const DumpContent& content,
                   int* error) {
  const uint32_t type = content.dump_type;
  const bool optional = !Has(type, MiniDumpWithoutOptionalData);
  const bool full = !content.memory.bulk.empty();
  std::vector<std::pair<uint32_t, std::string>> raw_streams = {
      {minidump::kLinuxProcStatusStream, process.ReadProcFile("status")},
      {minidump::kLinuxCmdLineStream, process.ReadProcFile("cmdline")},
      {minidump::kLinuxAuxvStream, process.ReadProcFile("auxv")},
      {minidump::kLinuxMapsStream, process.ReadProcFile("maps")},
  };
  if (optional) {
    raw_streams.emplace_back(minidump::kLinuxCpuInfoStream, process.ReadProcFile("../cpuinfo"));
    std::string release = process.ReadProcFile("root/etc/os-release");
    if (release.empty()) release = process.ReadProcFile("root/usr/lib/os-release");
    raw_streams.emplace_back(minidump::kLinuxLsbReleaseStream, release);
    raw_streams.emplace_back(minidump::kLinuxEnvironStream, process.ReadProcFile("environ"));
  }
  // System info, misc info, threads, thread names, modules, memory list.
  const uint32_t stream_count = 6 + (content.has_exception ? 1 : 0) + (full ? 1 : 0) +
                                (Has(type, MiniDumpWithHandleData) ? 1 : 0) +
                                (Has(type, MiniDumpWithFullMemoryInfo) ? 1 : 0) +
                                (Has(type, MiniDumpWithThreadInfo) ? 1 : 0) +
                                static_cast<uint32_t>(raw_streams.size());

  FileImage image;
  const uint32_t header_at = image.Reserve(sizeof(minidump::Header));
  const uint32_t directory_at = image.Reserve(stream_count * sizeof(minidump::Directory));
  uint32_t streams = 0;
  auto add_stream = [&](uint32_t stream_type, minidump::Location location) {
    image.Put(static_cast<uint32_t>(directory_at + streams++ * sizeof(minidump::Directory)),
              minidump::Directory{stream_type, location});
  };

  add_stream(minidump::kSystemInfoStream, AddSystemInfo(image));
  add_stream(minidump::kMiscInfoStream, AddMiscInfo(image, process));

  // Threads: contexts now, stack locations once the memory's offsets are known.
  const auto thread_count = static_cast<uint32_t>(content.threads.size());
  const uint32_t threads_at =
      image.Reserve(sizeof thread_count + thread_count * sizeof(minidump::Thread));
  image.Put(threads_at, thread_count);
  add_stream(minidump::kThreadListStream,
             {static_cast<uint32_t>(sizeof thread_count + thread_count * sizeof(minidump::Thread)),
              threads_at});
  std::vector<minidump::Thread> thread_records(thread_count);
  minidump::Location exception_context{};
  for (uint32_t i = 0; i < thread_count; ++i) {
    const DumpThread& thread = content.threads[i];
    minidump::Thread& record = thread_records[i];
    record.thread_id = thread.id;
    record.teb = thread.memory.thread_pointer;
    record.context = {sizeof(minidump::ContextAmd64), image.AddObject(thread.context, 16)};
    record.stack.start = thread.memory.stack.start;
    if (content.has_exception && thread.id == content.exception_thread) {
      exception_context = record.context;
    }
  }
  add_stream(minidump::kThreadNamesStream, AddThreadNames(image, content));
  add_stream(minidump::kModuleListStream, AddModules(image, content));

  if (content.has_exception) {
    if (exception_context.rva == 0) {
      exception_context = {sizeof(minidump::ContextAmd64),
                           image.AddObject(content.exception_context, 16)};
    }
    minidump::ExceptionStream exception{};
    exception.thread_id = content.exception_thread;
    exception.exception = content.exception;
    exception.context = exception_context;
    add_stream(minidump::kExceptionStream, {sizeof exception, image.AddObject(exception)});
  }
  if (Has(type, MiniDumpWithHandleData)) {
    add_stream(minidump::kHandleDataStream, AddHandleData(image, process));
  }
  if (Has(type, MiniDumpWithThreadInfo)) {
    std::vector<uint32_t> ids;
    for (const DumpThread& thread : content.threads) ids.push_back(thread.id);
    add_stream(minidump::kThreadInfoListStream, AddThreadInfo(image, process, ids));
  }
  if (Has(type, MiniDumpWithFullMemoryInfo)) {
    add_stream(minidump::kMemoryInfoListStream, AddMemoryInfo(image, process, content.modules));
  }
  for (const auto& [stream_type, text] : raw_streams) add_stream(stream_type, AddRaw(image, text));

  const auto listed_count = static_cast<uint32_t>(content.memory.listed.size());
  const uint32_t listed_at =
      image.Reserve(sizeof listed_count + listed_count * sizeof(minidump::MemoryDescriptor));
  add_stream(minidump::kMemoryListStream,
             {static_cast<uint32_t>(sizeof listed_count +
                                    listed_count * sizeof(minidump::MemoryDescriptor)),
              listed_at});
  const uint64_t bulk_count = content.memory.bulk.size();
  uint32_t bulk_at = 0;
  if (full) {
    const size_t size = 2 * sizeof(uint64_t) + bulk_count * sizeof(minidump::Memory64Descriptor);
    bulk_at = image.Reserve(size, 8);
    add_stream(minidump::kMemory64ListStream, {static_cast<uint32_t>(size), bulk_at});
  }

  // Memory follows the image: fill in every offset that points into it.
  const uint64_t memory_at = (image.size() + 15) / 16 * 16;
  uint64_t offset = memory_at;
  image.Put(listed_at, listed_count);
  for (uint32_t i = 0; i < listed_count; ++i) {
    const MemoryRange& range = content.memory.listed[i];
    const minidump::MemoryDescriptor descriptor{
        range.start, {static_cast<uint32_t>(range.size()), static_cast<uint32_t>(offset)}};
    image.Put(static_cast<uint32_t>(listed_at + sizeof listed_count + i * sizeof descriptor),
              descriptor);
    for (uint32_t t = 0; t < thread_count; ++t) {
      const MemoryRange& stack = content.threads[t].memory.stack;
      if (stack.start >= range.start && stack.end <= range.end && stack.start < stack.end) {
        thread_records[t].stack.memory = {
            static_cast<uint32_t>(stack.size()),
            static_cast<uint32_t>(offset + stack.start - range.start)};
      }
    }
    offset += range.size();
  }
  for (uint32_t t = 0; t < thread_count; ++t) {
    image.Put(
        static_cast<uint32_t>(threads_at + sizeof thread_count + t * sizeof(minidump::Thread)),
        thread_records[t]);
  }
  if (full) {
    image.Put(bulk_at, bulk_count);
    image.Put(static_cast<uint32_t>(bulk_at + sizeof(uint64_t)), offset);
    for (uint64_t i = 0; i < bulk_count; ++i) {
      const MemoryRange& range = content.memory.bulk[i];
      image.Put(static_cast<uint32_t>(bulk_at + 2 * sizeof(uint64_t) +
                                      i * sizeof(minidump::Memory64Descriptor)),
                minidump::Memory64Descriptor{range.start, range.size()});
    }
  }
  minidump::Header header{};
  header.signature = minidump::kSignature;
  header.version = minidump::kVersion;
  header.stream_count = streams;
  header.stream_directory_rva = directory_at;
  header.time_date_stamp = static_cast<uint32_t>(std::time(nullptr));
  header.flags = type;
  image.Put(header_at, header);

  Output out(file);
  out.Write(image.bytes().data(), image.size());
  static const uint8_t kZeros[16] = {};
  out.Write(kZeros, memory_at - image.size());
  std::vector<uint8_t> buffer(kChunk);
  for (const MemoryRange& range : content.memory.listed) {
    if (!WriteRange(out, process, content, range, buffer)) break;
  }
  for (const MemoryRange& range : content.memory.bulk) {
    if (!WriteRange(out, process, content, range, buffer)) break;
  }
  *error = out.error();
  return out.error() == 0;
}

}  // namespace vyn::dump_writer
