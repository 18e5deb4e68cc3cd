// What the serial port tests share: a receiver queue that records the frames
// the library publishes, and a fixture that runs the library's serial port
// against the simulated device on a real pseudo-terminal.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

#include "sim/device_simulator.h"
#include "vyn/core/status.h"
#include "vyn/device/command_set.h"
#include "vyn/queue/message_queue.h"
#include "vyn/serial/serial_port.h"

namespace vyn::test {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

// Records the frames the library publishes, by kind.
class FrameRecorder : public CVYNMessageQueue {
 public:
  using Bytes = std::vector<unsigned char>;

  size_t Count(uint32_t type) { return Frames(type).size(); }

  // Waits until at least `count` frames of `type` have been published. The
  // count is taken under the lock the publisher notifies under, so no
  // publication slips between the check and the wait.
  bool WaitForCount(uint32_t type, size_t count, seconds limit) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [&] { return frames_[type].size() >= count; });
  }

  std::vector<Bytes> Frames(uint32_t type) {
    std::lock_guard lock(mutex_);
    return frames_[type];
  }

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    const auto* record = reinterpret_cast<const _SERIAL_FRAME_RECORD*>(message.GetBuffer());
    if (record == nullptr || message.GetBufferSize() != sizeof(_SERIAL_FRAME_RECORD)) return 0;
    const unsigned char* f = record->frame;
    // The frame's length by its own header.
    const size_t length16 = f[3] | (f[4] << 8);
    const size_t length = f[0] == 0x42 ? (length16 == 0 ? 7 : length16 + 8) : f[2] + 5u;
    {
      std::lock_guard lock(mutex_);
      frames_[message.GetMessageType()].emplace_back(f, f + length);
    }
    changed_.notify_all();
    return 0;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::map<uint32_t, std::vector<Bytes>> frames_;
};

// Polls `done` every few milliseconds until it holds or `limit` has passed.
inline bool WaitUntil(const std::function<bool()>& done, milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  while (!done()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(2));
  }
  return true;
}

// Runs `body`; a body still running after `limit` is a hang: the test
// program ends at once with a message instead of waiting for the runner's
// time-out.
inline void RunWithin(seconds limit, const char* what, const std::function<void()>& body) {
  std::packaged_task<void()> task(body);
  std::future<void> done = task.get_future();
  std::thread runner(std::move(task));
  if (done.wait_for(limit) != std::future_status::ready) {
    std::fprintf(stderr, "HANG: %s did not finish within %lld s\n", what,
                 static_cast<long long>(limit.count()));
    std::fflush(stderr);
    std::_Exit(3);
  }
  runner.join();
  done.get();
}

// A 7-byte request whose only purpose is to be counted.
inline int32_t SendSmallRequest(CVYNSerialPort& port) {
  unsigned char frame[16] = {};
  return port.SendCommand(frame, GetVYNCommandSet().PrepareReqGetDeviceInfo(frame));
}

class SerialPortTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(device_.Start());
    recorder_ = new FrameRecorder;  // owned by the library queue once registered
    ASSERT_EQ(recorder_->Initialize(true), VYN_STATUS_SUCCESS);
    ASSERT_EQ(GetVYNMessageQueue().Initialize(false), VYN_STATUS_SUCCESS);
    ASSERT_EQ(GetVYNMessageQueue().Register(recorder_), VYN_STATUS_SUCCESS);
    port_.SetSerialPortSettings(device_.port_path(), 7);
  }

  void TearDown() override {
    port_.TerminateReceivingThread();
    recorder_->Terminate();
    GetVYNMessageQueue().Terminate();  // deletes the recorder
    device_.Stop();
  }

  // Sends GetStatus with one entry and waits for its reply.
  bool RoundTrip(seconds limit = seconds(10)) {
    const size_t before = recorder_->Count(MSG_SERIAL_FRAME_RECEIVED);
    unsigned char frame[64] = {};
    const unsigned char ids[] = {27};
    const unsigned char rates[] = {1};
    const uint16_t length = GetVYNCommandSet().PrepareReqGetStatus(frame, 1, ids, rates);
    if (port_.SendCommand(frame, length) != VYN_STATUS_SUCCESS) return false;
    return recorder_->WaitForCount(MSG_SERIAL_FRAME_RECEIVED, before + 1, limit);
  }

  // Round trips until one succeeds (the port coming back, a stale partial
  // frame timed out), at most `limit`.
  bool RoundTripWithin(milliseconds limit) {
    return WaitUntil([this] { return RoundTrip(seconds(1)); }, limit);
  }

  vyn::sim::DeviceSimulator device_;
  FrameRecorder* recorder_ = nullptr;
  CVYNSerialPort& port_ = GetVYNSerialPort();
};

}  // namespace vyn::test
