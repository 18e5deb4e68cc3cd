// CVYNCommandDump: renders device replies and notifications as text lines.
#pragma once

#include "vyn/core/export.h"
#include "vyn/device/command_set.h"

class VYN_EXPORT CVYNCommandDump : private CVYNCommandSet {
 public:
  CVYNCommandDump();
  ~CVYNCommandDump();
  CVYNCommandDump(const CVYNCommandDump&) = delete;
  CVYNCommandDump& operator=(const CVYNCommandDump&) = delete;
};

VYN_EXPORT CVYNCommandDump& GetVYNCommandDump();
