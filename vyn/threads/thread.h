// CVYNThread: one native thread around a plain thread function, with the start
// and stop protocol that every long-running thread of the library follows.
//
// Protocol: the owner starts the thread with CreateThread; the thread function
// calls SignalStart, then loops while IsRunning(), sleeping with Sleep (which
// a stop request cuts short); the owner stops it with DestroyThread(true),
// which sets the stop event, clears the running flag and waits for the end.
//
// Ownership: the object owns its events, its lock and the native thread; the
// destructor stops and waits for a running thread.
// Thread-safety: CreateThread, DestroyThread, EndOfThread, GetThreadName and
// both GetThreadID take the object's lock. CreateThread (waiting for the
// start) and DestroyThread(true) wait with the lock held, so a thread function
// must call SignalStart before any operation of its own object that takes the
// lock. IsRunning, Sleep, SignalStart, the soft-stop and exit-code operations
// take no lock (atomic flags and events).
// A stop requested from inside the thread itself (DestroyThread(true) on its
// own object) cannot wait for its own end: it sets the stop event and clears
// the running flag, and the owner's later DestroyThread(true) or destructor
// collects the thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "vyn/core/export.h"
#include "vyn/platform/critical_section.h"
#include "vyn/platform/event.h"
#include "vyn/platform/thread.h"

// The work of a thread: takes the parameter, returns the exit code.
using VYN_THREAD_FUNCTION = int32_t (*)(void*);

class VYN_EXPORT CVYNThread {
 public:
  // The thread id reported for an object without a thread (the status
  // VYN_STATUS_INVALID_HANDLE as unsigned).
  static constexpr uint32_t kNoThreadId = 0xFFFFFFFA;

  CVYNThread();
  ~CVYNThread();
  CVYNThread(const CVYNThread&) = delete;
  CVYNThread& operator=(const CVYNThread&) = delete;

  // Starts the thread. VYN_STATUS_BUSY when the object already has a thread,
  // VYN_STATUS_INVALID_HANDLE when the platform refuses. With
  // `wait_for_start`, returns only after the thread has called SignalStart.
  // Security attributes and creation flags are accepted and ignored.
  virtual int32_t CreateThread(VYN_THREAD_FUNCTION function, void* parameter,
                               SECURITY_ATTRIBUTES* security_attributes, uint32_t stack_size,
                               uint32_t creation_flags, bool wait_for_start);
  // Asks the thread to stop; with `wait`, waits for its end and releases it.
  int32_t DestroyThread(bool wait);
  // Releases the thread without waiting (for a thread that ends by itself).
  int32_t EndOfThread();
  bool IsRunning() const;
  int32_t SetExitCode(uint32_t exit_code);
  uint32_t GetExitCode();
  int32_t SignalStart();
  // Waits up to `milliseconds` on the stop event: VYN_STATUS_SUCCESS when the
  // time passed, VYN_STATUS_OPERATION_BROKEN at once when a stop or soft stop
  // is (or becomes) requested.
  int32_t Sleep(uint32_t milliseconds);
  // Stores the full name (the kernel shows its first 15 characters); when the
  // object has a thread, that thread is renamed at once.
  int32_t SetThreadName(std::string name);
  // VYN_STATUS_INVALID_HANDLE, argument untouched, while there is no thread.
  int32_t GetThreadName(std::string& name);
  int32_t GetThreadID(uint32_t& id);
  // The id, or kNoThreadId without a thread.
  uint32_t GetThreadID();
  int32_t SetSoftStop();
  int32_t ResetSoftStop();

 protected:
  virtual int32_t PreProcessThread();
  virtual int32_t PostProcessThread();
  // Announces the stored name for the calling thread.
  int32_t SetThreadName();

 private:
  static void ThreadProcedure(void* self);
  void RunProcedure();
  bool HasThread() const { return has_handle_; }
  uint32_t PublishedThreadId();
  // Stops and, unless called from the thread itself, joins; under lock_.
  void StopLocked(bool wait);

  struct StartRecord {
    CVYNThread* owner = nullptr;
    VYN_THREAD_FUNCTION function = nullptr;
    void* parameter = nullptr;
    std::string name;  // copied at the start, so the thread never takes the lock
  };

  StartRecord start_record_;
  std::atomic<uint32_t> thread_id_{0};
  vyn::platform::ThreadHandle handle_ = 0;
  bool has_handle_ = false;
  std::atomic<bool> running_{false};
  std::atomic<bool> soft_stop_{false};
  std::atomic<uint32_t> exit_code_{0};
  vyn::platform::Event start_event_{true};
  CRITICAL_SECTION lock_;
  std::string name_;       // guarded by name_mutex_, never by lock_, so the thread
  std::mutex name_mutex_;  // itself may read it before it signals its start
  vyn::platform::Event stop_event_{true};
  // Set by the new thread once its id is known, and when the procedure is
  // done with the object (so a released but still finishing thread can be
  // waited for before the object goes away).
  vyn::platform::Event id_published_{true};
  vyn::platform::Event procedure_done_{true, true};
  std::atomic<uint32_t> procedure_thread_id_{0};
};
