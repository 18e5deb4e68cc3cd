// Puts a terminal's settings back when a command ends. Opening a port
// switches the terminal behind it to raw mode; when that terminal is the
// user's own (`vyn monitor /dev/tty`), leaving it so would leave the shell
// without echo.
//
// Ownership: holds a descriptor of the terminal while it lives.
// Thread-safety: none; one thread constructs and destroys it.
#pragma once

#include <termios.h>

#include <string>

namespace vyn::tool {

class TerminalGuard {
 public:
  // Remembers the settings of the terminal behind `port` (a port name as the
  // library takes it); does nothing for a port that is no terminal.
  explicit TerminalGuard(const std::string& port);
  ~TerminalGuard();  // restores the remembered settings
  TerminalGuard(const TerminalGuard&) = delete;
  TerminalGuard& operator=(const TerminalGuard&) = delete;

 private:
  int descriptor_ = -1;
  termios saved_{};
};

}  // namespace vyn::tool
