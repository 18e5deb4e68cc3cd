#include "vyn/platform/dump_writer_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <string>

#include "vyn/platform/crash_record.h"
#include "vyn/platform/helper_programs.h"

extern char** environ;

namespace vyn::platform {
namespace {

char g_writer_path[PATH_MAX];
bool g_writer_known = false;

// The local zone as offsets from UTC, each valid from a moment on: the one
// in force at preparation and the changes of the next 400 days.
struct ZoneChange {
  int64_t from;    // Unix seconds
  int64_t offset;  // seconds east of UTC
};
constexpr int kMaxZoneChanges = 16;
ZoneChange g_zone[kMaxZoneChanges] = {{INT64_MIN, 0}};
int g_zone_count = 1;

int64_t OffsetAt(time_t moment) {
  tm local{};
  if (localtime_r(&moment, &local) == nullptr) return 0;
  return local.tm_gmtoff;
}

void PrepareZone() {
  const time_t now = time(nullptr);
  int64_t current = OffsetAt(now);
  g_zone[0] = {INT64_MIN, current};
  g_zone_count = 1;
  time_t previous = now;
  constexpr time_t kDay = 86400;
  for (int day = 1; day <= 400 && g_zone_count < kMaxZoneChanges; ++day) {
    const time_t probe = now + day * kDay;
    const int64_t offset = OffsetAt(probe);
    if (offset != current) {
      // The exact second of the change lies in (previous, probe].
      time_t low = previous;
      time_t high = probe;
      while (high - low > 1) {
        const time_t middle = low + (high - low) / 2;
        if (OffsetAt(middle) == current) {
          low = middle;
        } else {
          high = middle;
        }
      }
      g_zone[g_zone_count++] = {high, offset};
      current = offset;
    }
    previous = probe;
  }
}

// Civil date of a day count since 1970-01-01 (proleptic Gregorian).
void CivilFromDays(int64_t days, int* year, int* month, int* day) {
  days += 719468;
  const int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const int64_t day_of_era = days - era * 146097;
  const int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const int64_t shifted_month = (5 * day_of_year + 2) / 153;
  *day = static_cast<int>(day_of_year - (153 * shifted_month + 2) / 5 + 1);
  *month = static_cast<int>(shifted_month < 10 ? shifted_month + 3 : shifted_month - 9);
  *year = static_cast<int>(year_of_era + era * 400 + (*month <= 2 ? 1 : 0));
}

// Writes `value` in decimal (or hexadecimal with a 0x prefix) into `text`.
void FormatNumber(uint64_t value, bool hexadecimal, char* text, size_t size) {
  char digits[24];
  size_t count = 0;
  const uint64_t base = hexadecimal ? 16 : 10;
  do {
    const auto digit = static_cast<unsigned>(value % base);
    digits[count++] = static_cast<char>(digit < 10 ? '0' + digit : 'a' + digit - 10);
    value /= base;
  } while (value != 0 && count < sizeof digits);
  size_t at = 0;
  if (hexadecimal && size > 2) {
    text[at++] = '0';
    text[at++] = 'x';
  }
  while (count > 0 && at + 1 < size) text[at++] = digits[--count];
  text[at] = '\0';
}

void FillRecord(const EXCEPTION_POINTERS* pointers, uint32_t dump_type, CrashRecord* record) {
  record->magic = kCrashRecordMagic;
  record->version = kCrashRecordVersion;
  record->thread_id = SignalSafeThreadId();
  record->dump_type = dump_type;
  if (pointers == nullptr) return;
  record->context_address = reinterpret_cast<uintptr_t>(pointers->ContextRecord);
  const EXCEPTION_RECORD* exception = pointers->ExceptionRecord;
  if (exception == nullptr) return;
  record->has_exception = 1;
  record->exception_code = exception->ExceptionCode;
  record->exception_flags = exception->ExceptionFlags;
  record->exception_address = reinterpret_cast<uintptr_t>(exception->ExceptionAddress);
  record->number_parameters = exception->NumberParameters < EXCEPTION_MAXIMUM_PARAMETERS
                                  ? exception->NumberParameters
                                  : EXCEPTION_MAXIMUM_PARAMETERS;
  for (uint32_t i = 0; i < record->number_parameters; ++i) {
    record->exception_information[i] = exception->ExceptionInformation[i];
  }
}

uint64_t MonotonicMilliseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

// The new process between the raw fork and the start of the writer: it has
// a copy of the crashed process's memory with only this one thread, so it
// makes raw system calls only (no library state, no sanitizer hooks).
[[noreturn]] void RunChild(const int go[2], const int report[2], int file, char** argv) {
  syscall(SYS_close, go[1]);
  syscall(SYS_close, report[0]);
  // Wait until the parent has allowed us to trace it.
  char byte = 0;
  while (syscall(SYS_read, go[0], &byte, 1) < 0 && errno == EINTR) {
  }
  syscall(SYS_fcntl, file, F_SETFD, 0);
  syscall(SYS_fcntl, report[1], F_SETFD, 0);
  syscall(SYS_execve, g_writer_path, argv, environ);
  syscall(SYS_exit_group, 127);
  __builtin_unreachable();
}

// Reads the writer's report; false when it ended without one or the time ran
// out (then it has been killed).
bool WaitForReport(int descriptor, long child, uint32_t timeout_ms, DumpWriterReport* report,
                   int* error) {
  auto* bytes = reinterpret_cast<char*>(report);
  size_t got = 0;
  const uint64_t deadline = MonotonicMilliseconds() + timeout_ms;
  for (;;) {
    const uint64_t now = MonotonicMilliseconds();
    if (now >= deadline) {
      kill(static_cast<pid_t>(child), SIGKILL);
      *error = ETIMEDOUT;
      return false;
    }
    pollfd waiting{descriptor, POLLIN, 0};
    const int ready = poll(&waiting, 1, static_cast<int>(deadline - now));
    if (ready < 0 && errno != EINTR) {
      *error = errno;
      return false;
    }
    if (ready <= 0) continue;
    const ssize_t read_now = read(descriptor, bytes + got, sizeof *report - got);
    if (read_now < 0 && errno == EINTR) continue;
    if (read_now <= 0) break;
    got += static_cast<size_t>(read_now);
    if (got == sizeof *report) return true;
  }
  *error = ECHILD;  // the writer ended without reporting
  return false;
}

}  // namespace

bool PrepareDumpWriter() {
  PrepareZone();
  const std::string path = FindHelperProgram(kDumpWriterProgram);
  g_writer_known = !path.empty() && path.size() < sizeof g_writer_path;
  if (g_writer_known) std::memcpy(g_writer_path, path.c_str(), path.size() + 1);
  return g_writer_known;
}

DumpWriterState CheckDumpWriter() {
  if (!g_writer_known) return DumpWriterState::kMissing;
  if (access(g_writer_path, X_OK) == 0) return DumpWriterState::kReady;
  return errno == ENOENT || errno == ENOTDIR ? DumpWriterState::kMissing
                                             : DumpWriterState::kUnusable;
}

DumpWriterResult RunDumpWriter(int file, const EXCEPTION_POINTERS* pointers, uint32_t dump_type,
                               uint32_t timeout_ms) {
  DumpWriterResult result;
  if (!g_writer_known) {
    result.error = ENOENT;
    return result;
  }
  // The record lives in this frame, which stays until the writer is done.
  CrashRecord record{};
  FillRecord(pointers, dump_type, &record);
  char pid_text[24];
  char record_text[24];
  char file_text[24];
  char report_text[24];
  int go[2];
  int report[2];
  if (pipe2(go, O_CLOEXEC) != 0) {
    result.error = errno;
    return result;
  }
  if (pipe2(report, O_CLOEXEC) != 0) {
    result.error = errno;
    close(go[0]);
    close(go[1]);
    return result;
  }
  FormatNumber(static_cast<uint64_t>(getpid()), false, pid_text, sizeof pid_text);
  FormatNumber(reinterpret_cast<uintptr_t>(&record), true, record_text, sizeof record_text);
  FormatNumber(static_cast<uint64_t>(file), false, file_text, sizeof file_text);
  FormatNumber(static_cast<uint64_t>(report[1]), false, report_text, sizeof report_text);
  char* argv[] = {g_writer_path, pid_text, record_text, file_text, report_text, nullptr};

  const long child = syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0);
  if (child == 0) RunChild(go, report, file, argv);
  const int clone_error = errno;
  close(go[0]);
  close(report[1]);
  if (child < 0) {
    close(go[1]);
    close(report[0]);
    result.error = clone_error;
    return result;
  }
  prctl(PR_SET_PTRACER, static_cast<unsigned long>(child), 0, 0, 0);
  const ssize_t sent = write(go[1], "g", 1);
  static_cast<void>(sent);
  close(go[1]);

