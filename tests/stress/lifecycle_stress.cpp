// Lifecycle stress: random interleavings of everything that starts and stops
// at once, for a given number of seconds (default 10):
//   vyn_lifecycle_stress [SECONDS]
// - the system log started and stopped while entries come in;
// - the library's queue started and terminated with a dispatching receiver
//   registered (which Terminate deletes);
// - monitored threads created, renamed from inside before their start,
//   listed by the registry and stopped;
// - the serial port opened, closed, terminated and restarted while four
//   threads send, and the simulated device unplugged and plugged in again.
// Every step runs under a time limit: a step that does not end in time is a
// hang, reported by name, and the process aborts. A final quiet phase checks
// that every frame the port accepted reaches the device exactly once.
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "sim/device_simulator.h"
#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"
#include "vyn/device/command_set.h"
#include "vyn/log/system_log.h"
#include "vyn/queue/message_queue.h"
#include "vyn/serial/serial_port.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread_monitor.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr auto kStepLimit = std::chrono::seconds(30);

// What each worker is doing now, and since when; the guard reads them.
struct Step {
  std::atomic<const char*> name{"idle"};
  std::atomic<int64_t> since{0};
};

int64_t Now() { return Clock::now().time_since_epoch().count(); }

class Worker {
 public:
  Worker(const char* name, std::function<void(std::mt19937&)> round)
      : name_(name), round_(std::move(round)) {}

  void Start(const std::atomic<bool>& stop, unsigned seed) {
    thread_ = std::thread([this, &stop, seed] {
      std::mt19937 random(seed);
      while (!stop) {
        step_.since = Now();
        step_.name = name_;
        round_(random);
        step_.name = "idle";
        ++rounds_;
      }
    });
  }
  void Join() { thread_.join(); }
  const Step& step() const { return step_; }
  const char* name() const { return name_; }
  int64_t rounds() const { return rounds_; }

 private:
  const char* name_;
  std::function<void(std::mt19937&)> round_;
  Step step_;
  std::atomic<int64_t> rounds_{0};
  std::thread thread_;
};

int Pick(std::mt19937& random, int low, int high) {
  return std::uniform_int_distribution<int>(low, high)(random);
}

void Pause(std::mt19937& random, int low_ms, int high_ms) {
  std::this_thread::sleep_for(milliseconds(Pick(random, low_ms, high_ms)));
}

class CountingReceiver : public CVYNMessageQueue {
 protected:
  int32_t ProcessMessage(CVYNMessage& /*message*/) override { return VYN_STATUS_SUCCESS; }
};

int32_t RenameThenLoop(void* raw) {
  auto* self = static_cast<CVYNMonitoredThread*>(raw);
  self->SetThreadName("stress renamed");
  self->SignalStart();
  while (self->IsRunning()) {
    self->UpdateStatus();
    self->Sleep(2);
  }
  self->SetThreadName("stress leaving");
  return 0;
}

int32_t SendOne() {
  unsigned char frame[64] = {};
  const uint16_t length = GetVYNCommandSet().PrepareReqGetDeviceInfo(frame);
  return GetVYNSerialPort().SendCommand(frame, length);
}

[[noreturn]] void Fail(const std::string& why) {
  std::fprintf(stderr, "lifecycle stress: %s\n", why.c_str());
  std::_Exit(1);
}

}  // namespace

