// The text side of INI files (see profile.h for the rules): a parsed,
// searchable copy of a file's content, and the edit that writes one entry.
// Internal to the profile reader and writer.
// Thread-safety: a ProfileIndex is immutable once built; any thread may search it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vyn::platform {

// Length of a UTF-8 byte-order mark at the start of `content` (3 or 0).
size_t ByteOrderMarkLength(std::string_view content);

// A section and key name as compared: blanks around them removed.
std::string_view TrimName(std::string_view name);

// The content of one file with every entry sorted by section and key name,
// so that a lookup is a binary search and not a pass over the file.
class ProfileIndex {
 public:
  explicit ProfileIndex(std::string content);

  // The value of the first occurrence of `key` in any section named
  // `section` (both already trimmed), trimmed and without enclosing quotes.
  std::optional<std::string_view> Find(std::string_view section, std::string_view key) const;

  const std::string& content() const { return content_; }
  size_t entries() const { return entries_.size(); }

 private:
  // Offsets into content_; a file is at most 16 MiB, so 32 bits suffice.
  struct Entry {
    uint32_t section_offset, section_length;
    uint32_t key_offset, key_length;
    uint32_t value_offset, value_length;
  };
  std::string_view Text(uint32_t offset, uint32_t length) const {
    return std::string_view(content_).substr(offset, length);
  }

  std::string content_;
  std::vector<Entry> entries_;  // by section, key, then position in the file
};

// `content` with key=value written into the section (names trimmed and
// checked by the caller): an existing key keeps its spelling and gets the new
// value in place; a new key goes after the last line of the first section of
// that name; a new section goes at the end. New lines use the file's line ends.
std::string WithEntry(std::string_view content, std::string_view section, std::string_view key,
                      std::string_view value);

}  // namespace vyn::platform
