// What the probe plug-ins and the plug-in tests agree on: the event numbers
// and the records that the events' data point to. Both sides are built by
// the same compiler with the same flags, so the records may hold C++ types.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vyn::test {

// Lines "<probe> <what>" in the order in which the probes wrote them, from
// any thread.
class ProbeJournal {
 public:
  void Add(std::string line) {
    std::lock_guard lock(mutex_);
    lines_.push_back(std::move(line));
  }
  std::vector<std::string> Take() {
    std::lock_guard lock(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> lines_;
};

// The states of the gate (a std::atomic<int>) that holds an event handler
// inside the plug-in until the test opens it.
enum ProbeGateState : int { kGateClosed, kGateEntered, kGateOpen };

struct ProbeForward {
  const char* name;
  int32_t event;
};

enum ProbeEvent : int32_t {
  kProbeAttachJournal = 1,      // data: a ProbeJournal that outlives the probe
  kProbeWaitAtGate = 2,         // data: the gate; waits at most 60 s
  kProbeUnloadSelf = 3,         // answers UnloadPlugin of its own (first) record
  kProbeUnloadAll = 4,          // answers UnloadAllPlugins
  kProbeLoad = 5,               // data: a file name; answers LoadPlugin
  kProbeForward = 6,            // data: a ProbeForward; answers that event's status
  kProbeThrow = 8,              // throws
  kProbeThrowOnTerminate = 9,   // the next PluginTerminate throws
  kProbeAnnounceTerminate = 10  // PluginTerminate prints a line to standard output
};

}  // namespace vyn::test
