#include "sim/pluggable_port.h"

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <utility>

#include "support/file_system.h"

namespace vyn::sim {
namespace {

constexpr std::chrono::milliseconds kPlugChangeLimit{5000};
// Where the slave's opens cannot be watched, a port that nobody has open is
// looked at again at this interval: the master reports a hang-up at once
// while nobody is there, so it cannot be waited on.
constexpr std::chrono::milliseconds kOpenLookInterval{5};

}  // namespace

PluggablePort::PluggablePort(PluggablePortOptions options, std::function<void()> line_changed)
    : options_(std::move(options)), line_changed_(std::move(line_changed)) {}

PluggablePort::~PluggablePort() { Stop(); }

bool PluggablePort::Start(std::function<void()> serve) {
  if (thread_.joinable() || !wake_.IsValid()) return false;
  std::string directory = options_.link_directory;
  if (directory.empty()) {
    directory = support::CreateUniqueDirectory("/tmp/vyn-sim-");
    if (directory.empty()) return false;
    own_directory_ = directory;
  }
  path_ = directory + "/" + options_.link_name;
  {
    MutexLock lock(&mutex_);
    link_taken_ = false;
    if (PlugInNewTerminal()) {
      running_ = true;
      stop_requested_ = false;
      plug_request_ = PlugRequest::kNone;
      thread_ = std::thread(std::move(serve));
      return true;
    }
  }
  if (!own_directory_.empty()) support::RemoveEmptyDirectory(own_directory_);
  own_directory_.clear();
  return false;
}

void PluggablePort::Stop() {
  {
    MutexLock lock(&mutex_);
    stop_requested_ = true;
  }
  wake_.Signal();
  if (thread_.joinable()) thread_.join();
  MutexLock lock(&mutex_);
  const bool was_plugged = plugged_;
  if (plugged_) support::RemoveSymbolicLinkTo(path_, terminal_.slave_path());
  terminal_.Close();
  plugged_ = false;
  if (was_plugged) line_changed_();
  running_ = false;
  if (!own_directory_.empty()) support::RemoveEmptyDirectory(own_directory_);
  own_directory_.clear();
  plug_changed_.notify_all();
}

bool PluggablePort::LinkTaken() const {
  MutexLock lock(&mutex_);
  return link_taken_;
}

bool PluggablePort::IsRunning() const {
  MutexLock lock(&mutex_);
  return running_;
}

std::string PluggablePort::terminal_path() const {
  MutexLock lock(&mutex_);
  return terminal_.slave_path();
}

bool PluggablePort::IsPlugged() const {
  MutexLock lock(&mutex_);
  return plugged_;
}

bool PluggablePort::Unplug() { return RequestPlugChange(PlugRequest::kUnplug); }

bool PluggablePort::Replug() { return RequestPlugChange(PlugRequest::kReplug); }

// The waits go through the standard lock under mutex_, which the lock
// analysis cannot follow.
bool PluggablePort::RequestPlugChange(PlugRequest request) VYN_NO_THREAD_SAFETY_ANALYSIS {
  std::unique_lock lock(mutex_.native());
  if (!running_ || stop_requested_) return false;
  // One change at a time: a second caller waits for the first to be done.
  while (plug_request_ != PlugRequest::kNone && running_) plug_changed_.wait(lock);
  if (!running_) return false;
  plug_request_ = request;
  wake_.Signal();
  const Clock::time_point limit = Clock::now() + kPlugChangeLimit;
  while (plug_request_ != PlugRequest::kNone && running_) {
    if (plug_changed_.wait_until(lock, limit) == std::cv_status::timeout) return false;
  }
  return running_ && plug_result_;
}

bool PluggablePort::NextRound() {
  if (plug_request_ != PlugRequest::kNone) {
    if (plug_request_ == PlugRequest::kUnplug) {
      if (plugged_) PullCable();
      plug_result_ = true;
    } else {
      plug_result_ = PlugInNewTerminal();
    }
    plug_request_ = PlugRequest::kNone;
    plug_changed_.notify_all();
  }
  return !stop_requested_;
}

bool PluggablePort::PlugInNewTerminal() {
  support::PseudoTerminal fresh;
  if (!fresh.Open()) return false;
  if (options_.hold_slave_open) {
    if (!fresh.HoldSlaveOpen()) return false;
  } else {
    // Set before the link exists, so that no program opens the port
    // unnoticed; without it WaitForOpen() looks at short intervals instead.
    static_cast<void>(fresh.WatchSlaveOpens());
  }
  const bool linked =
      plugged_ ? support::RepointSymbolicLink(path_, terminal_.slave_path(), fresh.slave_path())
               : support::CreateSymbolicLink(fresh.slave_path(), path_);
  if (!linked) {
    link_taken_ = plugged_ || errno == EEXIST;
    return false;
  }
  // Moving the new terminal in closes the old one: its users see a hang-up
  // while the link already leads to the new one.
  terminal_ = std::move(fresh);
  plugged_ = true;
  line_changed_();
  return true;
}

void PluggablePort::PullCable() {
  // The link goes first, so nobody opens a terminal that is about to vanish.
  support::RemoveSymbolicLinkTo(path_, terminal_.slave_path());
  terminal_.Close();
  plugged_ = false;
  line_changed_();
}

platform::DescriptorReadiness PluggablePort::Wait(bool want_read, bool want_write,
                                                  std::optional<Clock::time_point> deadline) {
  return WaitOn(terminal_.master_descriptor(), want_read, want_write, deadline);
}

platform::DescriptorReadiness PluggablePort::WaitForOpen(
    std::optional<Clock::time_point> deadline) {
  const int watch = terminal_.open_watch_descriptor();
  if (watch < 0 && plugged_) {
    const Clock::time_point look_at = Clock::now() + kOpenLookInterval;
    deadline = deadline ? std::min(*deadline, look_at) : look_at;
  }
  WaitOn(watch, true, false, deadline);
  if (!plugged_) return {};
  terminal_.DrainOpenWatch();
  // A deadline in the past only looks.
  return platform::WaitForDescriptorUntil(terminal_.master_descriptor(), true, false, nullptr,
                                          Clock::time_point{});
}

platform::DescriptorReadiness PluggablePort::WaitOn(int descriptor, bool want_read, bool want_write,
                                                    std::optional<Clock::time_point> deadline) {
  mutex_.Unlock();
  const platform::DescriptorReadiness readiness =
      platform::WaitForDescriptorUntil(descriptor, want_read, want_write, &wake_, deadline);
  mutex_.Lock();
  wake_.Clear();
  return readiness;
}

}  // namespace vyn::sim
