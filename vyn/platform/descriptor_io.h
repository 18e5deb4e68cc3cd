// Non-blocking reads and writes on a device descriptor (a serial port or a
// pseudo-terminal), and the wait that serves both directions of a link from
// one thread: the descriptor and a wake-up event are watched together, so a
// frame queued by another thread goes out at once instead of at the next
// polling tick.
//
// A device that has gone away (an unplugged adapter, the other side of a
// pseudo-terminal closed) shows as IoStatus::kHungUp on reading, or as
// `hung_up` from the wait: callers close the descriptor and reopen by path.
//
// Thread-safety: the functions keep no state. The descriptor must stay open
// for the duration of a call; closing it from another thread meanwhile is a
// race the caller must avoid.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace vyn::platform {

class WakeUpEvent;

enum class IoStatus {
  kDone,        // `count` bytes were transferred (at least one)
  kWouldBlock,  // nothing could be transferred without waiting
  kHungUp,      // the device is gone: EIO, ENXIO, or end of input on reading
  kFailed,      // any other error, in `error`
};

struct IoResult {
  IoStatus status = IoStatus::kFailed;
  size_t count = 0;
  int error = 0;  // errno of the failing call, 0 otherwise
};

// One read of up to `size` bytes; interrupted calls are repeated.
IoResult ReadDescriptor(int descriptor, uint8_t* buffer, size_t size);
// One write of up to `size` bytes; a partial write is kDone with the count.
IoResult WriteDescriptor(int descriptor, const uint8_t* data, size_t size);

struct DescriptorReadiness {
  bool readable = false;
  bool writable = false;
  bool hung_up = false;  // hang-up or error condition on the descriptor
  bool woken = false;    // the wake-up event is signalled (still set: Clear() it)
};

// Waits until `descriptor` is readable, or writable when `want_writable`, or
// reports a hang-up, or `wake_up` is signalled, or `timeout_ms` has passed
// (negative: no limit; 0: only looks). A negative descriptor waits on the
// wake-up event alone; `wake_up` may be null. Interrupted waits are resumed
// with the time that is left. All flags false means the time ran out (or the
// wait itself failed, which the caller treats the same way).
DescriptorReadiness WaitForDescriptor(int descriptor, bool want_writable, WakeUpEvent* wake_up,
                                      int timeout_ms);

// The same wait ending at a moment of the steady clock, with the resolution
// of the system's timers rather than whole milliseconds (a simulated line at
// 115,200 baud hands over a byte every 95 microseconds): `deadline` none
// means no limit, one in the past only looks. Readability is watched only
// when `want_readable`; a hang-up always is.
DescriptorReadiness WaitForDescriptorUntil(
    int descriptor, bool want_readable, bool want_writable, WakeUpEvent* wake_up,
    std::optional<std::chrono::steady_clock::time_point> deadline);

}  // namespace vyn::platform
