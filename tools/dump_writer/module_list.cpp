#include "tools/dump_writer/module_list.h"

#include <elf.h>

#include <cstring>

namespace vyn::dump_writer {
namespace {

constexpr uint32_t kMostProgramHeaders = 512;
constexpr uint64_t kLargestNoteSegment = uint64_t{64} * 1024;

bool IsElfAt(const ProcessSnapshot& process, uint64_t address) {
  unsigned char magic[SELFMAG];
  return process.ReadMemory(address, magic, SELFMAG) == SELFMAG &&
         std::memcmp(magic, ELFMAG, SELFMAG) == 0;
}

// The GNU build id from the note segments of the object loaded at `base`.
std::vector<uint8_t> ReadBuildId(const ProcessSnapshot& process, uint64_t base) {
  Elf64_Ehdr header{};
  if (process.ReadMemory(base, &header, sizeof header) != sizeof header) return {};
  if (header.e_ident[EI_CLASS] != ELFCLASS64 || header.e_phentsize != sizeof(Elf64_Phdr) ||
      header.e_phnum == 0 || header.e_phnum > kMostProgramHeaders) {
    return {};
  }
  std::vector<Elf64_Phdr> segments(header.e_phnum);
  const size_t wanted = segments.size() * sizeof(Elf64_Phdr);
  if (process.ReadMemory(base + header.e_phoff, segments.data(), wanted) != wanted) return {};
  // Segment addresses are relative to the lowest loaded one, which lies at
  // `base` (the mapping of file offset 0).
  const Elf64_Phdr* lowest = nullptr;
  for (const Elf64_Phdr& segment : segments) {
    if (segment.p_type == PT_LOAD && (lowest == nullptr || segment.p_vaddr < lowest->p_vaddr)) {
      lowest = &segment;
    }
  }
  if (lowest == nullptr) return {};
  const uint64_t bias = base - (lowest->p_vaddr - lowest->p_offset);
  for (const Elf64_Phdr& segment : segments) {
    if (segment.p_type != PT_NOTE || segment.p_memsz > kLargestNoteSegment) continue;
    std::vector<uint8_t> notes(segment.p_memsz);
    if (process.ReadMemory(bias + segment.p_vaddr, notes.data(), notes.size()) != notes.size()) {
      continue;
    }
    size_t at = 0;
    while (at + sizeof(Elf64_Nhdr) <= notes.size()) {
      Elf64_Nhdr note{};
      std::memcpy(&note, notes.data() + at, sizeof note);
      const size_t name_at = at + sizeof note;
      const size_t description_at = name_at + ((note.n_namesz + 3) & ~3u);
      const size_t next = description_at + ((note.n_descsz + 3) & ~3u);
      if (next > notes.size() || next <= at) break;
      if (note.n_type == NT_GNU_BUILD_ID && note.n_namesz == 4 &&
          std::memcmp(notes.data() + name_at, "GNU", 4) == 0) {
        return {notes.begin() + static_cast<std::ptrdiff_t>(description_at),
                notes.begin() + static_cast<std::ptrdiff_t>(description_at + note.n_descsz)};
      }
      at = next;
    }
  }
  return {};
}

}  // namespace

std::vector<ModuleInfo> FindModules(const ProcessSnapshot& process) {
  std::vector<ModuleInfo> modules;
  uint64_t current_inode = 0;
  for (const Mapping& mapping : process.mappings()) {
    const bool continues =
        !modules.empty() && mapping.start >= modules.back().end &&
        ((mapping.IsFile() && mapping.inode == current_inode &&
          mapping.path == modules.back().path) ||
         // the zero-filled data right behind the last mapping
         (mapping.path.empty() && mapping.start == modules.back().end && mapping.writable));
    if (mapping.IsFile() && mapping.offset == 0 && mapping.readable &&
        IsElfAt(process, mapping.start)) {
      ModuleInfo module;
      module.base = mapping.start;
      module.end = mapping.end;
      module.path = mapping.path;
      module.build_id = ReadBuildId(process, mapping.start);
      modules.push_back(module);
      current_inode = mapping.inode;
    } else if (continues) {
      modules.back().end = mapping.end;
    } else {
      current_inode = 0;
    }
  }
  return modules;
}

}  // namespace vyn::dump_writer
