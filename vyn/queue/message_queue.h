// CVYNMessageQueue: messages handed from any thread to one dispatch thread
// that handles them one at a time in the order of arrival, and a distributor
// that copies a message into every queue registered with it.
//
// Two roles:
// - Receiver: Initialize(true) starts the dispatch thread "VYN Message
//   Queue", which takes the pending messages oldest first and hands each to
//   ProcessMessage. Applications derive from this class and override
//   ProcessMessage. The thread handles messages back to back while any are
//   pending; a push ends an idle wait at once, and a shared ticker thread
//   ("VYN Idle Ticker") ends it every 500 ms for the heartbeat.
// - Distributor: Notify copies a message into every registered queue. The
//   library's own queue (GetVYNMessageQueue) plays this role, started with
//   Initialize(false); the library's services publish their events through
//   its Notify (message types in vyn/core/message_types.h).
//
// Ownership:
// - Messages are copied in (PushMessage) and moved out (PopMessage); the
//   queue never keeps a caller's message.
// - A registered queue is owned by the queue it is registered with: it must
//   have been created with new, Terminate deletes it (its dispatch thread is
//   stopped first), and Unregister hands ownership back. A queue cannot
//   register itself (it would delete itself): Register answers that, and a
//   null pointer, with VYN_STATUS_INVALID_PARAMETER. The destructor does not
//   delete the registered queues.
// - Terminate discards the messages still pending; they are not processed.
//   GetDiscardedMessagesCount tells how many were discarded so far.
// - The destructor stops a dispatch thread that still runs. A derived queue
//   with a dispatch thread must still be terminated before its own part is
//   destroyed (Terminate, or the Terminate of the queue it is registered
//   with), because the thread calls the derived ProcessMessage.
//
// Thread-safety: PushMessage, Notify, Register, Unregister, GetMessagesCount
// and PopMessage may be called from any thread. ProcessMessage runs only on
// the dispatch thread, never twice at the same time for one queue.
// GetMessagesCount reads a counter without a lock: the value is a snapshot.
//
// Lock order: the receiver lock, then the message lock. Notify holds the
// receiver lock while it pushes into each receiver, that is while it takes
// each receiver's message lock (a receiver's receiver lock is never taken
// under it). PopMessage waits at most 100 ms for the message lock; every
// other operation waits as long as needed. Neither lock is held while a
// thread is waited for: Terminate stops the dispatch thread first and takes
// the locks only to empty the queue and the list, and stops and deletes the
// registered queues after giving them back, so a handler may call any
// operation of its own queue (or of the queue it is registered with) at any
// time, also while Terminate waits for it. The dispatch thread's wake-up
// (an atomic flag and an eventfd) takes no lock; the thread takes the
// ticker's leaf lock only to join it at its start and leave it at its end.
//
// Backlog: the queue of pending messages has no bound, on purpose. The
// library publishes received frames through Notify on the serial thread,
// which must never block on a slow application, and a dropped frame would
// be a lie about the link. A receiver that falls behind holds every message
// it has not handled yet: about 35 bytes per message plus its buffer
// (measured: 1,081 bytes for a received frame's 1,048-byte record,
// bench/backlog_bench.cpp), so a device sending 1,000 frames a second to a
// receiver that handles none grows it by about 1.1 MB a second.
// GetMessagesCount shows the backlog; a push that finds no memory answers
// VYN_STATUS_NO_MEMORY.
//
// Log entries carry the caller "CVYNMessageQueue" and, as context, the
// queue's address: "0x" and 16 upper-case hexadecimal digits (the 8 digits
// of a 32-bit address, widened to the full 64-bit address).
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/core/log_event_type.h"
#include "vyn/queue/message.h"
#include "vyn/threads/monitored_thread.h"

class VYN_EXPORT CVYNMessageQueue {
 public:
  CVYNMessageQueue();
  virtual ~CVYNMessageQueue();
  CVYNMessageQueue(const CVYNMessageQueue&) = delete;
  CVYNMessageQueue& operator=(const CVYNMessageQueue&) = delete;

  // Starts the queue, with or without its dispatch thread (the thread is not
  // waited for). VYN_STATUS_BUSY while the dispatch thread runs; the
  // thread's creation status when it cannot be created. Logs the start or
  // the failure.
  virtual int32_t Initialize(bool with_dispatch_thread);
  // Stops the dispatch thread, deletes every registered queue and discards
  // the pending messages. Always VYN_STATUS_SUCCESS.
  virtual int32_t Terminate();
  // Appends a copy of `message` and wakes the dispatch thread. A copy that
  // cannot get memory for its bytes is appended without buffer;
  // VYN_STATUS_NO_MEMORY only when the queue itself cannot grow.
  virtual int32_t PushMessage(CVYNMessage& message);
  // Moves the oldest pending message into `message`. VYN_STATUS_TIMEOUT when
  // the message lock is busy for more than 100 ms, VYN_STATUS_UNSPECIFIC_ERROR
  // when nothing is pending; `message` is unchanged on both.
  virtual int32_t PopMessage(CVYNMessage& message);
  // Adds a receiver unless it is registered already; ownership passes here.
  virtual int32_t Register(CVYNMessageQueue* queue);
  // Removes a receiver without deleting it (ownership returns to the
  // caller); VYN_STATUS_NOT_FOUND when it is not registered.
  virtual int32_t Unregister(CVYNMessageQueue* queue);
  // PushMessage of every receiver, in order of registration; this queue's
  // own pending messages are not touched.
  virtual int32_t Notify(CVYNMessage& message);
  // The number of pending messages, read without a lock.
  virtual int32_t GetMessagesCount();

  // Messages that Terminate discarded over the queue's life (a snapshot).
  int64_t GetDiscardedMessagesCount() const;

 protected:
  // Handles one message on the dispatch thread; the result is ignored. Here
  // the message is dropped with VYN_STATUS_INVALID_OPERATION. An exception
  // thrown by an override is logged and the thread goes on with the next
  // message.
  virtual int32_t ProcessMessage(CVYNMessage& message);

 private:
  static int32_t MessageLoopThread(void* parameter);
  int32_t RunMessageLoopThread();
  // ProcessMessage with every exception caught and logged.
  void DispatchMessage(CVYNMessage& message);
  void ReportException(const CVYNMessage& message, const char* what) noexcept;
  // Stops the dispatch thread and waits for it.
  void StopDispatchThread();
  int32_t AddOutput(const std::string& text, _VYNSystemLogExEventType type);

  CVYNMonitoredThread dispatch_thread_;
  std::string thread_name_;
  CRITICAL_SECTION receiver_lock_;
  CRITICAL_SECTION message_lock_ VYN_ACQUIRED_AFTER(receiver_lock_);
  std::deque<CVYNMessage> messages_ VYN_GUARDED_BY(message_lock_);  // oldest first
  std::vector<CVYNMessageQueue*> receivers_ VYN_GUARDED_BY(receiver_lock_);
  std::string context_;
  // Written under message_lock_, read without it.
  std::atomic<int32_t> message_count_{0};
  std::atomic<int64_t> discarded_count_{0};
  // The idle wait of the dispatch thread, ended by a push (once the message
  // lock is given back) and by a stop. A wake-up of its own rather than the
  // thread's soft-stop flag and stop event: a push racing the loop's reset
  // of those two could leave the event set and the flag clear, and the idle
  // loop would then spin until the next push. It costs a push a system call
  // only when the thread is idle. Kept out of this header (platform layer).
  struct WakeUp;
  std::unique_ptr<WakeUp> wake_up_;
};

// The process's one CVYNMessageQueue, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNMessageQueue& GetVYNMessageQueue();
