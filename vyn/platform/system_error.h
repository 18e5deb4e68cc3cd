// The system's text for an error number, as users read it in logs and
// messages ("No such file or directory"). Thread-safe: it never uses the
// shared buffer of strerror.
#pragma once

#include <string>

namespace vyn::platform {

std::string SystemErrorText(int error);

}  // namespace vyn::platform
