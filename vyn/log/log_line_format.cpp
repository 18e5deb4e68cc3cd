#include "vyn/log/internal/log_line_format.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "vyn/platform/system_time.h"

namespace vyn::log {
namespace {

constexpr char kCsvLineFormat[] =
    "%" PRId64 ";%04i-%02i-%02i;%02i:%02i:%02i;%03i;%" PRId64 ";%s;%s;%s;%s;\"%s\"\r\n";
constexpr char kScreenLineFormat[] = "%04i-%02i-%02i %02i:%02i:%02i.%03i > %s%s\r\n";
constexpr char kReferenceSeparator[] = " > ";

// Room for everything but the strings: two 64-bit numbers, seven calendar
// fields of at most five digits, separators, quotes and CR LF.
constexpr size_t kFixedRoom = 128;

constexpr int64_t kFileTimePerSecond = 10000000;
constexpr int64_t kFileTimePerMillisecond = 10000;

// The formats are passed to snprintf directly, so that the compiler checks
// them; `line` is sized for `bound` characters and a terminating zero first,
// then cut to what snprintf wrote.
void ShrinkTo(std::string* line, int written, size_t bound) {
  line->resize(written < 0 ? 0 : std::min(static_cast<size_t>(written), bound));
}

}  // namespace

void CleanLogText(std::string* text) {
  // find() scans with memchr; most texts hold no quote at all.
  for (size_t at = text->find('"'); at != std::string::npos; at = text->find('"', at + 1)) {
    (*text)[at] = '\'';
  }
  const auto strip = [text](char trailing) {
    while (!text->empty() && text->back() == trailing) text->pop_back();
  };
  strip('\n');
  strip('\r');
  strip('\n');
}

const char* EventTypeText(uint32_t type) {
  switch (type) {
    case VYN_EVENT_UNKNOWN:
      return "unknown";
    case VYN_EVENT_EXCEPTION:
      return "exception";
    case VYN_EVENT_ASSERT:
      return "assert";
    case VYN_EVENT_FATAL:
      return "fatal";
    case VYN_EVENT_ERROR:
      return "error";
    case VYN_EVENT_WARNING:
      return "warning";
    case VYN_EVENT_INFORMATION:
      return "information";
    case VYN_EVENT_COMMAND:
      return "command";
    case VYN_EVENT_DEBUG:
      return "debug";
    default:
      return "???";
  }
}

int EventTypeCounterIndex(uint32_t type) {
  switch (type) {
    case VYN_EVENT_EXCEPTION:
      return 1;
    case VYN_EVENT_ASSERT:
      return 2;
    case VYN_EVENT_FATAL:
      return 3;
    case VYN_EVENT_ERROR:
      return 4;
    case VYN_EVENT_WARNING:
      return 5;
    case VYN_EVENT_INFORMATION:
      return 6;
    case VYN_EVENT_COMMAND:
      return 7;
    case VYN_EVENT_DEBUG:
      return 8;
    default:
      return 0;
  }
}

void FormatCsvLine(const _VYN_SYSTEM_LOG_EX_ENTRY& entry, std::string* line) {
  const char* event = EventTypeText(entry.eType);
  const SYSTEMTIME& at = entry.stTime;
  const size_t bound = kFixedRoom + std::strlen(event) + entry.strReference.size() +
                       entry.strCaller.size() + entry.strContext.size() + entry.strText.size();
  line->resize(bound + 1);
  const int written =
      std::snprintf(line->data(), line->size(), kCsvLineFormat, entry.llNumber, at.wYear, at.wMonth,
                    at.wDay, at.wHour, at.wMinute, at.wSecond, at.wMilliseconds, entry.llTimeGMT,
                    event, entry.strReference.c_str(), entry.strCaller.c_str(),
                    entry.strContext.c_str(), entry.strText.c_str());
  ShrinkTo(line, written, bound);
}

void FormatScreenLine(const _VYN_SYSTEM_LOG_EX_ENTRY& entry, std::string* line) {
  const SYSTEMTIME& at = entry.stTime;
  std::string prefix;
  if (!entry.strReference.empty()) prefix = entry.strReference + kReferenceSeparator;
  const size_t bound = kFixedRoom + prefix.size() + entry.strText.size();
  line->resize(bound + 1);
  const int written = std::snprintf(line->data(), line->size(), kScreenLineFormat, at.wYear,
                                    at.wMonth, at.wDay, at.wHour, at.wMinute, at.wSecond,
                                    at.wMilliseconds, prefix.c_str(), entry.strText.c_str());
  ShrinkTo(line, written, bound);
}

SYSTEMTIME LocalTimeCache::ToLocalTime(int64_t utc_file_time) {
  const int64_t second = utc_file_time / kFileTimePerSecond;
  if (second != second_) {
    int64_t local = 0;
    fields_ = SYSTEMTIME{};
    if (vyn::platform::FileTimeToLocalFileTime(second * kFileTimePerSecond, &local)) {
      vyn::platform::FileTimeToSystemTime(local, &fields_);
    }
    second_ = second;
  }
  SYSTEMTIME result = fields_;
  result.wMilliseconds = static_cast<uint16_t>(utc_file_time / kFileTimePerMillisecond % 1000);
  return result;
}

}  // namespace vyn::log
