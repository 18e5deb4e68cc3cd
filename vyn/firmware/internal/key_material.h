// The key material of firmware scrambling: a key stream and the start offset
// of each key into it. The values are generated at build time from the key
// file that the build names (keys/README.md); they live in read-only data.
// Thread-safety: constants.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyn::firmware {

constexpr size_t kKeyStreamSize = 32768;
constexpr size_t kKeyCount = 6;

// Start offsets of keys 1 to 6 (index 0 is key 1), each below kKeyStreamSize.
extern const uint16_t kKeyStartOffsets[kKeyCount];
extern const unsigned char kKeyStream[kKeyStreamSize];

}  // namespace vyn::firmware
