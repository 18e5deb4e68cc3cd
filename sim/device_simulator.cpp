#include "sim/device_simulator.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "vyn/platform/descriptor_io.h"

namespace vyn::sim {
namespace {

using std::chrono::milliseconds;

// The device's control loop runs on its own beat, notifications or not.
constexpr milliseconds kTickPeriod{50};
constexpr milliseconds kLongestWait{1000};
constexpr int kMostBeatsCaughtUp = 1000;
// Notifications are skipped rather than piled up while the reader lags;
// replies are always queued.
constexpr size_t kMaxQueuedFrames = 48;
constexpr size_t kReadChunk = 4096;
constexpr size_t kMaxWritePerRound = 64 * 1024;

// The next beat of a periodic event after `due`; a beat missed because the
// thread was held up is skipped rather than made up in a burst.
DeviceSimulator::Clock::time_point NextBeat(DeviceSimulator::Clock::time_point due,
                                            milliseconds period,
                                            DeviceSimulator::Clock::time_point now) {
  const DeviceSimulator::Clock::time_point next = due + period;
  return next > now ? next : now + period;
}

}  // namespace

DeviceSimulator::DeviceSimulator(DeviceSimulatorOptions options)
    : options_(std::move(options)),
      port_({options_.link_directory, options_.link_name, false}, [this] { LineChanged(); }),
      notifications_enabled_(options_.notifications),
      notification_period_(std::max(options_.notification_period, milliseconds(1))) {
  state_.two_channel_input = options_.two_channel_input;
}

DeviceSimulator::~DeviceSimulator() { Stop(); }

bool DeviceSimulator::Start() {
  if (port_.IsRunning()) return false;
  {
    MutexLock lock(&port_.mutex());
    next_tick_ = next_notification_ = Clock::now();
  }
  return port_.Start([this] { Run(); });
}

void DeviceSimulator::DropByte() {
  MutexLock lock(&port_.mutex());
  queue_.ArmDropByte();
}

void DeviceSimulator::CorruptChecksum(ChecksumKind kind) {
  MutexLock lock(&port_.mutex());
  queue_.ArmCorruptChecksum(kind);
}

void DeviceSimulator::SendGarbage(size_t count) {
  {
    MutexLock lock(&port_.mutex());
    queue_.PushGarbage(count);
  }
  port_.Wake();
}

void DeviceSimulator::Stall(milliseconds duration) {
  {
    MutexLock lock(&port_.mutex());
    queue_.Stall(Clock::now() + duration);
  }
  port_.Wake();
}

void DeviceSimulator::ClearFaults() {
  {
    MutexLock lock(&port_.mutex());
    queue_.CancelFaults();
  }
  port_.Wake();
}

void DeviceSimulator::SplitNextFrame(milliseconds pause) {
  MutexLock lock(&port_.mutex());
  queue_.ArmSplit(pause);
}

void DeviceSimulator::SetNotifications(bool enabled) {
  {
    MutexLock lock(&port_.mutex());
    notifications_enabled_ = enabled;
    next_notification_ = Clock::now();
  }
  port_.Wake();
}

void DeviceSimulator::SetNotificationPeriod(milliseconds period) {
  {
    MutexLock lock(&port_.mutex());
    notification_period_ = std::max(period, milliseconds(1));
    next_notification_ = Clock::now();
  }
  port_.Wake();
}

void DeviceSimulator::SetTwoChannelInput(bool two_channels) {
  MutexLock lock(&port_.mutex());
  state_.two_channel_input = two_channels;
}

DeviceSimulatorCounters DeviceSimulator::counters() const {
  MutexLock lock(&port_.mutex());
  DeviceSimulatorCounters snapshot = counters_;
  snapshot.bad_requests = reader_.bad_frames();
  snapshot.stray_bytes = reader_.stray_bytes();
  snapshot.stale_requests = reader_.stale_frames();
  snapshot.faults_applied = queue_.faults_applied();
  return snapshot;
}

// The port calls this with its lock held, which the analysis cannot see
// through the callback.
void DeviceSimulator::LineChanged() VYN_NO_THREAD_SAFETY_ANALYSIS { PeerLeft(); }

void DeviceSimulator::PeerLeft() {
  counters_.lost_frames += queue_.frames();
  peer_present_ = false;
  queue_.Clear();
  reader_.Reset();
}

void DeviceSimulator::Run() {
  MutexLock lock(&port_.mutex());
  while (port_.NextRound()) {
    Clock::time_point now = Clock::now();
    Tick(now);
    bool want_write = false;
    const Clock::time_point wake_at = NextWakeUp(now, &want_write);
    // With nobody on the port the master reports a hang-up at once, so the
    // thread sleeps until a program opens it.
    const platform::DescriptorReadiness readiness =
        peer_present_ ? port_.Wait(true, want_write, wake_at) : port_.WaitForOpen(wake_at);
    if (!port_.plugged()) continue;
    now = Clock::now();
    if (!readiness.hung_up && !peer_present_) {
      peer_present_ = true;
      next_notification_ = now;
    }
    if (readiness.readable) ReadRequests(now);
    if (readiness.hung_up && peer_present_) PeerLeft();
    if (peer_present_) WriteQueued(now);
  }
}

void DeviceSimulator::Tick(Clock::time_point now) {
  reader_.DropStaleFrame(now);
  // The control loop's beats are caught up when the thread wakes, so that
  // it need not wake for each of them while nobody watches; a long gap is
  // cut short, as the device would have settled anyway.
  for (int beats = 0; now >= next_tick_; ++beats) {
    if (beats == kMostBeatsCaughtUp) {
      next_tick_ = now + kTickPeriod;
      break;
    }
    state_.Advance();
    notification_source_.Sample();
    next_tick_ += kTickPeriod;
  }
  if (!notifications_enabled_ || !port_.plugged() || !peer_present_ || now < next_notification_)
    return;
  if (queue_.frames() + 3 <= kMaxQueuedFrames) {
    queue_.PushFrame(notification_source_.Status(), FrameKind::kNotification);
    queue_.PushFrame(notification_source_.Trace(), FrameKind::kNotification);
    queue_.PushFrame(notification_source_.Debug(), FrameKind::kNotification);
  }
  next_notification_ = NextBeat(next_notification_, notification_period_, now);
}

DeviceSimulator::Clock::time_point DeviceSimulator::NextWakeUp(Clock::time_point now,
                                                               bool* want_write) {
  Clock::time_point wake_at = now + kLongestWait;
  // Notifications wait for a program on the port; without this condition a
  // missed beat would keep the wake-up time in the past and the loop
  // spinning. The control loop's beats never need a wake-up of their own:
  // Tick catches them up, samples included.
  if (notifications_enabled_ && peer_present_) wake_at = std::min(wake_at, next_notification_);
  Clock::time_point stale_at;
  if (reader_.StaleDeadline(&stale_at)) wake_at = std::min(wake_at, stale_at);
  if (peer_present_ && !queue_.empty()) {
    Clock::time_point resume_at = wake_at;
    if (queue_.Ready(now, &resume_at) != nullptr) {
      *want_write = true;
    } else {
      wake_at = std::min(wake_at, resume_at);
    }
  }
  return wake_at;
}

void DeviceSimulator::ReadRequests(Clock::time_point now) {
  uint8_t buffer[kReadChunk];
  std::vector<ReceivedFrame> frames;
  for (;;) {
    const platform::IoResult got =
        platform::ReadDescriptor(port_.master_descriptor(), buffer, sizeof buffer);
    if (got.status == platform::IoStatus::kHungUp) {
      PeerLeft();
      break;
    }
    if (got.status != platform::IoStatus::kDone) break;
    counters_.bytes_received += got.count;
    reader_.Feed(buffer, got.count, now, &frames);
  }
  for (const ReceivedFrame& frame : frames) Answer(frame);
}

void DeviceSimulator::Answer(const ReceivedFrame& request) {
  ++counters_.requests;
  std::optional<std::vector<uint8_t>> reply =
      request.mcpu ? mcpu_.Answer(request) : ccpu_.Answer(request);
  if (!reply) {
    ++counters_.unknown_requests;
    return;
  }
  // A reply to a request whose sender has gone already is lost with it.
  if (!peer_present_) {
    ++counters_.lost_frames;
    return;
  }
  queue_.PushFrame(std::move(*reply), FrameKind::kReply);
}

void DeviceSimulator::WriteQueued(Clock::time_point now) {
  Clock::time_point resume_at;
  // A long run of garbage to a fast reader goes out over several rounds, so
  // that the lock is free for the commands in between.
  size_t written = 0;
  while (written < kMaxWritePerRound) {
    const std::vector<uint8_t>* bytes = queue_.Ready(now, &resume_at);
    if (bytes == nullptr) break;
    const platform::IoResult put =
        platform::WriteDescriptor(port_.master_descriptor(), bytes->data(), bytes->size());
    if (put.status == platform::IoStatus::kHungUp) {
      PeerLeft();
      return;
    }
    if (put.status != platform::IoStatus::kDone) return;
    counters_.bytes_sent += put.count;
    written += put.count;
    if (queue_.front_kind() == FrameKind::kGarbage) counters_.garbage_bytes += put.count;
    const std::optional<FrameKind> finished = queue_.Consume(put.count);
    if (finished == FrameKind::kReply) ++counters_.replies;
    if (finished == FrameKind::kNotification) ++counters_.notifications;
  }
}

}  // namespace vyn::sim
