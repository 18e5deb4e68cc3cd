// The texts of the system log: the clean-up of accepted texts, the event
// type names, the CSV header and line, the screen line, and the conversion
// of acceptance times to local calendar time. All of it runs on the log's
// output thread except CleanLogText, which runs where the text is accepted.
//
// Thread-safety: the functions keep no state; a LocalTimeCache belongs to
// one thread.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/log/system_log_entry.h"

namespace vyn::log {

inline constexpr char kCsvHeader[] =
    "Number;Date;Time;ms;ms [GMT];Event;Reference;Caller;Context;Message\r\n";

// Double quotes become single quotes (the message column is quoted); then
// trailing line feeds, carriage returns and line feeds again are removed, in
// three passes. Line breaks inside the text stay.
void CleanLogText(std::string* text);

// "information", "error", ...; "unknown" for 0 and "???" for any value that
// is not one of the named bits.
const char* EventTypeText(uint32_t type);

// Index 0..8 of the per-type counters: unknown (every unnamed value too),
// exception, assert, fatal, error, warning, information, command, debug.
int EventTypeCounterIndex(uint32_t type);

// Replaces `line` with the entry's CSV line, CR LF included.
void FormatCsvLine(const _VYN_SYSTEM_LOG_EX_ENTRY& entry, std::string* line);
// Replaces `line` with the entry's line for the view, CR LF included.
void FormatScreenLine(const _VYN_SYSTEM_LOG_EX_ENTRY& entry, std::string* line);

// Local calendar time of a UTC file time. Consecutive entries mostly share
// their second, so the zone conversion is done once per second.
class LocalTimeCache {
 public:
  SYSTEMTIME ToLocalTime(int64_t utc_file_time);

 private:
  int64_t second_ = -1;
  SYSTEMTIME fields_ = {};
};

}  // namespace vyn::log
