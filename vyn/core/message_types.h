// The message types that the library itself publishes through the Notify of
// its message queue (GetVYNMessageQueue). Applications choose every other
// value for their own messages.
// Thread-safety: constants.
#pragma once

#include <cstdint>

// A received frame that passed both checksums; the buffer holds its
// _SERIAL_FRAME_RECORD.
constexpr uint32_t MSG_SERIAL_FRAME_RECEIVED = 0x10000003;
// A frame written to the port; the buffer holds its _SERIAL_FRAME_RECORD.
constexpr uint32_t MSG_SERIAL_FRAME_SENT = 0x10000004;
// Progress of a firmware transmission; the buffer holds one byte, the
// percentage written (0 to 100), or is absent when it could not be allocated.
constexpr uint32_t MSG_FIRMWARE_TRANSMISSION_PROGRESS = 0x20000001;
