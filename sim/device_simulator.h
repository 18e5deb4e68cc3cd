// A simulated device on a pseudo-terminal, for tests and for trying the
// library without hardware.
//
// The device is reached through a stable path (a symbolic link to the
// pseudo-terminal's slave device) that a serial driver opens like any port.
// It answers every request of its command set in both framings, sends status,
// trace and debug notifications when they are switched on, and ignores
// requests whose checksums are wrong, as the real device does. On demand it
// damages the frames it sends, stalls, or is unplugged and plugged in again
// under the same path, and it counts what went in and out so that a test can
// compare both sides of the line.
//
// Usage:
//   vyn::sim::DeviceSimulator device;           // default: two-channel input
//   if (!device.Start()) { ... }
//   OpenMyPort(device.port_path());             // e.g. /tmp/vyn-sim-Ab12Cd/device
//   device.CorruptChecksum(vyn::sim::ChecksumKind::kPayload);  // hits the next frame
//   device.Unplug();                            // the port hangs up
//   device.Replug();                            // same path, new terminal
//   device.Stop();
//
// Ownership: the simulator owns its thread, the pseudo-terminal, the link
// and (when it created it) the link's directory; Stop() or destruction
// removes them.
// Thread-safety: Start(), Stop() and destruction belong to the owning
// thread. Every other method may be called from any thread while the
// simulator runs; fault methods take effect on the simulator's thread, in
// the order in which they were called. One lock, the port's, guards all
// state; it is never held while the simulator's thread waits for the line.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "sim/ccpu_responder.h"
#include "sim/device_state.h"
#include "sim/mcpu_responder.h"
#include "sim/notification_source.h"
#include "sim/outbound_queue.h"
#include "sim/pluggable_port.h"
#include "sim/request_reader.h"
#include "vyn/base/thread_annotations.h"

namespace vyn::sim {

struct DeviceSimulatorOptions {
  // Where the port link is made; empty: a new directory below /tmp, removed
  // again when the simulator stops. A given directory must exist.
  std::string link_directory;
  std::string link_name = "device";
  // Joystick (two PWM channels) or rocker (one).
  bool two_channel_input = true;
  bool notifications = false;
  // Every period brings one status, one trace and one debug notification.
  std::chrono::milliseconds notification_period{100};
};

struct DeviceSimulatorCounters {
  uint64_t requests = 0;          // frames received with both checksums right
  uint64_t bad_requests = 0;      // frames with a wrong checksum or length: not answered
  uint64_t unknown_requests = 0;  // good frames with an id the device does not know: not answered
  uint64_t stale_requests = 0;    // frames given up because their sender stopped halfway
  uint64_t replies = 0;           // reply frames written completely (damaged ones included)
  uint64_t notifications = 0;     // notification frames written completely
  uint64_t lost_frames = 0;       // frames thrown away because nobody had the port open
  uint64_t bytes_received = 0;
  uint64_t bytes_sent = 0;      // garbage included
  uint64_t stray_bytes = 0;     // bytes received outside any frame
  uint64_t garbage_bytes = 0;   // garbage written on request
  uint64_t faults_applied = 0;  // frames dropped short, corrupted or split
};

class DeviceSimulator {
 public:
  using Clock = std::chrono::steady_clock;

  explicit DeviceSimulator(DeviceSimulatorOptions options = {});
  ~DeviceSimulator();
  DeviceSimulator(const DeviceSimulator&) = delete;
  DeviceSimulator& operator=(const DeviceSimulator&) = delete;

  // Makes the pseudo-terminal and the link and starts the thread. False when
  // any of them fails (nothing is left behind then) or when already running.
  // The link is created only where nothing exists yet; LinkTaken() tells
  // that this was why Start() failed.
  [[nodiscard]] bool Start();
  bool LinkTaken() const { return port_.LinkTaken(); }
  // Stops the thread and removes terminal, link and own directory; safe to
  // call more than once. The link is removed only while it still points to
  // this simulator's terminal.
  void Stop() { port_.Stop(); }
  bool IsRunning() const { return port_.IsRunning(); }

