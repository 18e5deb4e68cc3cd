#include "tools/vyn/flash_progress.h"

#include <cmath>
#include <cstdio>

#include "vyn/core/message_types.h"
#include "vyn/core/status.h"

namespace vyn::tool {
namespace {

constexpr int kBarWidth = 30;

std::string KiB(double bytes) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", bytes / 1024);
  return text;
}

std::string Duration(double seconds) {
  const long whole = std::lround(seconds);
  char text[32];
  std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
  return text;
}

// The log's texts are Windows-1252; terminals today read UTF-8. The texts
// use letters of Latin-1 only (umlauts), which keep their code points.
std::string ToUtf8(const std::string& text) {
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      out += c;
    } else if (byte < 0xA0) {
      out += '?';
    } else {
      out += static_cast<char>(0xC0 | (byte >> 6));
      out += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return out;
}

}  // namespace

FlashConsole::FlashConsole(bool terminal, uint32_t image_size)
    : terminal_(terminal), image_size_(image_size) {}

std::string FlashConsole::ProgressText(unsigned percentage) const {
  char head[16];
  std::snprintf(head, sizeof head, "%3u%%", percentage);
  std::string text = head;
  if (image_size_ == 0) return text;
  const double done = static_cast<double>(image_size_) * percentage / 100;
  text += "  " + KiB(done) + "/" + KiB(image_size_) + " KiB";
  const double seconds = std::chrono::duration<double>(last_time_ - first_time_).count();
  if (started_ && percentage > first_percentage_ && seconds > 0) {
    const double rate =
        static_cast<double>(image_size_) * (percentage - first_percentage_) / 100 / seconds;
    text += "  " + KiB(rate) + " KiB/s  " + Duration((image_size_ - done) / rate) + " left";
  }
  return text;
}

void FlashConsole::DrawBar() const {
  const int filled = static_cast<int>(percentage_ * kBarWidth / 100);
  std::string bar = "\r\x1b[K[";
  bar.append(static_cast<size_t>(filled), '#');
  bar.append(static_cast<size_t>(kBarWidth - filled), '.');
  bar += "] " + ProgressText(percentage_);
  std::fputs(bar.c_str(), stderr);
  std::fflush(stderr);
}

void FlashConsole::ShowLine(const std::string& line) {
  std::lock_guard<std::mutex> lock(mutex_);
  if (terminal_ && bar_shown_) std::fputs("\r\x1b[K", stderr);
  std::fprintf(stderr, "%s\n", ToUtf8(line).c_str());
  if (terminal_ && bar_shown_) DrawBar();
  std::fflush(stderr);
  last_shown_ = Clock::now();
}

void FlashConsole::ShowProgress(unsigned percentage) {
  std::lock_guard<std::mutex> lock(mutex_);
  const Clock::time_point now = Clock::now();
  if (!started_) {
    started_ = true;
    first_time_ = now;
    first_percentage_ = percentage;
  }
  last_time_ = now;
  last_shown_ = now;
  percentage_ = percentage;
  if (terminal_) {
    DrawBar();
    // A full bar stays as it is; the lines after it start below.
    bar_shown_ = percentage < 100;
    if (!bar_shown_) std::fputs("\n", stderr);
    return;
  }
  if (percentage >= next_plain_line_ || percentage == 100) {
    std::fprintf(stderr, "programmed %s\n", ProgressText(percentage).c_str());
    std::fflush(stderr);
    while (next_plain_line_ <= percentage) next_plain_line_ += 10;
  }
}

void FlashConsole::Finish() {
  std::lock_guard<std::mutex> lock(mutex_);
  if (terminal_ && bar_shown_) std::fputs("\n", stderr);
  std::fflush(stderr);
  bar_shown_ = false;
}

double FlashConsole::QuietSeconds() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return std::chrono::duration<double>(Clock::now() - last_shown_).count();
}

unsigned FlashConsole::last_percentage() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return percentage_;
}

int32_t ProgressReceiver::ProcessMessage(CVYNMessage& message) {
  if (message.GetMessageType() != MSG_FIRMWARE_TRANSMISSION_PROGRESS ||
      message.GetBufferSize() != 1) {
    return VYN_STATUS_INVALID_DATA;
  }
  console_->ShowProgress(message.GetBuffer()[0]);
  return VYN_STATUS_SUCCESS;
}

}  // namespace vyn::tool
