#include "vyn/queue/message_queue.h"

#include <algorithm>
#include <cstdio>
#include <exception>
#include <new>
#include <utility>

#include "vyn/core/internal/log_output.h"
#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/core/synchronize.h"
#include "vyn/platform/wake_up_event.h"
#include "vyn/queue/internal/idle_ticker.h"

namespace {

constexpr uint32_t kMessageLockWaitMs = 100;
constexpr uint32_t kIdleWaitMs = 500;

}  // namespace

struct CVYNMessageQueue::WakeUp {
  vyn::platform::WakeUpEvent event;
};

CVYNMessageQueue::CVYNMessageQueue()
    : thread_name_("VYN Message Queue"), wake_up_(std::make_unique<WakeUp>()) {
  // Built now, so that it outlives a queue that is a static (see its header).
  vyn::IdleTicker::Get();
  char context[24];
  std::snprintf(context, sizeof context, "0x%016llX",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(this)));
  context_ = context;
}

CVYNMessageQueue::~CVYNMessageQueue() {
  // The locks and the pending messages go before the thread object does;
  // the thread must not outlive them.
  StopDispatchThread();
}

int32_t CVYNMessageQueue::Initialize(bool with_dispatch_thread) {
  if (dispatch_thread_.IsRunning()) return VYN_STATUS_BUSY;
  int32_t status = VYN_STATUS_SUCCESS;
  if (with_dispatch_thread) {
    dispatch_thread_.SetThreadName(thread_name_);
    status = dispatch_thread_.CreateThread(&CVYNMessageQueue::MessageLoopThread, this, nullptr, 0,
                                           0, false);
  }
  if (status == VYN_STATUS_SUCCESS) {
    AddOutput(GetVYNLanguage().GetString(VYN_MODULE_MESSAGE_QUEUE, 1), VYN_EVENT_INFORMATION);
  } else {
    AddOutput(GetVYNLanguage().GetString(VYN_MODULE_MESSAGE_QUEUE, 2), VYN_EVENT_ERROR);
  }
  return status;
}

