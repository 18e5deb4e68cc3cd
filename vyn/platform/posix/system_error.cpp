#include "vyn/platform/system_error.h"

#include <cstring>

namespace vyn::platform {

std::string SystemErrorText(int error) {
  char buffer[128];
  // The GNU strerror_r returns the text, which may or may not be in buffer.
  return strerror_r(error, buffer, sizeof buffer);
}

}  // namespace vyn::platform
