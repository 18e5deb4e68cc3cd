#include "tools/vyn/output.h"

#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>

namespace vyn::tool {
namespace {

// How long a line may wait for a full pipe before lines are dropped.
constexpr int kFullPipePatienceMs = 200;

std::atomic<bool> output_broken{false};
std::atomic<bool> output_lost{false};

std::mutex& WriteMutex() {
  static std::mutex mutex;
  return mutex;
}

// Lines dropped since the pipe last took output; guarded by WriteMutex().
unsigned long dropped_lines = 0;

bool WaitWritable(int timeout_ms, int descriptor = STDOUT_FILENO) {
  pollfd watched{descriptor, POLLOUT, 0};
  for (;;) {
    const int ready = poll(&watched, 1, timeout_ms);
    if (ready < 0 && errno == EINTR) continue;
    // POLLERR or POLLHUP: the write below reports what happened.
    return ready > 0;
  }
}

bool WriteAll(const char* data, size_t size) {
  while (size > 0) {
    const ssize_t put = write(STDOUT_FILENO, data, size);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) {
      if (errno == EPIPE) output_broken = true;
      output_lost = true;
      return false;
    }
    data += put;
    size -= static_cast<size_t>(put);
  }
  return true;
}

}  // namespace

bool WriteOutputLine(const std::string& line) { return WriteOutputText(line + "\n"); }

void PrintOutput(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char small[512];
  va_list copy;
  va_copy(copy, arguments);
  const int length = std::vsnprintf(small, sizeof small, format, copy);
  va_end(copy);
  if (length >= 0 && static_cast<size_t>(length) < sizeof small) {
    WriteOutputText(std::string(small, static_cast<size_t>(length)));
  } else if (length >= 0) {
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, arguments);
    text.pop_back();
    WriteOutputText(text);
  }
  va_end(arguments);
}

bool WriteOutputText(const std::string& text) {
  if (output_broken || text.empty()) return false;
  std::lock_guard lock(WriteMutex());
  // Whatever stdio holds goes first, so that lines keep their order.
  std::fflush(stdout);
  // While lines are being dropped, a full pipe is not waited for again.
  if (!WaitWritable(dropped_lines > 0 ? 0 : kFullPipePatienceMs)) {
    // Dropping is deliberate and announced; it does not fail the program.
    ++dropped_lines;
    return false;
  }
  if (dropped_lines > 0) {
    char note[64];
    const int length =
        std::snprintf(note, sizeof note, "... %lu lines dropped: output not read\n", dropped_lines);
    dropped_lines = 0;
    if (!WriteAll(note, static_cast<size_t>(length))) return false;
  }
  return WriteAll(text.data(), text.size());
}

void WriteErrorLine(const std::string& line) {
  if (!WaitWritable(kFullPipePatienceMs, STDERR_FILENO)) return;
  const std::string text = line + "\n";
  const ssize_t ignored = write(STDERR_FILENO, text.data(), text.size());
  static_cast<void>(ignored);
}

bool OutputBroken() { return output_broken; }

bool FinishOutput() {
  const bool flushed = std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
  const int flush_error = errno;
  const bool closed = std::fclose(stdout) == 0;
  if (flushed && closed && !output_lost) return true;
  // A reader that left on purpose (`vyn monitor | head`) needs no message;
  // the exit code still says that not everything arrived.
  if (!output_broken && !(!flushed && flush_error == EPIPE)) {
    std::fprintf(stderr, "vyn: the output could not be written completely\n");
  }
  return false;
}

}  // namespace vyn::tool