int32_t CVYNMessageQueue::Terminate() {
  std::vector<CVYNMessageQueue*> owned;
  std::deque<CVYNMessage> discarded;
  // Stopped before any lock is taken: its handler may be inside a call of
  // this queue, which needs them.
  StopDispatchThread();
  {
    vyn::ScopedLock receivers(&receiver_lock_);
    vyn::ScopedLock messages(&message_lock_);
    owned.swap(receivers_);
    discarded.swap(messages_);
    message_count_.store(0, std::memory_order_relaxed);
    discarded_count_.fetch_add(static_cast<int64_t>(discarded.size()), std::memory_order_relaxed);
  }
  // Deleted once the locks are given back: a receiver's handler that is
  // still running may call into this queue (Notify, say) while its thread is
  // being stopped. Nobody reaches the receivers through this queue any more.
  for (CVYNMessageQueue* queue : owned) {
    // Stopped before the destructor runs: the thread calls the derived
    // ProcessMessage, whose part of the object goes first.
    queue->StopDispatchThread();
    delete queue;
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMessageQueue::PushMessage(CVYNMessage& message) {
  // The copy is made before the lock is taken, so that the dispatch thread
  // (which waits for the lock only briefly) is not kept out while the bytes
  // are copied.
  CVYNMessage copy(message);
  {
    vyn::ScopedLock guard(&message_lock_);
    try {
      messages_.push_back(std::move(copy));
    } catch (const std::bad_alloc&) {
      return VYN_STATUS_NO_MEMORY;
    }
    message_count_.fetch_add(1);
  }
  // Woken after the lock is given back, so that the woken thread finds it
  // free rather than starting its 1 ms polling.
  wake_up_->event.Signal();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMessageQueue::PopMessage(CVYNMessage& message) {
  CVYNMessage oldest;
  if (!vyn::TryLockFor(&message_lock_, kMessageLockWaitMs)) return VYN_STATUS_TIMEOUT;
  const bool found = !messages_.empty();
  if (found) {
    oldest = std::move(messages_.front());
    messages_.pop_front();
    message_count_.fetch_sub(1, std::memory_order_relaxed);
  }
  LeaveCriticalSection(&message_lock_);
  if (!found) return VYN_STATUS_UNSPECIFIC_ERROR;
  // The argument's previous buffer is released outside the lock.
  message = std::move(oldest);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMessageQueue::Register(CVYNMessageQueue* queue) {
  if (queue == nullptr || queue == this) return VYN_STATUS_INVALID_PARAMETER;
  vyn::ScopedLock guard(&receiver_lock_);
  if (std::find(receivers_.begin(), receivers_.end(), queue) != receivers_.end()) {
    return VYN_STATUS_SUCCESS;
  }
  try {
    receivers_.push_back(queue);
  } catch (const std::bad_alloc&) {
    return VYN_STATUS_NO_MEMORY;
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMessageQueue::Unregister(CVYNMessageQueue* queue) {
  vyn::ScopedLock guard(&receiver_lock_);
  const auto found = std::find(receivers_.begin(), receivers_.end(), queue);
  if (found == receivers_.end()) return VYN_STATUS_NOT_FOUND;
  receivers_.erase(found);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMessageQueue::Notify(CVYNMessage& message) {
  vyn::ScopedLock guard(&receiver_lock_);
  for (CVYNMessageQueue* queue : receivers_) queue->PushMessage(message);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMessageQueue::GetMessagesCount() {
  return message_count_.load(std::memory_order_relaxed);
}

int64_t CVYNMessageQueue::GetDiscardedMessagesCount() const {
  return discarded_count_.load(std::memory_order_relaxed);
}

int32_t CVYNMessageQueue::ProcessMessage(CVYNMessage& /*message*/) {
  return VYN_STATUS_INVALID_OPERATION;
}

int32_t CVYNMessageQueue::MessageLoopThread(void* parameter) {
  if (parameter == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  return static_cast<CVYNMessageQueue*>(parameter)->RunMessageLoopThread();
}

int32_t CVYNMessageQueue::RunMessageLoopThread() {
  if (!dispatch_thread_.IsRunning()) return VYN_STATUS_NOT_INITIALIZED;
  dispatch_thread_.SignalStart();
  // The idle wait has no time limit of its own: the shared ticker raises the
  // wake-up every 500 ms for the heartbeat. A wait with a limit arms a timer
  // and takes it down again on every wake-up, which delayed every push that
  // found the thread idle by about a microsecond. Without the ticker the
  // wait is limited to 500 ms instead.
  vyn::platform::WakeUpEvent& wake_up = wake_up_->event;
  vyn::IdleTicker& ticker = vyn::IdleTicker::Get();
  const bool ticked = ticker.Add(&wake_up);
  const uint32_t idle_wait_ms = ticked ? vyn::platform::WakeUpEvent::kNoTimeLimit : kIdleWaitMs;
  while (dispatch_thread_.IsRunning()) {
    // A message object per round, released only after its handler has run:
    // the way from the wake-up to ProcessMessage frees nothing.
    CVYNMessage message;
    const bool found = PopMessage(message) == VYN_STATUS_SUCCESS;
    if (found) DispatchMessage(message);
    dispatch_thread_.UpdateStatus();
    // Nothing pending, or the lock was busy for 100 ms. A push between the
    // failed pop and this wait has raised the wake-up already.
    if (!found) wake_up.Wait(idle_wait_ms);
  }
  if (ticked) ticker.Remove(&wake_up);
  return VYN_STATUS_SUCCESS;
}

void CVYNMessageQueue::DispatchMessage(CVYNMessage& message) {
  // A handler that throws loses its message, not the queue's thread. The
  // report is made inside the handler: what() lives only as long as the
  // exception object.
  try {
    ProcessMessage(message);
  } catch (const std::exception& error) {
    ReportException(message, error.what());
  } catch (...) {
    ReportException(message, "unknown exception");
  }
}

void CVYNMessageQueue::ReportException(const CVYNMessage& message, const char* what) noexcept {
  char text[320];
  std::snprintf(text, sizeof text,
                "RunMessageLoopThread(); ProcessMessage has thrown an exception; message type; "
                "0x%08X; %s",
                static_cast<unsigned>(message.GetMessageType()), what);
  try {
    AddOutput(text, VYN_EVENT_EXCEPTION);
  } catch (...) {
    // Not even the report could be made; the thread goes on regardless.
  }
}

void CVYNMessageQueue::StopDispatchThread() {
  // The stop request first, then the wake-up: the woken loop must already
  // find its running flag cleared.
  dispatch_thread_.DestroyThread(false);
  wake_up_->event.Signal();
  dispatch_thread_.DestroyThread(true);
}

int32_t CVYNMessageQueue::AddOutput(const std::string& text, _VYNSystemLogExEventType type) {
  return vyn::LogAddOutput(text, type, "", "CVYNMessageQueue", context_);
}
