// What the serial device and the bootloader port both ask of a terminal.
#pragma once

#include <termios.h>

#include <cstdint>

namespace vyn::platform {

// The termios speed constant for a baud rate; B0 for a rate the terminal
// interface has no constant for.
speed_t TerminalSpeedOf(uint32_t baud);

// True when `descriptor` is the slave side of a pseudo-terminal, which
// keeps no parity setting and has no line to hang up.
bool IsPseudoTerminal(int descriptor);

}  // namespace vyn::platform
