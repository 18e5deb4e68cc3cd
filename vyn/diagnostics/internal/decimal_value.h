// Reading a decimal number the way the C library's atoi does (leading white
// space and a sign allowed, reading stops at the first non-digit, no digits
// give 0), except that values beyond the 32-bit range are clamped to it
// instead of being undefined.
#pragma once

#include <cstdint>
#include <string>

namespace vyn::diagnostics {

inline int32_t DecimalValue(const std::string& text) {
  size_t at = 0;
  while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) ++at;
  bool negative = false;
  if (at < text.size() && (text[at] == '+' || text[at] == '-')) negative = text[at++] == '-';
  int64_t value = 0;
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    if (value <= INT32_MAX) value = value * 10 + (text[at] - '0');
  }
  if (negative) value = -value;
  if (value > INT32_MAX) return INT32_MAX;
  if (value < INT32_MIN) return INT32_MIN;
  return static_cast<int32_t>(value);
}

}  // namespace vyn::diagnostics
