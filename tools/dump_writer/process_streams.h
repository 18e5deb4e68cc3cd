// The streams that describe the process rather than its threads and memory:
// system information, process times, open descriptors, thread times and the
// memory map, each added to the file image; they return the stream's
// location.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/dump_writer/file_image.h"
#include "tools/dump_writer/module_list.h"
#include "tools/dump_writer/process_snapshot.h"
#include "tools/minidump/minidump_format.h"

namespace vyn::dump_writer {

minidump::Location AddSystemInfo(FileImage& image);
minidump::Location AddMiscInfo(FileImage& image, const ProcessSnapshot& process);
minidump::Location AddHandleData(FileImage& image, const ProcessSnapshot& process);
minidump::Location AddThreadInfo(FileImage& image, const ProcessSnapshot& process,
                                 const std::vector<uint32_t>& thread_ids);
minidump::Location AddMemoryInfo(FileImage& image, const ProcessSnapshot& process,
                                 const std::vector<ModuleInfo>& modules);

}  // namespace vyn::dump_writer
