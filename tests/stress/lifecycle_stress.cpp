// Lifecycle stress: random interleavings of everything that starts and stops
// at once, for a given number of seconds (default 10, fractions allowed):
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

// A thread that repeats its round until told to stop; the guard reads since
// when the current round runs (0: between rounds).
struct Worker {
  Worker(const char* worker_name, std::function<void(std::mt19937&)> worker_round)
      : name(worker_name), round(std::move(worker_round)) {}

  void Start(const std::atomic<bool>& stop, unsigned seed) {
    thread = std::thread([this, &stop, seed] {
      std::mt19937 random(seed);
      while (!stop) {
        since = Clock::now().time_since_epoch().count();
        round(random);
        since = 0;
        ++rounds;
      }
    });
  }

  const char* name;
  std::function<void(std::mt19937&)> round;
  std::atomic<int64_t> since{0};
  std::atomic<int64_t> rounds{0};
  std::thread thread;
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
  const double seconds = argc > 1 ? std::atof(argv[1]) : 10.0;
  if (!(seconds > 0)) Fail("the duration must be a positive number of seconds");

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
    Pause(random, 20, 150);
    if (!plugging) return;
    device.Unplug();
    Pause(random, 0, 50);
    device.Replug();
  }));

  unsigned seed = static_cast<unsigned>(std::random_device{}());
  std::printf("lifecycle stress: %g s, seed %u\n", seconds, seed);
  for (auto& worker : workers) worker->Start(stop, seed++);

  // The guard: no round may run longer than the limit.
  const auto until = Clock::now() + std::chrono::duration<double>(seconds);
  while (Clock::now() < until) {
    std::this_thread::sleep_for(milliseconds(20));
    for (const auto& worker : workers) {
      const int64_t since = worker->since;
      if (since != 0 && Clock::now() - Clock::time_point(Clock::duration(since)) > kStepLimit) {
        std::fprintf(stderr, "lifecycle stress: hang in step \"%s\"\n", worker->name);
        std::abort();
      }
    }
  }
  plugging = false;
  stop = true;
  for (auto& worker : workers) worker->thread.join();
  for (const auto& worker : workers) {
    std::printf("  %-22s %lld rounds\n", worker->name, static_cast<long long>(worker->rounds));
    if (worker->rounds == 0) Fail(std::string("no round of ") + worker->name + " ran");
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
  std::this_thread::sleep_for(milliseconds(100));  // a duplicate would show now
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
