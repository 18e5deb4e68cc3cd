// INI ("private profile") files, with these rules:
// - sections are headed by "[name]", entries are "key=value" lines;
// - section and key names compare without regard to ASCII letter case;
// - white space around names and values is trimmed, and a value enclosed in
//   a matching pair of double or single quotes loses them on reading;
// - lines without '=' and lines starting with ';' are ignored; CR LF and LF
//   line ends both work;
// - when a section or key occurs more than once, the first occurrence wins;
// - writing creates the file, the section and the key as needed, replaces the
//   value of an existing key in place, and keeps every other line.
// Thread-safety: the functions keep no state; concurrent writers of the same
// file are not coordinated.
#pragma once

#include <cstddef>
#include <string>

namespace vyn::platform {

// Copies the value of `key` in `section` into `buffer` (at most size - 1
// characters and a terminating zero) and returns the number of characters
// copied; a missing file, section or key yields `fallback` instead.
size_t ReadProfileString(const std::string& section, const std::string& key,
                         const std::string& fallback, char* buffer, size_t size,
                         const std::string& path);

// Writes key=value into the section; false when the file cannot be written
// or a name or the value would break the file's structure (line breaks, a
// ']' in a section name, a '=' in a key, empty names).
bool WriteProfileString(const std::string& section, const std::string& key,
                        const std::string& value, const std::string& path);

}  // namespace vyn::platform
