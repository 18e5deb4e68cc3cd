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
// the order in which they were called. One lock guards all state; it is
// never held while the simulator's thread waits for the line.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

#include "sim/ccpu_responder.h"
#include "sim/device_state.h"
#include "sim/mcpu_responder.h"
#include "sim/notification_source.h"
#include "sim/outbound_queue.h"
#include "sim/request_reader.h"
#include "support/pseudo_terminal.h"
#include "vyn/platform/wake_up_event.h"

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
  bool LinkTaken() const;
  // Stops the thread and removes terminal, link and own directory; safe to
  // call more than once. The link is removed only while it still points to
  // this simulator's terminal.
  void Stop();
  bool IsRunning() const;

  // The path to open: the link. Set by Start() and kept until the next Start().
  const std::string& port_path() const { return port_path_; }
  // The terminal device the link points to now; empty while unplugged.
  std::string terminal_path() const;

  // Faults for the next frames sent (see outbound_queue.h).
  void DropByte();
  void CorruptChecksum(ChecksumKind kind);
  void SendGarbage(size_t count);
  void Stall(std::chrono::milliseconds duration);
  // The default pause outlasts the 2-second limit after which a receiver
  // gives up a frame that stopped coming.
  void SplitNextFrame(std::chrono::milliseconds pause = std::chrono::milliseconds(2500));
  // Undoes the faults not yet spent: ends a stall, forgets garbage not yet
  // sent, disarms the faults armed for the next frames.
  void ClearFaults();

  // Closes the terminal (every program holding the port sees a hang-up) and
  // removes the link. True once done; false when not running or the
  // simulator's thread did not answer within seconds.
  bool Unplug();
  // Opens a new terminal and points the link at it in one step; a terminal
  // still plugged in is closed afterwards, so this also works as a quick
  // unplug-and-replug. True once done; false when not running or the
  // terminal or link could not be made (the device then stays as it was), or
  // the link was replaced by someone else meanwhile.
  bool Replug();
  bool IsPlugged() const;

  void SetNotifications(bool enabled);
  void SetNotificationPeriod(std::chrono::milliseconds period);
  void SetTwoChannelInput(bool two_channels);

  DeviceSimulatorCounters counters() const;

 private:
  enum class PlugRequest { kNone, kUnplug, kReplug };

  void Run();
  bool RequestPlugChange(PlugRequest request);
  // The following run on the simulator's thread with `mutex_` held.
  void ApplyPlugRequest();
  bool PlugInNewTerminal();
  void PeerLeft();
  void Tick(Clock::time_point now);
  void ReadRequests(Clock::time_point now);
  void Answer(const ReceivedFrame& request);
  void WriteQueued(Clock::time_point now);
  Clock::time_point NextWakeUp(Clock::time_point now, bool* want_write);

  const DeviceSimulatorOptions options_;
  std::string port_path_;
  std::string own_directory_;  // removed by Stop(); empty when the caller gave one
  std::thread thread_;
  platform::WakeUpEvent wake_;

  // Lock order: the only lock; never held while waiting for the line.
  mutable std::mutex mutex_;
  std::condition_variable plug_changed_;
  bool running_ = false;
  bool stop_requested_ = false;
  PlugRequest plug_request_ = PlugRequest::kNone;
  bool plug_result_ = false;
  bool link_taken_ = false;
  // Changed only by the simulator's thread (under the lock), so that thread
  // may read them without it.
  support::PseudoTerminal terminal_;
  bool plugged_ = false;
  bool peer_present_ = false;

  DeviceState state_;
  CcpuResponder ccpu_{state_};
  McpuResponder mcpu_{state_};
  NotificationSource notification_source_{state_};
  RequestReader reader_;
  OutboundQueue queue_;
  bool notifications_enabled_;
  std::chrono::milliseconds notification_period_;
  Clock::time_point next_notification_{};
  Clock::time_point next_tick_{};
  DeviceSimulatorCounters counters_;
};

}  // namespace vyn::sim
