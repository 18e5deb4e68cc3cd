// The minidump file format as this project writes and reads it: the common
// streams of the format, and the Linux flavour that crash reporters use
// (processor context of x86-64, module identities from ELF build ids, the
// process's /proc records as streams of their own).
//
// All structures are little-endian and packed to 4 bytes, exactly as they
// lie in the file. A location is a size and an offset from the start of the
// file (RVA); memory beyond 4 GiB is reached only through the 64-bit memory
// list.
#pragma once

#include <cstdint>

namespace vyn::minidump {

inline constexpr uint32_t kSignature = 0x504D444D;  // "MDMP"
inline constexpr uint32_t kVersion = 0xA793;

enum StreamType : uint32_t {
  kThreadListStream = 3,
  kModuleListStream = 4,
  kMemoryListStream = 5,
  kExceptionStream = 6,
  kSystemInfoStream = 7,
  kMemory64ListStream = 9,
  kHandleDataStream = 12,
  kMiscInfoStream = 15,
  kMemoryInfoListStream = 16,
  kThreadInfoListStream = 17,
  kThreadNamesStream = 24,
  kLinuxCpuInfoStream = 0x47670003,
  kLinuxProcStatusStream = 0x47670004,
  kLinuxLsbReleaseStream = 0x47670005,
  kLinuxCmdLineStream = 0x47670006,
  kLinuxEnvironStream = 0x47670007,
  kLinuxAuxvStream = 0x47670008,
  kLinuxMapsStream = 0x47670009,
};

inline constexpr uint16_t kArchitectureAmd64 = 9;
inline constexpr uint32_t kPlatformLinux = 0x8201;
inline constexpr uint32_t kCodeViewElfSignature = 0x4270454C;  // "LEpB"
inline constexpr uint32_t kFixedFileInfoSignature = 0xFEEF04BD;

// Context flags of the x86-64 processor context.
inline constexpr uint32_t kContextAmd64 = 0x00100000;
inline constexpr uint32_t kContextControl = kContextAmd64 | 0x1;
inline constexpr uint32_t kContextInteger = kContextAmd64 | 0x2;
inline constexpr uint32_t kContextSegments = kContextAmd64 | 0x4;
inline constexpr uint32_t kContextFloatingPoint = kContextAmd64 | 0x8;
inline constexpr uint32_t kContextFull =
    kContextControl | kContextInteger | kContextSegments | kContextFloatingPoint;

#pragma pack(push, 4)

struct Location {
  uint32_t data_size;
  uint32_t rva;
};

struct Header {
  uint32_t signature;
  uint32_t version;
  uint32_t stream_count;
  uint32_t stream_directory_rva;
  uint32_t checksum;
  uint32_t time_date_stamp;
  uint64_t flags;
};

struct Directory {
  uint32_t stream_type;
  Location location;
};

struct MemoryDescriptor {
  uint64_t start;
  Location memory;
};

struct Memory64Descriptor {
  uint64_t start;
  uint64_t size;
};

struct Thread {
  uint32_t thread_id;
  uint32_t suspend_count;
  uint32_t priority_class;
  uint32_t priority;
  uint64_t teb;
  MemoryDescriptor stack;
  Location context;
};

struct FixedFileInfo {
  uint32_t signature;
  uint32_t struct_version;
  uint32_t file_version_high;
  uint32_t file_version_low;
  uint32_t product_version_high;
  uint32_t product_version_low;
  uint32_t file_flags_mask;
  uint32_t file_flags;
  uint32_t file_os;
  uint32_t file_type;
  uint32_t file_subtype;
  uint32_t file_date_high;
  uint32_t file_date_low;
};

struct Module {
  uint64_t base;
  uint32_t size;
  uint32_t checksum;
  uint32_t time_date_stamp;
  uint32_t name_rva;
  FixedFileInfo version_info;
  Location cv_record;
  Location misc_record;
  uint64_t reserved0;
  uint64_t reserved1;
};

struct Exception {
  uint32_t code;
  uint32_t flags;
  uint64_t record;
  uint64_t address;
  uint32_t parameter_count;
  uint32_t unused_alignment;
  uint64_t parameters[15];
};

struct ExceptionStream {
  uint32_t thread_id;
  uint32_t alignment;
  Exception exception;
  Location context;
};

struct SystemInfo {
  uint16_t processor_architecture;
  uint16_t processor_level;
  uint16_t processor_revision;
  uint8_t processor_count;
  uint8_t product_type;
  uint32_t major_version;
  uint32_t minor_version;
  uint32_t build_number;
  uint32_t platform_id;
  uint32_t csd_version_rva;
  uint16_t suite_mask;
  uint16_t reserved2;
  uint32_t vendor_id[3];
  uint32_t version_information;
  uint32_t feature_information;
  uint32_t amd_extended_cpu_features;
};

inline constexpr uint32_t kMiscProcessId = 0x1;
inline constexpr uint32_t kMiscProcessTimes = 0x2;

struct MiscInfo {
  uint32_t size_of_info;
  uint32_t flags1;
  uint32_t process_id;
  uint32_t process_create_time;
  uint32_t process_user_time;
  uint32_t process_kernel_time;
};

struct MemoryInfoListHeader {
  uint32_t size_of_header;
  uint32_t size_of_entry;
  uint64_t entry_count;
};

struct MemoryInfo {
  uint64_t base_address;
  uint64_t allocation_base;
  uint32_t allocation_protect;
  uint32_t alignment1;
  uint64_t region_size;
  uint32_t state;
  uint32_t protect;
  uint32_t type;
  uint32_t alignment2;
};

inline constexpr uint32_t kMemCommit = 0x1000;
inline constexpr uint32_t kMemImage = 0x1000000;
inline constexpr uint32_t kMemMapped = 0x40000;
inline constexpr uint32_t kMemPrivate = 0x20000;

struct HandleDataHeader {
  uint32_t size_of_header;
  uint32_t size_of_descriptor;
  uint32_t descriptor_count;
  uint32_t reserved;
};

struct HandleDescriptor {
  uint64_t handle;
  uint32_t type_name_rva;
  uint32_t object_name_rva;
  uint32_t attributes;
  uint32_t granted_access;
  uint32_t handle_count;
  uint32_t pointer_count;
};

struct ThreadInfoListHeader {
  uint32_t size_of_header;
  uint32_t size_of_entry;
  uint32_t entry_count;
};

struct ThreadInfo {
  uint32_t thread_id;
  uint32_t dump_flags;
  uint32_t dump_error;
  uint32_t exit_status;
  uint64_t create_time;
  uint64_t exit_time;
  uint64_t kernel_time;
  uint64_t user_time;
  uint64_t start_address;
  uint64_t affinity;
};

struct ThreadName {
  uint32_t thread_id;
  uint64_t name_rva;  // a 64-bit offset, unlike the rest of the format
};

// The x86-64 processor context: general registers, segment selectors, the
// FXSAVE image of the floating-point and SSE state, and fields this project
// leaves zero (debug and vector registers beyond the FXSAVE image).
struct ContextAmd64 {
  uint64_t home[6];
  uint32_t context_flags;
  uint32_t mx_csr;
  uint16_t cs, ds, es, fs, gs, ss;
  uint32_t eflags;
  uint64_t dr0, dr1, dr2, dr3, dr6, dr7;
  uint64_t rax, rcx, rdx, rbx, rsp, rbp, rsi, rdi;
  uint64_t r8, r9, r10, r11, r12, r13, r14, r15;
  uint64_t rip;
  uint8_t fxsave[512];
  uint8_t vector_register[26 * 16];
  uint64_t vector_control;
  uint64_t debug_control;
  uint64_t last_branch_to_rip;
  uint64_t last_branch_from_rip;
  uint64_t last_exception_to_rip;
  uint64_t last_exception_from_rip;
};

#pragma pack(pop)

static_assert(sizeof(Header) == 32);
static_assert(sizeof(Directory) == 12);
static_assert(sizeof(MemoryDescriptor) == 16);
static_assert(sizeof(Thread) == 48);
static_assert(sizeof(Module) == 108);
static_assert(sizeof(ExceptionStream) == 168);
static_assert(sizeof(SystemInfo) == 56);
static_assert(sizeof(MiscInfo) == 24);
static_assert(sizeof(MemoryInfo) == 48);
static_assert(sizeof(HandleDescriptor) == 32);
static_assert(sizeof(ThreadInfo) == 64);
static_assert(sizeof(ThreadName) == 12);
static_assert(sizeof(ContextAmd64) == 1232);

}  // namespace vyn::minidump
