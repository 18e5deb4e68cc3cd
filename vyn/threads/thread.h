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
//
// Thread-safety: every operation may be called from any thread, the thread
// itself included, at any time; none of them can deadlock against the thread
// or against another caller.
// - The object's lock guards the handle, the id and the running flag while
//   they change (CreateThread, DestroyThread, EndOfThread, the destructor) and
//   while GetThreadName and GetThreadID read them. It is held only for those
//   few instructions, never while waiting: CreateThread waits for the start,
//   and DestroyThread(true) for the end, after giving it back. So a thread
//   may call any operation of its own object at any time (before SignalStart,
//   after its stop was requested, from its ending hooks), and another thread
//   may query the object while its owner waits for it.
// - While one caller waits in DestroyThread(true) for the end, the object
//   still has its thread: CreateThread answers VYN_STATUS_BUSY, EndOfThread
//   leaves the release to that caller, and a second DestroyThread(true)
//   waits for the same end.
// - IsRunning, Sleep, SignalStart, the soft-stop and exit-code operations and
//   the public SetThreadName take no lock that anything waits under (atomic
//   flags, events, and a leaf lock of the name).
// A stop requested from inside the thread itself (DestroyThread(true) on its
// own object) cannot wait for its own end: it sets the stop event and clears
// the running flag, and the owner's later DestroyThread(true) or destructor
// collects the thread.
// Lock order: a caller may hold locks of its own (the thread monitor's, say)
// while it calls into this object; the object's own locks are leaves.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vyn/base/export.h"
#include "vyn/base/platform_types.h"

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
  // `wait_for_start`, returns only after the thread has called SignalStart
  // (or has ended without calling it). Security attributes and creation
  // flags are accepted and ignored.
  virtual int32_t CreateThread(VYN_THREAD_FUNCTION function, void* parameter,
                               SECURITY_ATTRIBUTES* security_attributes, uint32_t stack_size,
                               uint32_t creation_flags, bool wait_for_start);
  // Asks the thread to stop; with `wait`, waits for its end and releases it.
  int32_t DestroyThread(bool wait);
  // Releases the thread without waiting (for a thread that ends by itself).
  int32_t EndOfThread();
  // True from CreateThread until a stop is requested (DestroyThread); a soft
  // stop leaves it set. The thread function's loop condition.
  bool IsRunning() const;
  // Stores an exit code; 0. The thread function's return value replaces it
  // when the function returns (VYN_STATUS_EXCEPTION_CAUGHT when it threw).
  int32_t SetExitCode(uint32_t exit_code);
  // The exit code stored last: 0 at first, the function's result once it
  // has returned.
  uint32_t GetExitCode();
  // Called by the thread function once it is ready: releases a CreateThread
  // that waits for the start. 0.
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
  // The thread's system id into `id`: 0, or VYN_STATUS_INVALID_HANDLE with
  // `id` untouched while there is no thread.
  int32_t GetThreadID(uint32_t& id);
  // The id, or kNoThreadId without a thread.
  uint32_t GetThreadID();
  // Cuts the thread's Sleep short (VYN_STATUS_OPERATION_BROKEN), now and
  // until ResetSoftStop, without stopping the thread: IsRunning stays true. 0.
  int32_t SetSoftStop();
  // Ends a soft stop, so that Sleep waits again (a stop request stays in
  // force). 0.
  int32_t ResetSoftStop();

 protected:
  // Runs on the new thread before the thread function; its result is not
  // used. Does nothing here; a derived class hooks its start in.
  virtual int32_t PreProcessThread();
  // Runs on the thread after the thread function has returned (or thrown)
  // and its exit code is stored. Does nothing here.
  virtual int32_t PostProcessThread();
  // Announces the stored name for the calling thread.
  int32_t SetThreadName();
  // True on the thread this object started, while its procedure runs.
  bool IsCallingThread() const;
  // Waits until a thread released with EndOfThread has run the end of its
  // procedure, the last code that touches this object; returns at once on
  // that thread itself or when no procedure runs. A derived destructor calls
  // it before it tears its part down, so that the ending thread never calls a
  // virtual function of a half-destroyed object.
  void WaitForProcedureEnd();

 private:
  struct State;

  static void ThreadProcedure(void* self);
  void RunProcedure();
  // Stop request, then (with `wait`, from another thread) the wait for the
  // end and the release; `detach_own` releases the handle when called on the
  // thread itself (the destructor's case). True when the caller is the
  // thread itself.
  bool Stop(bool wait, bool detach_own);

  std::unique_ptr<State> state_;
};
