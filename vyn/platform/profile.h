// INI ("private profile") files, with these rules:
// - sections are headed by "[name]", entries are "key=value" lines;
// - section and key names compare without regard to ASCII letter case;
// - white space around names and values is trimmed, and a value enclosed in
//   a matching pair of double or single quotes loses them on reading;
// - lines without '=' and lines starting with ';' are ignored; CR LF and LF
//   line ends both work; a UTF-8 byte-order mark at the start is skipped;
// - when a section or key occurs more than once, the first occurrence wins;
// - writing creates the file, the section and the key as needed, replaces the
//   value of an existing key in place, and keeps every other line.
// Only regular files are read or written: a FIFO, a device, a directory or a
// socket (also behind a symbolic link) is refused without being waited for,
// and so is a file larger than kMaxProfileFileSize.
//
// A file is read once and kept parsed; a lookup checks the file's identity
// (device, inode, size, modification and change times to the nanosecond)
// and reads it again only when that changed. A file changed within the last
// two seconds of being read is read again on the next lookup as well, since
// file-system clocks are coarser than the times they store: a second change
// in the same clock tick could otherwise go unnoticed.
//
// Thread-safety: any thread. Writes by this process are serialised; writers
// in other processes are not coordinated with.
#pragma once

#include <cstddef>
#include <string>

namespace vyn::platform {

// Largest INI file read or written, 16 MiB: far beyond any settings file,
// small enough that a stray large file costs little memory.
inline constexpr size_t kMaxProfileFileSize = size_t{16} << 20;

enum class ProfileStatus {
  kOk,              // the file was read or written
  kMissing,         // the file does not exist (reading only)
  kNotRegularFile,  // a FIFO, device, directory or socket: refused
  kTooLarge,        // larger than kMaxProfileFileSize (for a write: would become so)
  kRefusedText,     // a name or the value would break the file's structure
  kIoError,         // opening, reading or writing failed; see `error`
};

// What a read or write found, beyond its result.
struct ProfileOutcome {
  ProfileStatus status = ProfileStatus::kOk;
  int error = 0;            // errno of a kIoError
  bool found = false;       // the key exists (its value may be empty)
  size_t value_length = 0;  // full length of the value that was copied
  bool truncated = false;   // the buffer held only part of that value
};

// Copies the value of `key` in `section` into `buffer` (at most size - 1
// characters and a terminating zero) and returns the number of characters
// copied; a missing or refused file, section or key yields `fallback`
// instead. `outcome`, when given, tells why.
size_t ReadProfileString(const std::string& section, const std::string& key,
                         const std::string& fallback, char* buffer, size_t size,
                         const std::string& path, ProfileOutcome* outcome = nullptr);

// Writes key=value into the section; false when the file cannot be written
// or a name or the value would break the file's structure (line breaks, a
// ']' in a section name, a '=' in a key, empty names). `outcome`, when
// given, tells why.
bool WriteProfileString(const std::string& section, const std::string& key,
                        const std::string& value, const std::string& path,
                        ProfileOutcome* outcome = nullptr);

// A short English description of a status ("not a regular file", ...).
const char* DescribeProfileStatus(ProfileStatus status);

}  // namespace vyn::platform
