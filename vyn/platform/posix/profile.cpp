#include "vyn/platform/profile.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace vyn::platform {
namespace {

constexpr std::string_view kBlanks = " \t";

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  const size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

bool SameName(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? char(c - 'A' + 'a') : c; };
           return lower(x) == lower(y);
         });
}

std::optional<std::string> ReadWholeFile(const std::string& path) {
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  std::string content;
  char chunk[65536];
  for (;;) {
    const ssize_t got = read(fd, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      close(fd);
      return std::nullopt;
    }
    if (got == 0) break;
    content.append(chunk, static_cast<size_t>(got));
  }
  close(fd);
  return content;
}

bool WriteWholeFile(const std::string& path, const std::string& content) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return false;
  size_t done = 0;
  while (done < content.size()) {
    const ssize_t put = write(fd, content.data() + done, content.size() - done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      close(fd);
      return false;
    }
    done += static_cast<size_t>(put);
  }
  return close(fd) == 0;
}

// One line of the file without its line end, and where it sits.
struct Line {
  std::string_view text;
  size_t begin;  // offset of the line's first byte
  size_t end;    // offset just past the line's end (its line break included)
};

std::vector<Line> SplitLines(std::string_view content) {
  std::vector<Line> lines;
  size_t start = 0;
  while (start < content.size()) {
    size_t newline = content.find('\n', start);
    const size_t next = newline == std::string_view::npos ? content.size() : newline + 1;
    size_t stop = newline == std::string_view::npos ? content.size() : newline;
    if (stop > start && content[stop - 1] == '\r') --stop;
    lines.push_back({content.substr(start, stop - start), start, next});
    start = next;
  }
  return lines;
}

// The section name when the line is a section header.
std::optional<std::string_view> SectionHeader(std::string_view line) {
  const std::string_view trimmed = Trim(line);
  if (trimmed.empty() || trimmed.front() != '[') return std::nullopt;
  const size_t close = trimmed.find(']');
  if (close == std::string_view::npos) return std::nullopt;
  return Trim(trimmed.substr(1, close - 1));
}

struct Entry {
  std::string_view key;
  std::string_view value;
};

std::optional<Entry> KeyLine(std::string_view line) {
  const std::string_view trimmed = Trim(line);
  if (trimmed.empty() || trimmed.front() == ';') return std::nullopt;
  const size_t equals = trimmed.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  return Entry{Trim(trimmed.substr(0, equals)), Trim(trimmed.substr(equals + 1))};
}

// Where a key lives, or where a new one would go.
struct Position {
  bool section_found = false;
  std::optional<size_t> key_line;  // index of the key's line
  size_t insert_after = 0;         // last non-blank line of the first matching section
};

Position Locate(const std::vector<Line>& lines, std::string_view section, std::string_view key) {
  Position where;
  bool inside = false;    // in any section of that name
  bool in_first = false;  // in the first one, where new keys go
  for (size_t i = 0; i < lines.size(); ++i) {
    if (const auto header = SectionHeader(lines[i].text)) {
      inside = SameName(*header, section);
      in_first = inside && !where.section_found;
      if (in_first) {
        where.section_found = true;
        where.insert_after = i;
      }
      continue;
    }
    if (!inside) continue;
    if (const auto entry = KeyLine(lines[i].text)) {
      if (!where.key_line && SameName(entry->key, key)) where.key_line = i;
    }
    if (in_first && !Trim(lines[i].text).empty()) where.insert_after = i;
  }
  return where;
}

// What has to follow `text` before another line can: nothing after a line
// feed, a line feed after a carriage return (the file's last line may end in
// one alone, which reading drops; kept as it is, it would join the next
// line), the file's line end otherwise.
std::string BreakBeforeMore(std::string_view text, const std::string& eol) {
  if (text.empty() || text.back() == '\n') return {};
  return text.back() == '\r' ? "\n" : eol;
}

bool BreaksStructure(std::string_view text) {
  return text.find_first_of("\r\n") != std::string_view::npos ||
         text.find('\0') != std::string_view::npos;
}

}  // namespace

size_t ReadProfileString(const std::string& section, const std::string& key,
                         const std::string& fallback, char* buffer, size_t size,
                         const std::string& path) {
  if (buffer == nullptr || size == 0) return 0;
  std::string_view value = fallback;
  const auto content = ReadWholeFile(path);
  std::vector<Line> lines;
  if (content) {
    lines = SplitLines(*content);
    const Position where = Locate(lines, Trim(section), Trim(key));
    if (where.key_line) {
      value = KeyLine(lines[*where.key_line].text)->value;
      if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
          value.back() == value.front()) {
        value = value.substr(1, value.size() - 2);
      }
    }
  }
  const size_t copied = std::min(value.size(), size - 1);
  if (copied > 0) std::memcpy(buffer, value.data(), copied);  // an empty value may have no data
  buffer[copied] = '\0';
  return copied;
}

bool WriteProfileString(const std::string& section, const std::string& key,
                        const std::string& value, const std::string& path) {
  const std::string_view name = Trim(section);
  const std::string_view key_name = Trim(key);
  if (name.empty() || key_name.empty() || BreaksStructure(section) || BreaksStructure(key) ||
      BreaksStructure(value) || name.find(']') != std::string_view::npos ||
      key_name.find('=') != std::string_view::npos || key_name.front() == '[' ||
      key_name.front() == ';') {
    return false;
  }
  std::string content;
  if (auto existing = ReadWholeFile(path)) {
    content = std::move(*existing);
  } else if (errno != ENOENT) {
    return false;
  }
  // New lines follow the file's own line-end style.
  const std::string eol = content.find("\r\n") != std::string::npos ? "\r\n" : "\n";
  const std::string entry = std::string(key_name) + "=" + value;
  const std::vector<Line> lines = SplitLines(content);
  const Position where = Locate(lines, name, key_name);

  std::string updated;
  if (where.key_line) {
    const Line& line = lines[*where.key_line];
    const size_t text_end = line.begin + line.text.size();
    // The key keeps the spelling it already has in the file.
    const std::string kept = std::string(KeyLine(line.text)->key) + "=" + value;
    updated = content.substr(0, line.begin) + kept + content.substr(text_end);
  } else if (where.section_found) {
    const Line& anchor = lines[where.insert_after];
    const std::string_view before = std::string_view(content).substr(0, anchor.end);
    updated.append(before).append(BreakBeforeMore(before, eol)).append(entry).append(eol);
    updated.append(std::string_view(content).substr(anchor.end));
  } else {
    updated = content + BreakBeforeMore(content, eol);
    // Appended piece by piece: g++ 12 at -O3 warns (-Wrestrict, a false
    // positive) about the temporary that a chain of operator+ builds here.
    updated.append("[").append(name).append("]").append(eol).append(entry).append(eol);
  }
  return WriteWholeFile(path, updated);
}

}  // namespace vyn::platform
