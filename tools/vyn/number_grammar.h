// How the vyn program reads numbers, wherever they come from: options,
// arguments of requests, commands typed on standard input.
//
// One rule everywhere: decimal digits, or hexadecimal digits after 0x (or
// 0X). A leading zero changes nothing ("010" is ten), and there is no octal,
// no exponent, no blank, no '+'; a '-' only where the range holds negative
// numbers. A number outside its range, however many digits it has, is
// refused with the range; every refusal has the same wording:
//
//   'TEXT' is not a number from MIN to MAX (decimal, or hex with 0x)
//
// with TEXT cut short when it is long, so that a pasted megabyte never
// floods the terminal.
//
// Thread-safety: all functions are pure.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vyn::tool {

// The number `text` stands for when it lies in [min, max]; otherwise
// nothing, and `error` (when given) holds the refusal.
std::optional<int64_t> ParseNumber(std::string_view text, int64_t min, int64_t max,
                                   std::string* error = nullptr);

// The refusal ParseNumber gives for `text`.
std::string NumberRefusal(std::string_view text, int64_t min, int64_t max);

// ParseNumber for command-line arguments: throws CLI::ValidationError named
// `what` (the argument's name) with the refusal.
int64_t NumberArgument(std::string_view text, int64_t min, int64_t max, const std::string& what);

// For options of every subcommand: `option->transform(NumberIn(min, max))`
// replaces the option's text by its decimal value (or refuses it with the
// wording above) before CLI11 stores it, so CLI11's own reading of numbers,
// with its octal and exponents, never sees what the user typed.
CLI::Validator NumberIn(int64_t min, int64_t max);

// For options and arguments naming a file or folder: an empty text names
// nothing and is refused instead of being taken as the current folder.
CLI::Validator NonEmptyPath();

}  // namespace vyn::tool
