#include "tools/dump_writer/process_streams.h"

#include <cpuid.h>
#include <sched.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string>

namespace vyn::dump_writer {
namespace {

// File time (100 ns units since 1601) of a Unix time in seconds.
constexpr uint64_t kUnixEpochAsFileTime = 116444736000000000ull;

std::string ReadFile(const std::string& path) {
  std::string content;
  FILE* file = std::fopen(path.c_str(), "re");
  if (file == nullptr) return content;
  char chunk[4096];
  size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0) content.append(chunk, got);
  std::fclose(file);
  return content;
}

// Fields of a /proc/.../stat line after the command name, counted from 1 as
// in proc(5) (field 3 is the state).
std::vector<std::string> StatFields(const std::string& stat) {
  std::vector<std::string> fields;
  const size_t name_end = stat.rfind(')');
  if (name_end == std::string::npos) return fields;
  fields.resize(2);  // pid and command name are not needed
  std::istringstream rest(stat.substr(name_end + 1));
  std::string field;
  while (rest >> field) fields.push_back(field);
  return fields;
}

uint64_t Field(const std::vector<std::string>& fields, size_t number) {
  return number - 1 < fields.size() ? std::strtoull(fields[number - 1].c_str(), nullptr, 10) : 0;
}

uint64_t BootTime() {
  const std::string stat = ReadFile("/proc/stat");
  const size_t at = stat.find("\nbtime ");
  return at == std::string::npos ? 0 : std::strtoull(stat.c_str() + at + 7, nullptr, 10);
}

uint32_t Protection(const Mapping& mapping) {
  if (!mapping.readable && !mapping.writable && !mapping.executable) return 0x01;  // no access
  const bool copy_on_write = mapping.writable && !mapping.shared && mapping.IsFile();
  if (mapping.executable) {
    if (mapping.writable) return copy_on_write ? 0x80 : 0x40;
    return mapping.readable ? 0x20 : 0x10;
  }
  if (mapping.writable) return copy_on_write ? 0x08 : 0x04;
  return 0x02;
}

}  // namespace

minidump::Location AddSystemInfo(FileImage& image) {
  minidump::SystemInfo info{};
  info.processor_architecture = minidump::kArchitectureAmd64;
  const long processors = sysconf(_SC_NPROCESSORS_ONLN);
  info.processor_count = static_cast<uint8_t>(processors > 255 ? 255 : processors);
  info.platform_id = minidump::kPlatformLinux;
  unsigned eax = 0;
  unsigned ebx = 0;
  unsigned ecx = 0;
  unsigned edx = 0;
  if (__get_cpuid(0, &eax, &ebx, &ecx, &edx) != 0) {
    info.vendor_id[0] = ebx;
    info.vendor_id[1] = edx;
    info.vendor_id[2] = ecx;
  }
  if (__get_cpuid(1, &eax, &ebx, &ecx, &edx) != 0) {
    info.version_information = eax;
    info.feature_information = edx;
    const unsigned family = (eax >> 8) & 0xF;
    const unsigned model = (eax >> 4) & 0xF;
    info.processor_level =
        static_cast<uint16_t>(family == 0xF ? family + ((eax >> 20) & 0xFF) : family);
    const unsigned full_model =
        family == 0x6 || family == 0xF ? model | ((eax >> 12) & 0xF0) : model;
    info.processor_revision = static_cast<uint16_t>((full_model << 8) | (eax & 0xF));
  }
  utsname names{};
  std::string description = "Linux";
  if (uname(&names) == 0) {
    char* end = nullptr;
    info.major_version = static_cast<uint32_t>(std::strtoul(names.release, &end, 10));
    if (*end == '.') info.minor_version = static_cast<uint32_t>(std::strtoul(end + 1, &end, 10));
    if (*end == '.') info.build_number = static_cast<uint32_t>(std::strtoul(end + 1, &end, 10));
    description = std::string("Linux ") + names.release + " " + names.version + " " + names.machine;
  }
  const uint32_t offset = image.Reserve(sizeof info);
  info.csd_version_rva = image.AddString(description);
  image.Put(offset, info);
  return {static_cast<uint32_t>(sizeof info), offset};
}

minidump::Location AddMiscInfo(FileImage& image, const ProcessSnapshot& process) {
  minidump::MiscInfo info{};
  info.size_of_info = sizeof info;
  info.flags1 = minidump::kMiscProcessId;
  info.process_id = static_cast<uint32_t>(process.pid());
  const std::vector<std::string> fields = StatFields(process.ReadProcFile("stat"));
  const long ticks = sysconf(_SC_CLK_TCK);
  if (fields.size() >= 22 && ticks > 0) {
    info.flags1 |= minidump::kMiscProcessTimes;
    info.process_user_time =
        static_cast<uint32_t>(Field(fields, 14) / static_cast<uint64_t>(ticks));
    info.process_kernel_time =
        static_cast<uint32_t>(Field(fields, 15) / static_cast<uint64_t>(ticks));
    info.process_create_time =
        static_cast<uint32_t>(BootTime() + Field(fields, 22) / static_cast<uint64_t>(ticks));
  }
  return {static_cast<uint32_t>(sizeof info), image.AddObject(info)};
}

