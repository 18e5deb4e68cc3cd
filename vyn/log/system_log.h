// CVYNSystemLogEx: the process's one system log. AddOutput accepts entries
// from any thread while the log's output thread runs and refuses them
// otherwise.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/core/export.h"
#include "vyn/core/log_output.h"

class VYN_EXPORT CVYNSystemLogEx {
 public:
  CVYNSystemLogEx();
  virtual ~CVYNSystemLogEx();
  CVYNSystemLogEx(const CVYNSystemLogEx&) = delete;
  CVYNSystemLogEx& operator=(const CVYNSystemLogEx&) = delete;

  int32_t AddOutput(std::string text, _VYNSystemLogExEventType type, std::string reference,
                    std::string caller, std::string context);
};

VYN_EXPORT CVYNSystemLogEx& GetVYNSystemLogEx();
