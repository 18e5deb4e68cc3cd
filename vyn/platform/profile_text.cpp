#include "vyn/platform/profile_text.h"

#include <algorithm>
#include <utility>

namespace vyn::platform {
namespace {

constexpr std::string_view kBlanks = " \t";
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

std::string_view Trim(std::string_view text) {
  const size_t first = text.find_first_not_of(kBlanks);
  // Still pointing into the text, so that an empty name has an offset too.
  if (first == std::string_view::npos) return text.substr(0, 0);
  const size_t last = text.find_last_not_of(kBlanks);
  return text.substr(first, last - first + 1);
}

unsigned char Lower(char c) {
  return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
}

// Orders names without regard to ASCII letter case: <0, 0, >0.
int CompareNames(std::string_view a, std::string_view b) {
  const size_t common = std::min(a.size(), b.size());
  for (size_t i = 0; i < common; ++i) {
    const unsigned char x = Lower(a[i]);
    const unsigned char y = Lower(b[i]);
    if (x != y) return x < y ? -1 : 1;
  }
  if (a.size() == b.size()) return 0;
  return a.size() < b.size() ? -1 : 1;
}

// One line of the file without its line end, and where it sits.
struct Line {
  std::string_view text;
  size_t begin;  // offset of the line's first byte
  size_t end;    // offset just past the line's end (its line break included)
};

// The lines of `content` from `start` on (past a byte-order mark).
std::vector<Line> SplitLines(std::string_view content, size_t start) {
  std::vector<Line> lines;
  while (start < content.size()) {
    const size_t newline = content.find('\n', start);
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

struct KeyValue {
  std::string_view key;
  std::string_view value;
};

std::optional<KeyValue> KeyLine(std::string_view line) {
  const std::string_view trimmed = Trim(line);
  if (trimmed.empty() || trimmed.front() == ';') return std::nullopt;
  const size_t equals = trimmed.find('=');
  if (equals == std::string_view::npos) return std::nullopt;
  return KeyValue{Trim(trimmed.substr(0, equals)), Trim(trimmed.substr(equals + 1))};
}

std::string_view Unquote(std::string_view value) {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
      value.back() == value.front()) {
    return value.substr(1, value.size() - 2);
  }
  return value;
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
      inside = CompareNames(*header, section) == 0;
      in_first = inside && !where.section_found;
      if (in_first) {
        where.section_found = true;
        where.insert_after = i;
      }
      continue;
    }
    if (!inside) continue;
    if (const auto entry = KeyLine(lines[i].text)) {
      if (!where.key_line && CompareNames(entry->key, key) == 0) where.key_line = i;
    }
    if (in_first && !Trim(lines[i].text).empty()) where.insert_after = i;
  }
  return where;
}

// What has to follow `text` before another line can: nothing after a line
// feed, a line feed after a carriage return (the file's last line may end in
// one alone, which reading drops; kept as it is, it would join the next
// line), the file's line end otherwise.
std::string_view BreakBeforeMore(std::string_view text, std::string_view eol) {
  if (text.empty() || text.back() == '\n') return {};
  return text.back() == '\r' ? "\n" : eol;
}

}  // namespace

size_t ByteOrderMarkLength(std::string_view content) {
  return content.substr(0, kByteOrderMark.size()) == kByteOrderMark ? kByteOrderMark.size() : 0;
}

std::string_view TrimName(std::string_view name) { return Trim(name); }

ProfileIndex::ProfileIndex(std::string content) : content_(std::move(content)) {
  const std::string_view text = content_;
  const auto offset = [&](std::string_view part) {
    return static_cast<uint32_t>(part.data() - text.data());
  };
  std::optional<std::string_view> section;  // none before the first header
  for (const Line& line : SplitLines(text, ByteOrderMarkLength(text))) {
    if (const auto header = SectionHeader(line.text)) {
      section = header;
      continue;
    }
    if (!section) continue;
    if (const auto entry = KeyLine(line.text)) {
      const std::string_view value = Unquote(entry->value);
      entries_.push_back({offset(*section), static_cast<uint32_t>(section->size()),
                          offset(entry->key), static_cast<uint32_t>(entry->key.size()),
                          offset(value), static_cast<uint32_t>(value.size())});
    }
  }
  // Equal names stay in file order (by key offset), so the first of a run
  // is the first occurrence; later ones can never be found and are dropped.
  const auto order = [this](const Entry& a, const Entry& b) {
    if (const int c = CompareNames(Text(a.section_offset, a.section_length),
                                   Text(b.section_offset, b.section_length))) {
      return c < 0;
    }
    if (const int c =
            CompareNames(Text(a.key_offset, a.key_length), Text(b.key_offset, b.key_length))) {
      return c < 0;
    }
    return a.key_offset < b.key_offset;
  };
  std::sort(entries_.begin(), entries_.end(), order);
  const auto same = [this](const Entry& a, const Entry& b) {
    return CompareNames(Text(a.section_offset, a.section_length),
                        Text(b.section_offset, b.section_length)) == 0 &&
           CompareNames(Text(a.key_offset, a.key_length), Text(b.key_offset, b.key_length)) == 0;
  };
  entries_.erase(std::unique(entries_.begin(), entries_.end(), same), entries_.end());
  entries_.shrink_to_fit();
}

std::optional<std::string_view> ProfileIndex::Find(std::string_view section,
                                                   std::string_view key) const {
  const auto it =
      std::lower_bound(entries_.begin(), entries_.end(), 0, [&](const Entry& entry, int) {
        if (const int c = CompareNames(Text(entry.section_offset, entry.section_length), section)) {
          return c < 0;
        }
        return CompareNames(Text(entry.key_offset, entry.key_length), key) < 0;
      });
  if (it == entries_.end() ||
      CompareNames(Text(it->section_offset, it->section_length), section) != 0 ||
      CompareNames(Text(it->key_offset, it->key_length), key) != 0) {
    return std::nullopt;
  }
  return Text(it->value_offset, it->value_length);
}

std::string WithEntry(std::string_view content, std::string_view section, std::string_view key,
                      std::string_view value) {
  // New lines follow the file's own line-end style.
  const std::string_view eol = content.find("\r\n") != std::string_view::npos ? "\r\n" : "\n";
  const size_t mark = ByteOrderMarkLength(content);
  const std::vector<Line> lines = SplitLines(content, mark);
  const Position where = Locate(lines, section, key);

  std::string updated;
  updated.reserve(content.size() + section.size() + key.size() + value.size() + 8);
  if (where.key_line) {
    const Line& line = lines[*where.key_line];
    // The key keeps the spelling it already has in the file.
    updated.append(content.substr(0, line.begin))
        .append(KeyLine(line.text)->key)
        .append("=")
        .append(value)
        .append(content.substr(line.begin + line.text.size()));
  } else if (where.section_found) {
    const Line& anchor = lines[where.insert_after];
    const std::string_view before = content.substr(0, anchor.end);
    updated.append(before).append(BreakBeforeMore(before.substr(mark), eol));
    updated.append(key).append("=").append(value).append(eol);
    updated.append(content.substr(anchor.end));
  } else {
    updated.append(content).append(BreakBeforeMore(content.substr(mark), eol));
    updated.append("[").append(section).append("]").append(eol);
    updated.append(key).append("=").append(value).append(eol);
  }
  return updated;
}

}  // namespace vyn::platform
