// printf-style formatting that allocates nothing and takes no lock, for the
// texts that the crash filter builds while the process is in a signal
// handler (where the C library's formatting functions are not safe).
//
// Conversions: %s, %d, %i, %u, %x with an optional 0 flag and a width (as in
// "%04d" or "0x%08x"), and %%. The result is always terminated and cut to
// fit the buffer. Thread-safety: no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <type_traits>

namespace vyn::diagnostics {

class FormatArgument {
 public:
  FormatArgument(const char* text) : text_(text == nullptr ? "" : text) {}  // NOLINT
  template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer>>>
  FormatArgument(Integer value)  // NOLINT: used like printf arguments
      : negative_(value < 0),
        magnitude_(value < 0 ? 0 - static_cast<uint64_t>(value) : static_cast<uint64_t>(value)) {}

  const char* text() const { return text_; }
  bool negative() const { return negative_; }
  uint64_t magnitude() const { return magnitude_; }

 private:
  const char* text_ = nullptr;
  bool negative_ = false;
  uint64_t magnitude_ = 0;
};

// Returns the length of the result.
size_t FormatSignalSafe(char* buffer, size_t size, const char* format,
                        std::initializer_list<FormatArgument> arguments);

}  // namespace vyn::diagnostics
