// Fuzz target of the INI reader and writer. Input: a section, a key and a
// value to write, a second section and key to watch, then the file's
// content; the size of the read buffer comes from the input's end. After a
// write that reports success the key reads back as written (trimmed, quotes
// taken off), and the watched key still reads as before; a refused write
// leaves the file as it was; a read never overruns its buffer.
#include <fuzzer/FuzzedDataProvider.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "vyn/platform/profile.h"

namespace {

// Refusals of reads are told by this fallback, which no file value can
// match because it is longer than any value the input can write.
const std::string kAbsent(1024, '\x01');

// One file in a directory of this process, removed at exit; in memory where
// the system offers a memory file system, since every run writes the file.
const std::string& FilePath() {
  static const std::string path = [] {
    std::error_code error;
    const std::filesystem::path base = std::filesystem::is_directory("/dev/shm", error)
                                           ? std::filesystem::path("/dev/shm")
                                           : std::filesystem::temp_directory_path();
    std::string directory = (base / "vyn-ini-fuzz-XXXXXX").string();
    if (mkdtemp(directory.data()) == nullptr) std::abort();
    static std::string to_remove = directory;
    std::atexit([] { std::filesystem::remove_all(to_remove); });
    return directory + "/fuzz.ini";
  }();
  return path;
}

void Fail(const char* what) {
  std::fprintf(stderr, "INI check failed: %s\n", what);
  std::abort();
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string Read(const std::string& section, const std::string& key, size_t size) {
  std::vector<char> buffer(size + 1, '\x7F');  // one guard byte behind the buffer
  const size_t copied =
      vyn::platform::ReadProfileString(section, key, kAbsent, buffer.data(), size, FilePath());
  if (size == 0) {
    if (copied != 0 || buffer[0] != '\x7F') Fail("a read into no buffer wrote");
    return {};
  }
  if (copied > size - 1 || buffer[copied] != '\0') Fail("the text is not terminated in place");
  if (buffer[size] != '\x7F') Fail("a read wrote behind its buffer");
  return std::string(buffer.data(), copied);
}

// What a value reads as: blanks around it trimmed, one pair of matching
// quotes taken off.
std::string AsRead(std::string_view value) {
  const size_t first = value.find_first_not_of(" \t");
  if (first == std::string_view::npos) return {};
  value = value.substr(first, value.find_last_not_of(" \t") - first + 1);
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
      value.back() == value.front()) {
    value = value.substr(1, value.size() - 2);
  }
  return std::string(value);
}

// Names compare without their blanks and without regard to ASCII case.
bool SameName(std::string_view a, std::string_view b) {
  const auto trim = [](std::string_view text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return std::string_view();
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
  };
  a = trim(a);
  b = trim(b);
  const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    if (lower(a[i]) != lower(b[i])) return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const auto buffer_size = input.ConsumeIntegralInRange<size_t>(0, 300);
  const std::string section = input.ConsumeRandomLengthString(64);
  const std::string key = input.ConsumeRandomLengthString(64);
  const std::string value = input.ConsumeRandomLengthString(256);
  const std::string other_section = input.ConsumeRandomLengthString(64);
  const std::string other_key = input.ConsumeRandomLengthString(64);
  const std::string content = input.ConsumeRemainingBytesAsString();
  {
    std::ofstream out(FilePath(), std::ios::binary | std::ios::trunc);
    out << content;
  }

  Read(section, key, buffer_size);
  const std::string other_before = Read(other_section, other_key, 2048);
  if (vyn::platform::WriteProfileString(section, key, value, FilePath())) {
    if (Read(section, key, 2048) != AsRead(value)) Fail("a written value does not read back");
    if (!SameName(section, other_section) || !SameName(key, other_key)) {
      if (Read(other_section, other_key, 2048) != other_before) Fail("a write changed another key");
    }
  } else if (ReadFile(FilePath()) != content) {
    Fail("a refused write changed the file");
  }
  return 0;
}