minidump::Location AddHandleData(FileImage& image, const ProcessSnapshot& process) {
  std::vector<uint64_t> descriptors;
  std::error_code error;
  const std::string folder = "/proc/" + std::to_string(process.pid()) + "/fd";
  for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
    descriptors.push_back(std::strtoull(item.path().filename().c_str(), nullptr, 10));
  }
  std::sort(descriptors.begin(), descriptors.end());
  minidump::HandleDataHeader header{};
  header.size_of_header = sizeof header;
  header.size_of_descriptor = sizeof(minidump::HandleDescriptor);
  header.descriptor_count = static_cast<uint32_t>(descriptors.size());
  const uint32_t offset = image.AddObject(header);
  const uint32_t table = image.Reserve(descriptors.size() * sizeof(minidump::HandleDescriptor));
  for (size_t i = 0; i < descriptors.size(); ++i) {
    const std::string number = std::to_string(descriptors[i]);
    const std::string target = process.ReadProcLink("fd/" + number);
    const std::string info = process.ReadProcFile("fdinfo/" + number);
    const size_t flags_at = info.find("flags:");
    std::string type = "File";
    if (target.rfind("socket:", 0) == 0) type = "Socket";
    if (target.rfind("pipe:", 0) == 0) type = "Pipe";
    if (target.rfind("anon_inode:", 0) == 0) type = "Anonymous";
    if (target.rfind("/dev/", 0) == 0) type = "Device";
    minidump::HandleDescriptor descriptor{};
    descriptor.handle = descriptors[i];
    descriptor.type_name_rva = image.AddString(type);
    descriptor.object_name_rva = image.AddString(target);
    if (flags_at != std::string::npos) {
      descriptor.granted_access =
          static_cast<uint32_t>(std::strtoul(info.c_str() + flags_at + 6, nullptr, 8));
    }
    descriptor.handle_count = 1;
    image.Put(static_cast<uint32_t>(table + i * sizeof descriptor), descriptor);
  }
  return {static_cast<uint32_t>(image.size() - offset), offset};
}

minidump::Location AddThreadInfo(FileImage& image, const ProcessSnapshot& process,
                                 const std::vector<uint32_t>& thread_ids) {
  minidump::ThreadInfoListHeader header{};
  header.size_of_header = sizeof header;
  header.size_of_entry = sizeof(minidump::ThreadInfo);
  header.entry_count = static_cast<uint32_t>(thread_ids.size());
  const uint32_t offset = image.AddObject(header);
  const long ticks = sysconf(_SC_CLK_TCK);
  const uint64_t hundreds_per_tick = ticks > 0 ? 10000000ull / static_cast<uint64_t>(ticks) : 0;
  const uint64_t boot = BootTime();
  for (const uint32_t id : thread_ids) {
    minidump::ThreadInfo info{};
    info.thread_id = id;
    const std::vector<std::string> fields =
        StatFields(process.ReadProcFile("task/" + std::to_string(id) + "/stat"));
    info.user_time = Field(fields, 14) * hundreds_per_tick;
    info.kernel_time = Field(fields, 15) * hundreds_per_tick;
    info.create_time =
        kUnixEpochAsFileTime + boot * 10000000ull + Field(fields, 22) * hundreds_per_tick;
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(static_cast<pid_t>(id), sizeof set, &set) == 0) {
      for (int cpu = 0; cpu < 64; ++cpu) {
        if (CPU_ISSET(cpu, &set)) info.affinity |= 1ull << cpu;
      }
    }
    image.AddObject(info);
  }
  return {static_cast<uint32_t>(image.size() - offset), offset};
}

minidump::Location AddMemoryInfo(FileImage& image, const ProcessSnapshot& process,
                                 const std::vector<ModuleInfo>& modules) {
  minidump::MemoryInfoListHeader header{};
  header.size_of_header = sizeof header;
  header.size_of_entry = sizeof(minidump::MemoryInfo);
  header.entry_count = process.mappings().size();
  const uint32_t offset = image.AddObject(header);
  for (const Mapping& mapping : process.mappings()) {
    minidump::MemoryInfo info{};
    info.base_address = mapping.start;
    info.allocation_base = mapping.start;
    info.region_size = mapping.size();
    info.state = minidump::kMemCommit;
    info.protect = Protection(mapping);
    info.allocation_protect = info.protect;
    info.type = mapping.IsFile() ? minidump::kMemMapped : minidump::kMemPrivate;
    for (const ModuleInfo& module : modules) {
      if (module.Contains(mapping.start)) {
        info.type = minidump::kMemImage;
        info.allocation_base = module.base;
      }
    }
    image.AddObject(info);
  }
  return {static_cast<uint32_t>(image.size() - offset), offset};
}

}  // namespace vyn::dump_writer
