#include "support/pseudo_terminal.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

#include <utility>

namespace vyn::support {
namespace {

// Raw mode on the slave. Opening and closing the slave here also puts the
// master into its "no program on the other side" state, so that a hang-up is
// reported consistently until the first real user opens the slave.
bool MakeSlaveRaw(const char* path) {
  const int slave = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (slave < 0) return false;
  termios settings{};
  bool configured = tcgetattr(slave, &settings) == 0;
  if (configured) {
    cfmakeraw(&settings);
    settings.c_cflag |= CLOCAL | CREAD;
    configured = tcsetattr(slave, TCSANOW, &settings) == 0;
  }
  close(slave);
  return configured;
}

}  // namespace

PseudoTerminal::~PseudoTerminal() { Close(); }

PseudoTerminal::PseudoTerminal(PseudoTerminal&& other) noexcept
    : master_(std::exchange(other.master_, -1)),
      held_slave_(std::exchange(other.held_slave_, -1)),
      open_watch_(std::exchange(other.open_watch_, -1)),
      slave_path_(std::move(other.slave_path_)) {
  other.slave_path_.clear();
}

PseudoTerminal& PseudoTerminal::operator=(PseudoTerminal&& other) noexcept {
  if (this != &other) {
    Close();
    master_ = std::exchange(other.master_, -1);
    held_slave_ = std::exchange(other.held_slave_, -1);
    open_watch_ = std::exchange(other.open_watch_, -1);
    slave_path_ = std::move(other.slave_path_);
    other.slave_path_.clear();
  }
  return *this;
}

bool PseudoTerminal::Open() {
  Close();
  const int master = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (master < 0) return false;
  char name[128];
  if (grantpt(master) != 0 || unlockpt(master) != 0 || ptsname_r(master, name, sizeof name) != 0 ||
      !MakeSlaveRaw(name)) {
    close(master);
    return false;
  }
  master_ = master;
  slave_path_ = name;
  return true;
}

bool PseudoTerminal::HoldSlaveOpen() {
  if (master_ < 0) return false;
  if (held_slave_ >= 0) return true;
  held_slave_ = open(slave_path_.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  return held_slave_ >= 0;
}

bool PseudoTerminal::WatchSlaveOpens() {
  if (master_ < 0) return false;
  if (open_watch_ >= 0) return true;
  const int watch = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (watch < 0) return false;
  if (inotify_add_watch(watch, slave_path_.c_str(), IN_OPEN) < 0) {
    close(watch);
    return false;
  }
  open_watch_ = watch;
  return true;
}

void PseudoTerminal::DrainOpenWatch() {
  if (open_watch_ < 0) return;
  alignas(inotify_event) char events[1024];
  while (read(open_watch_, events, sizeof events) > 0) {
  }
}

void PseudoTerminal::Close() {
  if (open_watch_ >= 0) close(open_watch_);
  open_watch_ = -1;
  if (held_slave_ >= 0) close(held_slave_);
  held_slave_ = -1;
  if (master_ >= 0) close(master_);
  master_ = -1;
  slave_path_.clear();
}

}  // namespace vyn::support
