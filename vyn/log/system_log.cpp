#include "vyn/log/system_log.h"

#include "vyn/core/status.h"

CVYNSystemLogEx::CVYNSystemLogEx() = default;

CVYNSystemLogEx::~CVYNSystemLogEx() = default;

int32_t CVYNSystemLogEx::AddOutput(std::string /*text*/, _VYNSystemLogExEventType /*type*/,
                                   std::string /*reference*/, std::string /*caller*/,
                                   std::string /*context*/) {
  // The output thread does not exist yet, so the log never runs.
  return VYN_STATUS_FORBIDDEN;
}

namespace vyn {

int32_t LogAddOutput(const std::string& text, _VYNSystemLogExEventType type,
                     const std::string& reference, const std::string& caller,
                     const std::string& context) {
  return GetVYNSystemLogEx().AddOutput(text, type, reference, caller, context);
}

}  // namespace vyn
