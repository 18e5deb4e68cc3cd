#include "vyn/core/status.h"

#include <array>

namespace {

// Indexed by -status; the empty slot is the unused -13.
constexpr std::array<const char*, 27> kNames = {
    "VYN_STATUS_SUCCESS",          "VYN_STATUS_UNSPECIFIC_ERROR",
    "VYN_STATUS_TIMEOUT",          "VYN_STATUS_INVALID_PARAMETER",
    "VYN_STATUS_NO_MEMORY",        "VYN_STATUS_OPERATION_BROKEN",
    "VYN_STATUS_INVALID_HANDLE",   "VYN_STATUS_BUSY",
    "VYN_STATUS_SOCKET_ERROR",     "VYN_STATUS_FORBIDDEN",
    "VYN_STATUS_NOT_INITIALIZED",  "VYN_STATUS_INVALID_OPERATION",
    "VYN_STATUS_NOT_FOUND",        nullptr,
    "VYN_STATUS_INVALID_DATA",     "VYN_STATUS_FILE_ERROR",
    "VYN_STATUS_WRONG_FORMAT",     "VYN_STATUS_INVALID_END_DELIMITER",
    "VYN_STATUS_NOT_IMPLEMENTED",  "VYN_STATUS_NOT_UNIQUE",
    "VYN_STATUS_EXCEPTION_CAUGHT", "VYN_STATUS_INVALID_BUFFER",
    "VYN_STATUS_BUFFER_TOO_SMALL", "VYN_STATUS_ASSERT",
    "VYN_STATUS_NO_CONNECTION",    "VYN_STATUS_DISABLED",
    "VYN_STATUS_INVALID_CRC",
};

}  // namespace

std::string GetVYNStatusAsString(int32_t status) {
  if (status > 0 || status < -static_cast<int32_t>(kNames.size() - 1)) return "???";
  const char* name = kNames[static_cast<size_t>(-status)];
  return name != nullptr ? name : "???";
}
