#include "tools/dump_writer/memory_plan.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "vyn/diagnostics/memory_dump.h"

namespace vyn::dump_writer {
namespace {

constexpr uint64_t kRedZone = 128;
constexpr uint64_t kLargestStack = uint64_t{256} * 1024;
constexpr uint64_t kThreadDataReach = 4096;
constexpr uint64_t kReferencedReach = 256;
constexpr size_t kMostReferencedRanges = 4096;
// Mappings this large are address-space reservations (sanitizer shadows,
// allocator arenas), not memory a program filled.
constexpr uint64_t kLargestMapping = 64ull << 30;
// What the 32-bit list may hold before extras move to the 64-bit list.
constexpr uint64_t kListedLimit = 3ull << 30;
constexpr uint64_t kPage = 4096;

bool Has(uint32_t dump_type, uint32_t flag) { return (dump_type & flag) != 0; }

bool IsSpecial(const Mapping& mapping) {
  return mapping.path == "[vvar]" || mapping.path == "[vsyscall]" ||
         mapping.path.rfind("/dev/", 0) == 0;
}

void AddClipped(const ProcessSnapshot& process, uint64_t start, uint64_t end,
                std::vector<MemoryRange>* ranges) {
  const Mapping* mapping = process.FindMapping(start);
  if (mapping == nullptr || !mapping->readable || IsSpecial(*mapping)) return;
  ranges->push_back({std::max(start, mapping->start), std::min(end, mapping->end)});
}

// Present (or swapped-out) pages of an anonymous mapping: pages never
// touched read as zeros and are left out.
void AddPresentPages(const ProcessSnapshot& process, const Mapping& mapping,
                     std::vector<MemoryRange>* ranges) {
  const std::string path = "/proc/" + std::to_string(process.pid()) + "/pagemap";
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) {
    ranges->push_back({mapping.start, mapping.end});
    return;
  }
  std::vector<uint64_t> entries(4096);
  uint64_t page = mapping.start;
  while (page < mapping.end) {
    const size_t wanted = std::min<uint64_t>(entries.size(), (mapping.end - page) / kPage);
    const ssize_t got = pread(file, entries.data(), wanted * sizeof(uint64_t),
                              static_cast<off_t>(page / kPage * sizeof(uint64_t)));
    if (got <= 0) {
      ranges->push_back({page, mapping.end});
      break;
    }
    const size_t count = static_cast<size_t>(got) / sizeof(uint64_t);
    for (size_t i = 0; i < count; ++i, page += kPage) {
      constexpr uint64_t kPresentOrSwapped = 3ull << 62;
      if ((entries[i] & kPresentOrSwapped) != 0) ranges->push_back({page, page + kPage});
    }
  }
  close(file);
}

std::vector<MemoryRange> Subtract(const std::vector<MemoryRange>& from,
                                  const std::vector<MemoryRange>& holes) {
  std::vector<MemoryRange> rest;
  for (MemoryRange range : from) {
    for (const MemoryRange& hole : holes) {
      if (hole.end <= range.start || hole.start >= range.end) continue;
      if (hole.start > range.start) rest.push_back({range.start, hole.start});
      range.start = std::max(range.start, hole.end);
      if (range.start >= range.end) break;
    }
    if (range.start < range.end) rest.push_back(range);
  }
  return rest;
}

void AddReferencedMemory(const ProcessSnapshot& process, const std::vector<ThreadMemory>& threads,
                         std::vector<MemoryRange>* ranges) {
  size_t added = 0;
  for (const ThreadMemory& thread : threads) {
    std::vector<uint64_t> words(thread.stack.size() / sizeof(uint64_t));
    const size_t got =
        process.ReadMemory(thread.stack.start, words.data(), words.size() * sizeof(uint64_t));
    for (size_t i = 0; i < got / sizeof(uint64_t) && added < kMostReferencedRanges; ++i) {
      const uint64_t word = words[i];
      const Mapping* mapping = process.FindMapping(word);
      if (mapping == nullptr || !mapping->writable || mapping->executable) continue;
      if (word >= thread.stack.start && word < thread.stack.end) continue;
      AddClipped(process, word > kReferencedReach ? word - kReferencedReach : 0,
                 word + kReferencedReach, ranges);
      ++added;
    }
  }
}

}  // namespace