  DumpWriterReport answer{};
  const bool answered = WaitForReport(report[0], child, timeout_ms, &answer, &result.error);
  close(report[0]);
  int status = 0;
  while (waitpid(static_cast<pid_t>(child), &status, __WALL) < 0 && errno == EINTR) {
  }
  if (answered) {
    result.written = answer.written == 1;
    result.error = result.written ? 0 : static_cast<int>(answer.error);
  }
  return result;
}

int CreateDumpFile(const char* path, int* error) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (unlink(path) != 0 && errno != ENOENT) break;  // cannot remove: empty it below
    const int file = open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (file >= 0) return file;
    if (errno != EEXIST) {
      if (error != nullptr) *error = errno;
      return -1;
    }
    // Another process created it between our removal and our creation.
  }
  const int file = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0 && error != nullptr) *error = errno;
  return file;
}

bool ReplaceDumpFileContent(int file, const char* text, uint32_t size) {
  if (ftruncate(file, 0) != 0) return false;
  size_t done = 0;
  while (done < size) {
    const ssize_t written = pwrite(file, text + done, size - done, static_cast<off_t>(done));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

void CloseDumpFile(int file) {
  if (file >= 0) close(file);
}

SYSTEMTIME SignalSafeLocalTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  int64_t offset = g_zone[0].offset;
  for (int i = 1; i < g_zone_count; ++i) {
    if (now.tv_sec >= g_zone[i].from) offset = g_zone[i].offset;
  }
  const int64_t local = now.tv_sec + offset;
  int64_t days = local / 86400;
  int64_t seconds = local % 86400;
  if (seconds < 0) {
    seconds += 86400;
    --days;
  }
  int year = 0;
  int month = 0;
  int day = 0;
  CivilFromDays(days, &year, &month, &day);
  SYSTEMTIME time{};
  time.wYear = static_cast<uint16_t>(year);
  time.wMonth = static_cast<uint16_t>(month);
  time.wDay = static_cast<uint16_t>(day);
  time.wDayOfWeek = static_cast<uint16_t>(((days % 7) + 11) % 7);  // 1970-01-01 was a Thursday
  time.wHour = static_cast<uint16_t>(seconds / 3600);
  time.wMinute = static_cast<uint16_t>(seconds / 60 % 60);
  time.wSecond = static_cast<uint16_t>(seconds % 60);
  time.wMilliseconds = static_cast<uint16_t>(now.tv_nsec / 1000000);
  return time;
}

uint32_t SignalSafeThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }

void SignalSafeSleep(uint32_t milliseconds) {
  timespec wait{static_cast<time_t>(milliseconds / 1000),
                static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&wait, &wait) != 0 && errno == EINTR) {
  }
}

void ExitProcessNow(int code) {
  // The raw call: the library's _exit may be wrapped by tools that run
  // checks at exit (a leak checker would change the exit code).
  syscall(SYS_exit_group, code);
  __builtin_unreachable();
}

}  // namespace vyn::platform