int main(int argc, char** argv) {
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
  if (seconds <= 0) Fail("the duration must be a positive number of seconds");

  const auto work =
      std::filesystem::temp_directory_path() / ("vyn-stress-" + std::to_string(getpid()));
  std::filesystem::create_directories(work);
  std::filesystem::current_path(work);  // the log's files go here

  vyn::sim::DeviceSimulator device;
  if (!device.Start()) Fail("the simulated device did not start");
  CVYNSerialPort& port = GetVYNSerialPort();
  port.SetCOMPort(device.port_path());
  CMemoryEdit view;

  std::atomic<bool> stop{false};
  std::atomic<bool> plugging{true};
  std::vector<std::unique_ptr<Worker>> workers;
  workers.push_back(std::make_unique<Worker>("log start/stop", [&view](std::mt19937& random) {
    CVYNSystemLogEx& log = GetVYNSystemLogEx();
    log.Initialize(&view, "stress", "");
    for (int i = Pick(random, 0, 50); i > 0; --i) {
      log.AddOutput("stress entry", VYN_EVENT_INFORMATION, "", "Stress", "");
    }
    Pause(random, 0, 20);
    log.Terminate();
  }));
  workers.push_back(std::make_unique<Worker>("queue start/terminate", [](std::mt19937& random) {
    CVYNMessageQueue& queue = GetVYNMessageQueue();
    queue.Initialize(false);
    auto* receiver = new CountingReceiver;  // owned by the queue once registered
    receiver->Initialize(true);
    if (queue.Register(receiver) != VYN_STATUS_SUCCESS) {
      receiver->Terminate();
      delete receiver;
    }
    Pause(random, 0, 30);
    queue.Terminate();  // stops and deletes the receiver
  }));
  workers.push_back(std::make_unique<Worker>("monitored threads", [](std::mt19937& random) {
    CVYNMonitoredThread thread;
    thread.SetThreadName("stress");
    thread.CreateThread(&RenameThenLoop, &thread, nullptr, 0, 0, Pick(random, 0, 1) == 1);
    GetVYNThreadMonitor().GetRegisteredThreadNames();
    Pause(random, 0, 5);
    thread.DestroyThread(Pick(random, 0, 3) != 0);
    GetVYNThreadMonitor().GetRegisteredThreadNames();
  }));
  workers.push_back(std::make_unique<Worker>("serial port", [&port](std::mt19937& random) {
    switch (Pick(random, 0, 4)) {
      case 0:
        port.InitializeReceivingThread();
        break;
      case 1:
        port.TerminateReceivingThread();
        break;
      case 2:
        port.CloseSerialPort(true);
        break;
      case 3:
        port.OpenSerialPort(Pick(random, 0, 1) == 1);
        break;
      default:
        port.CloseSerialPort(true);
        port.TerminateReceivingThread();
        port.InitializeReceivingThread();
        break;
    }
    Pause(random, 0, 30);
  }));
  for (int i = 0; i < 4; ++i) {
    workers.push_back(std::make_unique<Worker>("send", [](std::mt19937& random) {
      SendOne();
      Pause(random, 0, 2);
    }));
  }
  workers.push_back(std::make_unique<Worker>("unplug/replug", [&](std::mt19937& random) {
    Pause(random, 50, 300);
    if (!plugging) return;
    device.Unplug();
    Pause(random, 0, 100);
    device.Replug();
  }));

  unsigned seed = static_cast<unsigned>(std::random_device{}());
  std::printf("lifecycle stress: %d s, seed %u\n", seconds, seed);
  for (auto& worker : workers) worker->Start(stop, seed++);

  // The guard: every half second, no step may be older than the limit.
  const auto until = Clock::now() + std::chrono::seconds(seconds);
  while (Clock::now() < until) {
    std::this_thread::sleep_for(milliseconds(500));
    for (const auto& worker : workers) {
      const char* name = worker->step().name;
      const auto age =
          Clock::now().time_since_epoch() - Clock::duration(worker->step().since.load());
      if (std::string(name) != "idle" && age > kStepLimit) {
        std::fprintf(
            stderr, "lifecycle stress: hang in step \"%s\" (%lld s)\n", name,
            static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(age).count()));
        std::abort();
      }
    }
  }
  plugging = false;
  stop = true;
  for (auto& worker : workers) worker->Join();
  for (const auto& worker : workers) {
    std::printf("  %-22s %lld rounds\n", worker->name(), static_cast<long long>(worker->rounds()));
    if (worker->rounds() == 0) Fail(std::string("no round of ") + worker->name() + " ran");
  }

  // Quiet phase: the line up, four senders; every accepted frame arrives
  // once (the device answers each good request it receives).
  if (!device.IsPlugged() && !device.Replug()) Fail("the device could not be plugged in again");
  port.TerminateReceivingThread();
  if (port.InitializeReceivingThread() != VYN_STATUS_SUCCESS) Fail("the port did not restart");
  std::this_thread::sleep_for(milliseconds(200));
  const uint64_t before = device.counters().requests;
  std::atomic<int64_t> accepted{0};
  std::vector<std::thread> senders;
  for (int i = 0; i < 4; ++i) {
    senders.emplace_back([&accepted] {
      for (int n = 0; n < 250; ++n) {
        if (SendOne() == VYN_STATUS_SUCCESS) ++accepted;
      }
    });
  }
  for (auto& sender : senders) sender.join();
  port.WaitWhileBusy(2000);
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (device.counters().requests - before < static_cast<uint64_t>(accepted.load()) &&
         Clock::now() < deadline) {
    std::this_thread::sleep_for(milliseconds(10));
  }
  std::this_thread::sleep_for(milliseconds(200));  // a duplicate would show now
  const uint64_t arrived = device.counters().requests - before;
  port.TerminateReceivingThread();
  device.Stop();
  std::filesystem::current_path(work.parent_path());
  std::filesystem::remove_all(work);
  std::printf("quiet phase: %lld frames accepted, %llu arrived\n",
              static_cast<long long>(accepted.load()), static_cast<unsigned long long>(arrived));
  if (accepted < 500) Fail("fewer than half of the quiet phase's frames were accepted");
  if (arrived != static_cast<uint64_t>(accepted.load())) {
    Fail("accepted and arrived frames differ: " + std::to_string(accepted.load()) + " against " +
         std::to_string(arrived));
  }
  std::printf("lifecycle stress: passed\n");
  return 0;
}