MemoryRange StackRange(const ProcessSnapshot& process, uint64_t stack_pointer) {
  const uint64_t low = stack_pointer > kRedZone ? (stack_pointer - kRedZone) & ~15ull : 0;
  const Mapping* mapping = process.FindMapping(low);
  if (mapping == nullptr || !mapping->readable) {
    // Overflowed stacks point into the guard page below: take the first
    // readable mapping right above it.
    const Mapping* above = nullptr;
    for (const Mapping& candidate : process.mappings()) {
      if (candidate.start > low && candidate.readable) {
        above = &candidate;
        break;
      }
    }
    if (above == nullptr || above->start - low > 2 * kPage + kRedZone) return {};
    return {above->start, std::min(above->end, above->start + kLargestStack)};
  }
  return {low, std::min(mapping->end, low + kLargestStack)};
}

bool IsKeptStackWord(uint64_t word, const MemoryRange& stack,
                     const std::vector<ModuleInfo>& modules) {
  if (word >= stack.start && word < stack.end) return true;
  return std::any_of(modules.begin(), modules.end(),
                     [word](const ModuleInfo& module) { return module.Contains(word); });
}

std::vector<MemoryRange> Normalize(std::vector<MemoryRange> ranges) {
  ranges.erase(std::remove_if(ranges.begin(), ranges.end(),
                              [](const MemoryRange& r) { return r.start >= r.end; }),
               ranges.end());
  std::sort(ranges.begin(), ranges.end(),
            [](const MemoryRange& a, const MemoryRange& b) { return a.start < b.start; });
  std::vector<MemoryRange> merged;
  for (const MemoryRange& range : ranges) {
    if (!merged.empty() && range.start <= merged.back().end) {
      merged.back().end = std::max(merged.back().end, range.end);
    } else {
      merged.push_back(range);
    }
  }
  return merged;
}

MemoryPlan PlanMemory(uint32_t dump_type, const ProcessSnapshot& process,
                      const std::vector<ModuleInfo>& modules,
                      const std::vector<ThreadMemory>& threads) {
  std::vector<MemoryRange> stacks;
  stacks.reserve(threads.size());
  for (const ThreadMemory& thread : threads) stacks.push_back(thread.stack);
  stacks = Normalize(stacks);

  std::vector<MemoryRange> extras;
  if (Has(dump_type, MiniDumpWithFullMemory)) {
    for (const Mapping& mapping : process.mappings()) {
      if (!mapping.readable || IsSpecial(mapping) || mapping.size() > kLargestMapping) continue;
      if (mapping.IsFile() || mapping.shared) {
        extras.push_back({mapping.start, mapping.end});
      } else {
        AddPresentPages(process, mapping, &extras);
      }
    }
    return {stacks, Subtract(Normalize(extras), stacks)};
  }

  const bool optional = !Has(dump_type, MiniDumpWithoutOptionalData);
  for (const Mapping& mapping : process.mappings()) {
    if (!mapping.readable || IsSpecial(mapping) || mapping.size() > kLargestMapping) continue;
    const bool in_module = std::any_of(modules.begin(), modules.end(), [&](const ModuleInfo& m) {
      return m.Contains(mapping.start);
    });
    const bool private_writable = !mapping.shared && mapping.writable;
    if ((Has(dump_type, MiniDumpWithDataSegs) && in_module && mapping.writable) ||
        (Has(dump_type, MiniDumpWithCodeSegs) && in_module && mapping.executable) ||
        (optional && Has(dump_type, MiniDumpWithPrivateReadWriteMemory) && private_writable) ||
        (optional && Has(dump_type, MiniDumpWithPrivateWriteCopyMemory) && private_writable &&
         mapping.IsFile())) {
      extras.push_back({mapping.start, mapping.end});
    }
  }
  if (Has(dump_type, MiniDumpWithModuleHeaders)) {
    for (const ModuleInfo& module : modules)
      AddClipped(process, module.base, module.base + kPage, &extras);
  }
  if (optional && Has(dump_type, MiniDumpWithProcessThreadData)) {
    for (const ThreadMemory& thread : threads) {
      if (thread.thread_pointer < kThreadDataReach) continue;
      AddClipped(process, thread.thread_pointer - kThreadDataReach,
                 thread.thread_pointer + kThreadDataReach, &extras);
    }
  }
  if (optional && Has(dump_type, MiniDumpWithIndirectlyReferencedMemory)) {
    AddReferencedMemory(process, threads, &extras);
  }
  extras = Subtract(Normalize(extras), stacks);
  uint64_t total = 0;
  for (const MemoryRange& range : extras) total += range.size();
  if (total > kListedLimit) return {stacks, extras};
  extras.insert(extras.end(), stacks.begin(), stacks.end());
  return {Normalize(extras), {}};
}

}  // namespace vyn::dump_writer