  // The path to open: the link. Set by Start() and kept until the next Start().
  const std::string& port_path() const { return port_.path(); }
  // The terminal device the link points to now; empty while unplugged.
  std::string terminal_path() const { return port_.terminal_path(); }

  // Faults for the next frames sent (see outbound_queue.h).
  void DropByte() VYN_EXCLUDES(port_.mutex());
  void CorruptChecksum(ChecksumKind kind) VYN_EXCLUDES(port_.mutex());
  void SendGarbage(size_t count) VYN_EXCLUDES(port_.mutex());
  void Stall(std::chrono::milliseconds duration) VYN_EXCLUDES(port_.mutex());
  // The default pause outlasts the 2-second limit after which a receiver
  // gives up a frame that stopped coming.
  void SplitNextFrame(std::chrono::milliseconds pause = std::chrono::milliseconds(2500))
      VYN_EXCLUDES(port_.mutex());
  // Undoes the faults not yet spent: ends a stall, forgets garbage not yet
  // sent, disarms the faults armed for the next frames.
  void ClearFaults() VYN_EXCLUDES(port_.mutex());

  // Closes the terminal (every program holding the port sees a hang-up) and
  // removes the link. True once done; false when not running or the
  // simulator's thread did not answer within seconds.
  bool Unplug() { return port_.Unplug(); }
  // Opens a new terminal and points the link at it in one step; a terminal
  // still plugged in is closed afterwards, so this also works as a quick
  // unplug-and-replug. True once done; false when not running or the
  // terminal or link could not be made (the device then stays as it was), or
  // the link was replaced by someone else meanwhile.
  bool Replug() { return port_.Replug(); }
  bool IsPlugged() const { return port_.IsPlugged(); }

  void SetNotifications(bool enabled) VYN_EXCLUDES(port_.mutex());
  void SetNotificationPeriod(std::chrono::milliseconds period) VYN_EXCLUDES(port_.mutex());
  void SetTwoChannelInput(bool two_channels) VYN_EXCLUDES(port_.mutex());

  DeviceSimulatorCounters counters() const VYN_EXCLUDES(port_.mutex());

 private:
  void Run() VYN_EXCLUDES(port_.mutex());
  // A new terminal or none: whatever was under way on the old one is lost.
  void LineChanged();
  // The following run on the simulator's thread with the port's lock held.
  void PeerLeft() VYN_REQUIRES(port_.mutex());
  void Tick(Clock::time_point now) VYN_REQUIRES(port_.mutex());
  void ReadRequests(Clock::time_point now) VYN_REQUIRES(port_.mutex());
  void Answer(const ReceivedFrame& request) VYN_REQUIRES(port_.mutex());
  void WriteQueued(Clock::time_point now) VYN_REQUIRES(port_.mutex());
  Clock::time_point NextWakeUp(Clock::time_point now, bool* want_write) VYN_REQUIRES(port_.mutex());

  const DeviceSimulatorOptions options_;
  // Declared mutable for the const accessors, which take its lock.
  mutable PluggablePort port_;

  bool peer_present_ VYN_GUARDED_BY(port_.mutex()) = false;
  DeviceState state_ VYN_GUARDED_BY(port_.mutex());
  CcpuResponder ccpu_ VYN_GUARDED_BY(port_.mutex()){state_};
  McpuResponder mcpu_ VYN_GUARDED_BY(port_.mutex()){state_};
  NotificationSource notification_source_ VYN_GUARDED_BY(port_.mutex()){state_};
  RequestReader reader_ VYN_GUARDED_BY(port_.mutex());
  OutboundQueue queue_ VYN_GUARDED_BY(port_.mutex());
  bool notifications_enabled_ VYN_GUARDED_BY(port_.mutex());
  std::chrono::milliseconds notification_period_ VYN_GUARDED_BY(port_.mutex());
  Clock::time_point next_notification_ VYN_GUARDED_BY(port_.mutex()){};
  Clock::time_point next_tick_ VYN_GUARDED_BY(port_.mutex()){};
  DeviceSimulatorCounters counters_ VYN_GUARDED_BY(port_.mutex());
};

}  // namespace vyn::sim
