#include "sim/device_simulator.h"

#include <algorithm>
#include <cerrno>
#include <utility>
#include <vector>

#include "support/file_system.h"
#include "vyn/platform/descriptor_io.h"

namespace vyn::sim {
namespace {

using std::chrono::milliseconds;

// The device's control loop runs on its own beat, notifications or not.
constexpr milliseconds kTickPeriod{50};
// With nobody on the port the terminal reports a hang-up at once, so the
// thread waits for an open of the port instead, or, where opens cannot be
// watched, looks for a newcomer at this interval.
constexpr milliseconds kPeerLookInterval{5};
constexpr milliseconds kLongestWait{1000};
constexpr int kMostBeatsCaughtUp = 1000;
constexpr milliseconds kPlugChangeLimit{5000};
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
      notifications_enabled_(options_.notifications),
      notification_period_(std::max(options_.notification_period, milliseconds(1))) {
  state_.two_channel_input = options_.two_channel_input;
}

DeviceSimulator::~DeviceSimulator() { Stop(); }

bool DeviceSimulator::Start() {
  if (thread_.joinable() || !wake_.IsValid()) return false;
  std::string directory = options_.link_directory;
  if (directory.empty()) {
    directory = support::CreateUniqueDirectory("/tmp/vyn-sim-");
    if (directory.empty()) return false;
    own_directory_ = directory;
  }
  port_path_ = directory + "/" + options_.link_name;
  std::unique_lock lock(mutex_);
  link_taken_ = false;
  if (!PlugInNewTerminal()) {
    lock.unlock();
    if (!own_directory_.empty()) support::RemoveEmptyDirectory(own_directory_);
    own_directory_.clear();
    return false;
  }
  running_ = true;
  stop_requested_ = false;
  plug_request_ = PlugRequest::kNone;
  next_tick_ = next_notification_ = Clock::now();
  thread_ = std::thread(&DeviceSimulator::Run, this);
  return true;
}

void DeviceSimulator::Stop() {
  {
    std::lock_guard lock(mutex_);
    stop_requested_ = true;
  }
  wake_.Signal();
  if (thread_.joinable()) thread_.join();
  std::lock_guard lock(mutex_);
  running_ = false;
  if (plugged_) support::RemoveSymbolicLinkTo(port_path_, terminal_.slave_path());
  terminal_.Close();
  plugged_ = false;
  peer_present_ = false;
  if (!own_directory_.empty()) support::RemoveEmptyDirectory(own_directory_);
  own_directory_.clear();
  plug_changed_.notify_all();
}

bool DeviceSimulator::LinkTaken() const {
  std::lock_guard lock(mutex_);
  return link_taken_;
}

bool DeviceSimulator::IsRunning() const {
  std::lock_guard lock(mutex_);
  return running_;
}

std::string DeviceSimulator::terminal_path() const {
  std::lock_guard lock(mutex_);
  return terminal_.slave_path();
}

void DeviceSimulator::DropByte() {
  std::lock_guard lock(mutex_);
  queue_.ArmDropByte();
}

void DeviceSimulator::CorruptChecksum(ChecksumKind kind) {
  std::lock_guard lock(mutex_);
  queue_.ArmCorruptChecksum(kind);
}

void DeviceSimulator::SendGarbage(size_t count) {
  {
    std::lock_guard lock(mutex_);
    queue_.PushGarbage(count);
  }
  wake_.Signal();
}

void DeviceSimulator::Stall(milliseconds duration) {
  {
    std::lock_guard lock(mutex_);
    queue_.Stall(Clock::now() + duration);
  }
  wake_.Signal();
}

void DeviceSimulator::ClearFaults() {
  {
    std::lock_guard lock(mutex_);
    queue_.CancelFaults();
  }
  wake_.Signal();
}

void DeviceSimulator::SplitNextFrame(milliseconds pause) {
  std::lock_guard lock(mutex_);
  queue_.ArmSplit(pause);
}

bool DeviceSimulator::Unplug() { return RequestPlugChange(PlugRequest::kUnplug); }

bool DeviceSimulator::Replug() { return RequestPlugChange(PlugRequest::kReplug); }

bool DeviceSimulator::IsPlugged() const {
  std::lock_guard lock(mutex_);
  return plugged_;
}

void DeviceSimulator::SetNotifications(bool enabled) {
  {
    std::lock_guard lock(mutex_);
    notifications_enabled_ = enabled;
    next_notification_ = Clock::now();
  }
  wake_.Signal();
}

void DeviceSimulator::SetNotificationPeriod(milliseconds period) {
  {
    std::lock_guard lock(mutex_);
    notification_period_ = std::max(period, milliseconds(1));
    next_notification_ = Clock::now();
  }
  wake_.Signal();
}

void DeviceSimulator::SetTwoChannelInput(bool two_channels) {
  std::lock_guard lock(mutex_);
  state_.two_channel_input = two_channels;
}

DeviceSimulatorCounters DeviceSimulator::counters() const {
  std::lock_guard lock(mutex_);
  DeviceSimulatorCounters snapshot = counters_;
  snapshot.bad_requests = reader_.bad_frames();
  snapshot.stray_bytes = reader_.stray_bytes();
  snapshot.stale_requests = reader_.stale_frames();
  snapshot.faults_applied = queue_.faults_applied();
  return snapshot;
}

bool DeviceSimulator::RequestPlugChange(PlugRequest request) {
  std::unique_lock lock(mutex_);
  if (!running_ || stop_requested_) return false;
  // One change at a time: a second caller waits for the first to be done.
  plug_changed_.wait(lock, [this] { return plug_request_ == PlugRequest::kNone || !running_; });
  if (!running_) return false;
  plug_request_ = request;
  wake_.Signal();
  const bool done = plug_changed_.wait_for(
      lock, kPlugChangeLimit, [this] { return plug_request_ == PlugRequest::kNone || !running_; });
  return done && running_ && plug_result_;
}

void DeviceSimulator::ApplyPlugRequest() {
  if (plug_request_ == PlugRequest::kNone) return;
  if (plug_request_ == PlugRequest::kUnplug) {
    if (plugged_) {
      // The link goes first, so nobody opens a terminal that is about to vanish.
      support::RemoveSymbolicLinkTo(port_path_, terminal_.slave_path());
      terminal_.Close();
      plugged_ = false;
      PeerLeft();
    }
    plug_result_ = true;
  } else {
    plug_result_ = PlugInNewTerminal();
  }
  plug_request_ = PlugRequest::kNone;
  plug_changed_.notify_all();
}

bool DeviceSimulator::PlugInNewTerminal() {
  support::PseudoTerminal fresh;
  if (!fresh.Open()) return false;
  // Set before the link exists, so that no program opens the port unnoticed;
  // without it the thread looks for newcomers at short intervals instead.
  static_cast<void>(fresh.WatchSlaveOpens());
  // The link is made only where nothing is, and re-pointed only while it is
  // still ours: a file or another simulator's link at that path stays.
  const bool linked = plugged_ ? support::RepointSymbolicLink(port_path_, terminal_.slave_path(),
                                                              fresh.slave_path())
                               : support::CreateSymbolicLink(fresh.slave_path(), port_path_);
  if (!linked) {
    link_taken_ = errno == EEXIST || plugged_;
    return false;
  }
  // Moving the new terminal in closes the old one: its users see a hang-up
  // while the link already leads to the new one.
  terminal_ = std::move(fresh);
  plugged_ = true;
  PeerLeft();
  return true;
}

void DeviceSimulator::PeerLeft() {
  counters_.lost_frames += queue_.frames();
  peer_present_ = false;
  queue_.Clear();
  reader_.Reset();
}

void DeviceSimulator::Run() {
  std::unique_lock lock(mutex_);
  while (!stop_requested_) {
    ApplyPlugRequest();
    Clock::time_point now = Clock::now();
    Tick(now);
    bool want_write = false;
    const Clock::time_point wake_at = NextWakeUp(now, &want_write);
    auto timeout = std::chrono::duration_cast<milliseconds>(wake_at - now).count();
    timeout = std::clamp<long long>(timeout, 0, kLongestWait.count());
    int descriptor = -1;
    if (plugged_ && peer_present_) {
      descriptor = terminal_.master_descriptor();
    } else if (plugged_ && terminal_.open_watch_descriptor() >= 0) {
      // Readable when a program opens the port.
      descriptor = terminal_.open_watch_descriptor();
    } else if (plugged_) {
      timeout = std::min<long long>(timeout, kPeerLookInterval.count());
    }
    lock.unlock();
    platform::DescriptorReadiness readiness =
        platform::WaitForDescriptor(descriptor, want_write, &wake_, static_cast<int>(timeout));
    if (plugged_ && !peer_present_) {
      terminal_.DrainOpenWatch();
      readiness = platform::WaitForDescriptor(terminal_.master_descriptor(), false, nullptr, 0);
    }
    lock.lock();
    wake_.Clear();
    if (!plugged_ || stop_requested_) continue;
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
  if (!notifications_enabled_ || !plugged_ || !peer_present_ || now < next_notification_) return;
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
        platform::ReadDescriptor(terminal_.master_descriptor(), buffer, sizeof buffer);
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
        platform::WriteDescriptor(terminal_.master_descriptor(), bytes->data(), bytes->size());
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
