// CVYNMemoryDump: crash handlers, dump files and heap checks.
#pragma once

#include "vyn/base/export.h"

class VYN_EXPORT CVYNMemoryDump {
 public:
  CVYNMemoryDump();
  virtual ~CVYNMemoryDump();
  CVYNMemoryDump(const CVYNMemoryDump&) = delete;
  CVYNMemoryDump& operator=(const CVYNMemoryDump&) = delete;
};

VYN_EXPORT CVYNMemoryDump& GetVYNMemoryDump();
