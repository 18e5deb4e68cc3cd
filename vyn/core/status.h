// Library-wide status codes: 0 is success, every failure is negative.
// Thread-safety: constants and a pure function; callable from any thread.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/export.h"

// The codes every service answers with. Each service's header says which of
// them a call returns and when; the name of a code is its printable text
// (GetVYNStatusAsString). -13 is deliberately unused.
constexpr int32_t VYN_STATUS_SUCCESS = 0;
constexpr int32_t VYN_STATUS_UNSPECIFIC_ERROR = -1;
constexpr int32_t VYN_STATUS_TIMEOUT = -2;
constexpr int32_t VYN_STATUS_INVALID_PARAMETER = -3;
constexpr int32_t VYN_STATUS_NO_MEMORY = -4;
constexpr int32_t VYN_STATUS_OPERATION_BROKEN = -5;
constexpr int32_t VYN_STATUS_INVALID_HANDLE = -6;
constexpr int32_t VYN_STATUS_BUSY = -7;
constexpr int32_t VYN_STATUS_SOCKET_ERROR = -8;
constexpr int32_t VYN_STATUS_FORBIDDEN = -9;
constexpr int32_t VYN_STATUS_NOT_INITIALIZED = -10;
constexpr int32_t VYN_STATUS_INVALID_OPERATION = -11;
constexpr int32_t VYN_STATUS_NOT_FOUND = -12;
constexpr int32_t VYN_STATUS_INVALID_DATA = -14;
constexpr int32_t VYN_STATUS_FILE_ERROR = -15;
constexpr int32_t VYN_STATUS_WRONG_FORMAT = -16;
constexpr int32_t VYN_STATUS_INVALID_END_DELIMITER = -17;
constexpr int32_t VYN_STATUS_NOT_IMPLEMENTED = -18;
constexpr int32_t VYN_STATUS_NOT_UNIQUE = -19;
constexpr int32_t VYN_STATUS_EXCEPTION_CAUGHT = -20;
constexpr int32_t VYN_STATUS_INVALID_BUFFER = -21;
constexpr int32_t VYN_STATUS_BUFFER_TOO_SMALL = -22;
constexpr int32_t VYN_STATUS_ASSERT = -23;
constexpr int32_t VYN_STATUS_NO_CONNECTION = -24;
constexpr int32_t VYN_STATUS_DISABLED = -25;
constexpr int32_t VYN_STATUS_INVALID_CRC = -26;

// The printable name of a status code ("VYN_STATUS_SUCCESS"), or "???" for a
// value that names no code (anything above 0, below -26, and -13).
VYN_EXPORT std::string GetVYNStatusAsString(int32_t status);
