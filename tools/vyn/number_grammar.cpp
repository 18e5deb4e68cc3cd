#include "tools/vyn/number_grammar.h"

namespace vyn::tool {
namespace {

// Texts longer than this are shown by their start only.
constexpr size_t kShownCharacters = 24;

int DigitValue(char c, unsigned base) {
  int value = -1;
  if (c >= '0' && c <= '9') value = c - '0';
  if (c >= 'a' && c <= 'f') value = c - 'a' + 10;
  if (c >= 'A' && c <= 'F') value = c - 'A' + 10;
  return value >= 0 && static_cast<unsigned>(value) < base ? value : -1;
}

}  // namespace

std::string NumberRefusal(std::string_view text, int64_t min, int64_t max) {
  std::string shown(text.substr(0, kShownCharacters));
  if (text.size() > kShownCharacters) {
    shown += "... (" + std::to_string(text.size()) + " characters)";
  }
  return "'" + shown + "' is not a number from " + std::to_string(min) + " to " +
         std::to_string(max) + " (decimal, or hex with 0x)";
}

std::optional<int64_t> ParseNumber(std::string_view text, int64_t min, int64_t max,
                                   std::string* error) {
  const std::string_view original = text;
  const bool negative = min < 0 && !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  unsigned base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  // The magnitude is built in 64 bits unsigned; anything beyond the range's
  // own bound stops it, so a number of any length ends in a refusal rather
  // than in a wrapped value.
  const uint64_t bound =
      negative ? uint64_t{0} - static_cast<uint64_t>(min) : static_cast<uint64_t>(max);
  uint64_t magnitude = 0;
  bool fits = !text.empty() && max >= 0;
  for (const char c : text) {
    const int digit = DigitValue(c, base);
    if (!fits || digit < 0 || static_cast<unsigned>(digit) > bound ||
        magnitude > (bound - static_cast<unsigned>(digit)) / base) {
      fits = false;
      break;
    }
    magnitude = magnitude * base + static_cast<unsigned>(digit);
  }
  if (fits) {
    const int64_t value =
        negative ? static_cast<int64_t>(0 - magnitude) : static_cast<int64_t>(magnitude);
    // The digits stayed within the bound on the side of the sign.
    if (value >= min) return value;
  }
  if (error != nullptr) *error = NumberRefusal(original, min, max);
  return std::nullopt;
}

int64_t NumberArgument(std::string_view text, int64_t min, int64_t max, const std::string& what) {
  std::string error;
  const std::optional<int64_t> value = ParseNumber(text, min, max, &error);
  if (!value) throw CLI::ValidationError(what, error);
  return *value;
}

CLI::Validator NumberIn(int64_t min, int64_t max) {
  return CLI::Validator(
      [min, max](std::string& text) {
        std::string error;
        const std::optional<int64_t> value = ParseNumber(text, min, max, &error);
        if (value) text = std::to_string(*value);
        return error;
      },
      "NUMBER " + std::to_string(min) + " to " + std::to_string(max), "number");
}

CLI::Validator NonEmptyPath() {
  return CLI::Validator(
      [](std::string& text) {
        return text.empty() ? std::string("an empty path names no file") : std::string();
      },
      "PATH", "path");
}

}  // namespace vyn::tool
