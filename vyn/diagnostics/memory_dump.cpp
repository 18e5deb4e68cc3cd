#include "vyn/diagnostics/memory_dump.h"

CVYNMemoryDump::CVYNMemoryDump() = default;

CVYNMemoryDump::~CVYNMemoryDump() = default;
