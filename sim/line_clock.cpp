#include "sim/line_clock.h"

#include <algorithm>

namespace vyn::sim {

void LineClock::SetBaudRate(uint32_t baud_rate) {
  using std::chrono::nanoseconds;
  byte_time_ = baud_rate == 0
                   ? Clock::duration::zero()
                   : std::chrono::duration_cast<Clock::duration>(nanoseconds(
                         (uint64_t{kBitsPerByte} * 1'000'000'000 + baud_rate / 2) / baud_rate));
}

LineClock::Clock::time_point LineClock::Transfer(Clock::time_point now) {
  last_use_ = std::max(last_use_, now) + byte_time_;
  return last_use_;
}

}  // namespace vyn::sim
