#include "vyn/platform/message_box.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "vyn/platform/helper_programs.h"

extern char** environ;

namespace vyn::platform {
namespace {

char g_dialog_path[PATH_MAX];
bool g_has_dialog = false;
char g_host_path[PATH_MAX];
char g_host_target[PATH_MAX + 64];  // "<library>,<entry point>"
bool g_has_host = false;

constexpr size_t kShownTextSize = 4096;

// Windows-1252 to UTF-8, CR LF to LF; the result is cut at a whole
// character when it does not fit.
void ToDisplayText(const char* text, char* shown, size_t size) {
  // The code points of 0x80 to 0x9F; 0 marks the five unassigned bytes.
  static const uint16_t kHigh[32] = {
      0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021, 0x02C6, 0x2030, 0x0160,
      0x2039, 0x0152, 0,      0x017D, 0,      0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022,
      0x2013, 0x2014, 0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};
  size_t at = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    const auto byte = static_cast<unsigned char>(*c);
    if (byte == '\r' && c[1] == '\n') continue;
    uint32_t code = byte;
    if (byte >= 0x80 && byte < 0xA0) code = kHigh[byte - 0x80] != 0 ? kHigh[byte - 0x80] : '?';
    char encoded[3];
    size_t length = 0;
    if (code < 0x80) {
      encoded[length++] = static_cast<char>(code);
    } else if (code < 0x800) {
      encoded[length++] = static_cast<char>(0xC0 | (code >> 6));
      encoded[length++] = static_cast<char>(0x80 | (code & 0x3F));
    } else {
      encoded[length++] = static_cast<char>(0xE0 | (code >> 12));
      encoded[length++] = static_cast<char>(0x80 | ((code >> 6) & 0x3F));
      encoded[length++] = static_cast<char>(0x80 | (code & 0x3F));
    }
    if (at + length + 1 > size) break;
    std::memcpy(shown + at, encoded, length);
    at += length;
  }
  shown[at] = '\0';
}

void WriteAll(int descriptor, const char* text) {
  size_t left = std::strlen(text);
  while (left > 0) {
    const ssize_t written = write(descriptor, text, left);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    text += written;
    left -= static_cast<size_t>(written);
  }
}

const char* DialogKind(uint32_t type) {
  switch (type & 0xF0) {
    case 0x10:
      return "--error";
    case 0x30:
      return "--warning";
    default:
      return "--info";
  }
}

// True when the dialog was shown (whatever the user answered).
bool ShowDialog(const char* text, const char* caption, uint32_t type) {
  char* argv[] = {g_dialog_path,
                  const_cast<char*>(DialogKind(type)),
                  const_cast<char*>("--no-markup"),
                  const_cast<char*>("--title"),
                  const_cast<char*>(caption),
                  const_cast<char*>("--text"),
                  const_cast<char*>(text),
                  nullptr};
  pid_t child = -1;
  if (posix_spawn(&child, g_dialog_path, nullptr, nullptr, argv, environ) != 0) return false;
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return true;  // reaped elsewhere: it did run
  }
  // 0 is OK, 1 a closed window; anything else means no dialog appeared.
  return WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == 1);
}

}  // namespace

void PrepareMessageBoxDisplay() {
  g_has_dialog = false;
  // The library never changes the environment; an application that does so
  // while it installs the crash handlers races with itself.
  const char* display = std::getenv("DISPLAY");          // NOLINT(concurrency-mt-unsafe)
  const char* wayland = std::getenv("WAYLAND_DISPLAY");  // NOLINT(concurrency-mt-unsafe)
  const bool has_display =
      (display != nullptr && display[0] != '\0') || (wayland != nullptr && wayland[0] != '\0');
  const char* search = std::getenv("PATH");  // NOLINT(concurrency-mt-unsafe)
  if (!has_display || search == nullptr) return;
  std::string folders(search);
  size_t start = 0;
  while (start <= folders.size()) {
    size_t end = folders.find(':', start);
    if (end == std::string::npos) end = folders.size();
    const std::string candidate =
        (end > start ? folders.substr(start, end - start) : std::string(".")) + "/zenity";
    if (candidate.size() < sizeof g_dialog_path && access(candidate.c_str(), X_OK) == 0) {
      std::memcpy(g_dialog_path, candidate.c_str(), candidate.size() + 1);
      g_has_dialog = true;
      return;
    }
    start = end + 1;
  }
}

bool PrepareMessageBoxHost(const char* entry_point) {
  const std::string host = FindHelperProgram(kMessageBoxHostProgram);
  const std::string target = GetLibraryPath() + "," + entry_point;
  g_has_host = !host.empty() && !GetLibraryPath().empty() && host.size() < sizeof g_host_path &&
               target.size() < sizeof g_host_target;
  if (!g_has_host) return false;
  std::memcpy(g_host_path, host.c_str(), host.size() + 1);
  std::memcpy(g_host_target, target.c_str(), target.size() + 1);
  return true;
}

void ShowMessageBoxHere(const char* text, const char* caption, uint32_t type) {
  char shown_text[kShownTextSize];
  char shown_caption[kShownTextSize / 4];
  ToDisplayText(text, shown_text, sizeof shown_text);
  ToDisplayText(caption, shown_caption, sizeof shown_caption);
  if (g_has_dialog && ShowDialog(shown_text, shown_caption, type)) return;
  WriteAll(2, shown_caption);
  WriteAll(2, "\n");
  WriteAll(2, shown_text);
  WriteAll(2, "\n");
}

bool StartMessageBoxHost(const char* text, const char* caption, uint32_t type) {
  if (!g_has_host) return false;
  char type_text[16];
  size_t count = 0;
  char digits[16];
  do {
    digits[count++] = static_cast<char>('0' + type % 10);
    type /= 10;
  } while (type != 0);
  for (size_t i = 0; i < count; ++i) type_text[i] = digits[count - 1 - i];
  type_text[count] = '\0';
  // The texts travel as separate arguments, never through a shell, so
  // quotes and other special characters arrive unchanged.
  char* argv[] = {g_host_path, g_host_target, const_cast<char*>(text), const_cast<char*>(caption),
                  type_text,   nullptr};
  pid_t child = -1;
  return posix_spawn(&child, g_host_path, nullptr, nullptr, argv, environ) == 0;
}

}  // namespace vyn::platform
