#include "vyn/diagnostics/internal/signal_safe_format.h"

namespace vyn::diagnostics {
namespace {

class Output {
 public:
  Output(char* buffer, size_t size) : buffer_(buffer), size_(size) {}
  void Put(char c) {
    if (size_ != 0 && length_ + 1 < size_) buffer_[length_++] = c;
  }
  size_t Finish() {
    if (size_ != 0) buffer_[length_] = '\0';
    return length_;
  }

 private:
  char* buffer_;
  size_t size_;
  size_t length_ = 0;
};

void PutNumber(Output& out, const FormatArgument& argument, char conversion, bool zero_pad,
               int width) {
  const bool hexadecimal = conversion == 'x';
  // %u and %x show the value as the unsigned 32-bit number printf would.
  uint64_t value = argument.magnitude();
  bool negative = false;
  if (conversion == 'd' || conversion == 'i') {
    negative = argument.negative();
  } else if (argument.negative()) {
    value = static_cast<uint32_t>(0u - static_cast<uint32_t>(value));
  }
  char digits[24];
  int count = 0;
  const uint64_t base = hexadecimal ? 16 : 10;
  do {
    const auto digit = static_cast<unsigned>(value % base);
    digits[count++] = static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10);
    value /= base;
  } while (value != 0);
  int padding = width - count - (negative ? 1 : 0);
  if (!zero_pad) {
    for (; padding > 0; --padding) out.Put(' ');
  }
  if (negative) out.Put('-');
  for (; padding > 0; --padding) out.Put('0');
  while (count > 0) out.Put(digits[--count]);
}

}  // namespace

size_t FormatSignalSafe(char* buffer, size_t size, const char* format,
                        std::initializer_list<FormatArgument> arguments) {
  Output out(buffer, size);
  const FormatArgument* next = arguments.begin();
  for (const char* c = format; *c != '\0'; ++c) {
    if (*c != '%') {
      out.Put(*c);
      continue;
    }
    ++c;
    if (*c == '%') {
      out.Put('%');
      continue;
    }
    const bool zero_pad = *c == '0';
    if (zero_pad) ++c;
    int width = 0;
    while (*c >= '0' && *c <= '9') width = width * 10 + (*c++ - '0');
    if (*c == '\0') break;
    if (next == arguments.end()) continue;  // more conversions than arguments
    const FormatArgument& argument = *next++;
    if (*c == 's') {
      for (const char* t = argument.text() == nullptr ? "" : argument.text(); *t != '\0'; ++t) {
        out.Put(*t);
      }
    } else if (*c == 'd' || *c == 'i' || *c == 'u' || *c == 'x') {
      PutNumber(out, argument, *c, zero_pad, width);
    }
  }
  return out.Finish();
}

}  // namespace vyn::diagnostics
