// The port of a simulated device: a pseudo-terminal reached through a stable
// path (a symbolic link to its slave), a thread that serves it, and the
// cable that can be pulled and plugged in again under the same path.
//
// The owner (a simulator) gives the port the body of its serving thread and
// a hook for a changed line, and keeps all of its own state under the
// port's lock, mutex(). The serving thread runs rounds:
//
//   MutexLock lock(&port_.mutex());
//   while (port_.NextRound()) {                // applies Unplug()/Replug()
//     ... decide what to wait for ...
//     const auto ready = port_.Wait(read, write, deadline);  // lock released meanwhile
//     ... read, answer, write ...
//   }
//
// The link is created only where nothing exists (LinkTaken() tells that
// this was why Start() failed), re-pointed only while it still leads to this
// port's terminal, and removed only then: a file or another simulator's link
// at that path stays.
//
// Ownership: the port owns its thread, the terminal, the link and (when it
// created it) the link's directory; Stop() or destruction removes them.
// Thread-safety: Start(), Stop() and destruction belong to the owning
// thread, which must not hold mutex() then. The other public methods without
// a lock requirement may be called from any thread while the port runs.
// Lock order: mutex() is the only lock. The line-changed hook runs with it
// held (it is the owner's own code and calls nothing outside the owner); it
// is never held while the serving thread waits for the line, nor while Stop()
// waits for that thread to end.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "support/pseudo_terminal.h"
#include "vyn/base/mutex.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/wake_up_event.h"

namespace vyn::sim {

struct PluggablePortOptions {
  // Where the link is made; empty: a new directory below /tmp, removed again
  // when the port stops. A given directory must exist.
  std::string link_directory;
  std::string link_name;
  // Keeps the slave open, so that the master stays quiet while no program
  // has the port and Wait() needs no time limit; otherwise the port watches
  // the slave's opens (see PseudoTerminal::WatchSlaveOpens) where it can.
  bool hold_slave_open = false;
};

class PluggablePort {
 public:
  using Clock = std::chrono::steady_clock;

  // `line_changed` runs with mutex() held whenever the terminal is replaced
  // or closed: in Start(), Unplug(), Replug(), PullCable() and Stop().
  PluggablePort(PluggablePortOptions options, std::function<void()> line_changed);
  ~PluggablePort();
  PluggablePort(const PluggablePort&) = delete;
  PluggablePort& operator=(const PluggablePort&) = delete;

  // Makes the directory, the terminal and the link and runs `serve` on a
  // thread of its own. False when any of them fails (nothing is left behind
  // then) or when already running.
  [[nodiscard]] bool Start(std::function<void()> serve) VYN_EXCLUDES(mutex_);
  // True when the last Start() failed because something was at the link's path.
  bool LinkTaken() const VYN_EXCLUDES(mutex_);
  // Ends the thread and removes terminal, link and own directory; safe to
  // call more than once.
  void Stop() VYN_EXCLUDES(mutex_);
  bool IsRunning() const VYN_EXCLUDES(mutex_);

  // The link. Set by Start() and kept until the next Start().
  const std::string& path() const { return path_; }
  // The terminal device the link points to now; empty while unplugged.
  std::string terminal_path() const VYN_EXCLUDES(mutex_);
  bool IsPlugged() const VYN_EXCLUDES(mutex_);

  // Closes the terminal and removes the link. True once done; false when not
  // running or the serving thread did not answer within seconds.
  bool Unplug() VYN_EXCLUDES(mutex_);
  // Opens a new terminal and points the link at it in one step; a terminal
  // still plugged in is closed afterwards (its users see a hang-up while the
  // link already leads to the new one). True once done; false when not
  // running, or the terminal or link could not be made (the port then stays
  // as it was), or the link was replaced by someone else meanwhile.
  bool Replug() VYN_EXCLUDES(mutex_);

  // The lock of the port and of its owner's state.
  Mutex& mutex() VYN_RETURN_CAPABILITY(mutex_) { return mutex_; }
  // Ends the serving thread's current Wait() early, from any thread.
  void Wake() { wake_.Signal(); }

  // For the serving thread. Applies a pending Unplug() or Replug(); false
  // once the thread is to end.
  bool NextRound() VYN_REQUIRES(mutex_);
  // Releases the lock until the terminal's master is readable (when
  // `want_read`) or writable (when `want_write`) or hangs up, Wake() is
  // called, or `deadline` passes (none: no limit); the wait ends at the
  // deadline itself, not at a whole millisecond. Unplugged, only Wake() and
  // the deadline end it.
  platform::DescriptorReadiness Wait(bool want_read, bool want_write,
                                     std::optional<Clock::time_point> deadline)
      VYN_REQUIRES(mutex_);
  // For a port nobody may have open: waits until a program opens it (on the
  // watch of the slave's opens; without one, at most a few milliseconds),
  // Wake() is called or `deadline` passes, then looks at the master without
  // waiting. Its readiness tells whether somebody has the port open now
  // (not `hung_up`) and has written to it.
  platform::DescriptorReadiness WaitForOpen(std::optional<Clock::time_point> deadline)
      VYN_REQUIRES(mutex_);
  bool plugged() const VYN_REQUIRES(mutex_) { return plugged_; }
  // -1 while unplugged.
  int master_descriptor() const VYN_REQUIRES(mutex_) { return terminal_.master_descriptor(); }
  // The terminal broke: the cable is treated as pulled.
  void PullCable() VYN_REQUIRES(mutex_);

 private:
  enum class PlugRequest { kNone, kUnplug, kReplug };

  bool RequestPlugChange(PlugRequest request) VYN_EXCLUDES(mutex_);
  bool PlugInNewTerminal() VYN_REQUIRES(mutex_);
  platform::DescriptorReadiness WaitOn(int descriptor, bool want_read, bool want_write,
                                       std::optional<Clock::time_point> deadline)
      VYN_REQUIRES(mutex_);

  const PluggablePortOptions options_;
  const std::function<void()> line_changed_;
  std::string path_;
  std::string own_directory_;  // removed by Stop(); empty when the caller gave one
  std::thread thread_;
  platform::WakeUpEvent wake_;

  mutable Mutex mutex_;
  std::condition_variable plug_changed_;  // waits on mutex_
  bool running_ VYN_GUARDED_BY(mutex_) = false;
  bool stop_requested_ VYN_GUARDED_BY(mutex_) = false;
  PlugRequest plug_request_ VYN_GUARDED_BY(mutex_) = PlugRequest::kNone;
  bool plug_result_ VYN_GUARDED_BY(mutex_) = false;
  bool link_taken_ VYN_GUARDED_BY(mutex_) = false;
  support::PseudoTerminal terminal_ VYN_GUARDED_BY(mutex_);
  bool plugged_ VYN_GUARDED_BY(mutex_) = false;
};

}  // namespace vyn::sim
