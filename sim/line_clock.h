// The time one direction of a serial line needs to carry bytes at a given
// baud rate, kept as a clock of its own.
//
// Each byte occupies the line for one byte time (11 bit times: start bit,
// eight data bits, parity and stop bit) and its transfer ends one byte time
// after the later of the line's last use and the moment it is handed over.
// The line's schedule is therefore independent of when the simulator gets
// round to a byte: being late with one byte does not push back the ones
// after it, so the simulator's own overhead does not add up over a long
// transfer, and a line left idle does not save up time for a burst.
//
// A baud rate of 0 makes an unpaced line on which every transfer ends at the
// moment it is handed over.
//
// Thread-safety: none; the owner serialises access.
#pragma once

#include <chrono>
#include <cstdint>

namespace vyn::sim {

class LineClock {
 public:
  using Clock = std::chrono::steady_clock;

  static constexpr uint32_t kBitsPerByte = 11;

  explicit LineClock(uint32_t baud_rate = 0) { SetBaudRate(baud_rate); }

  void SetBaudRate(uint32_t baud_rate);
  Clock::duration byte_time() const { return byte_time_; }

  // Takes one byte handed over at `now` and returns the moment its transfer
  // ends.
  Clock::time_point Transfer(Clock::time_point now);
  // The line is idle from now on; a later transfer starts when it is handed over.
  void Reset() { last_use_ = Clock::time_point{}; }

 private:
  Clock::duration byte_time_{};
  Clock::time_point last_use_{};
};

}  // namespace vyn::sim
