#include "vyn/threads/thread.h"

#include <atomic>
#include <exception>

#include "vyn/base/mutex.h"
#include "vyn/core/internal/log_output.h"
#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/status.h"
#include "vyn/platform/event.h"
#include "vyn/platform/thread.h"

using vyn::platform::kInfinite;

struct CVYNThread::State {
  // The start record: written by CreateThread before the thread exists, read
  // by the thread once at its start.
  VYN_THREAD_FUNCTION function = nullptr;
  void* parameter = nullptr;
  std::string start_name;

  // The object's lock (see the header): held for a few instructions only.
  CRITICAL_SECTION lock;
  vyn::platform::ThreadHandle handle VYN_GUARDED_BY(lock) = 0;
  bool has_handle VYN_GUARDED_BY(lock) = false;
  // Someone waits in DestroyThread(true) for the end and will release it.
  bool join_claimed VYN_GUARDED_BY(lock) = false;

  std::atomic<uint32_t> thread_id{0};
  std::atomic<bool> running{false};
  std::atomic<bool> soft_stop{false};
  std::atomic<uint32_t> exit_code{0};
  // The kernel id of the thread while its procedure runs, 0 otherwise.
  std::atomic<uint32_t> procedure_thread_id{0};

  vyn::Mutex name_mutex;  // a leaf: nothing is called while it is held
  std::string name VYN_GUARDED_BY(name_mutex);

  vyn::platform::Event start_event{true};
  vyn::platform::Event stop_event{true};
  // Set by the new thread once its id is known.
  vyn::platform::Event id_published{true};
  // Set when the procedure is done with the object, so that a released but
  // still finishing thread can be waited for before the object is reused or
  // goes away.
  vyn::platform::Event procedure_done{true, true};
  // Set when the handle has been released (joined or detached).
  vyn::platform::Event released{true, true};

  std::string Name() {
    vyn::MutexLock name_lock(&name_mutex);
    return name;
  }
};

CVYNThread::CVYNThread() : state_(std::make_unique<State>()) {}

CVYNThread::~CVYNThread() {
  const bool on_own_thread = Stop(true, true);
  // A thread released with EndOfThread may still be running the end of its
  // procedure, which touches this object: wait for it unless it is us.
  if (!on_own_thread) WaitForProcedureEnd();
}

void CVYNThread::WaitForProcedureEnd() {
  if (!IsCallingThread()) state_->procedure_done.Wait(kInfinite);
}

int32_t CVYNThread::CreateThread(VYN_THREAD_FUNCTION function, void* parameter,
                                 SECURITY_ATTRIBUTES* /*security_attributes*/, uint32_t stack_size,
                                 uint32_t /*creation_flags*/, bool wait_for_start) {
  State& s = *state_;
  for (;;) {
    {
      vyn::ScopedLock guard(&s.lock);
      if (s.has_handle) return VYN_STATUS_BUSY;
      // A released thread that is still finishing its procedure owns the
      // start record and the events until it is done: wait for it below,
      // without the lock, and look again.
      if (s.procedure_done.IsSet()) {
        s.function = function;
        s.parameter = parameter;
        s.start_name = s.Name();
        s.start_event.Reset();
        s.stop_event.Reset();
        s.id_published.Reset();
        s.procedure_done.Reset();
        s.released.Reset();
        s.thread_id = 0;
        s.join_claimed = false;
        s.running = true;
        if (!vyn::platform::StartThread(&CVYNThread::ThreadProcedure, this, stack_size,
                                        &s.handle)) {
          s.running = false;
          s.procedure_done.Set();
          s.released.Set();
          return VYN_STATUS_INVALID_HANDLE;
        }
        s.has_handle = true;
        break;
      }
    }
    s.procedure_done.Wait(kInfinite);
  }
  if (wait_for_start) s.start_event.Wait(kInfinite);
  return VYN_STATUS_SUCCESS;
}

void CVYNThread::ThreadProcedure(void* self) { static_cast<CVYNThread*>(self)->RunProcedure(); }

void CVYNThread::RunProcedure() {
  State& s = *state_;
  s.procedure_thread_id = vyn::platform::GetCurrentThreadId();
  s.thread_id = s.procedure_thread_id.load();
  s.id_published.Set();
  vyn::platform::SetCurrentThreadName(s.start_name);

  uint32_t exit_code = s.exit_code;
  // Nothing thrown may leave the thread: it would end the whole process.
  try {
    PreProcessThread();
    if (s.function != nullptr) exit_code = static_cast<uint32_t>(s.function(s.parameter));
  } catch (const std::exception& error) {
    exit_code = static_cast<uint32_t>(VYN_STATUS_EXCEPTION_CAUGHT);
    vyn::LogAddOutput(std::string("The thread function has thrown an exception: ") + error.what(),
                      VYN_EVENT_EXCEPTION, s.start_name, "CVYNThread", "");
  } catch (...) {
    exit_code = static_cast<uint32_t>(VYN_STATUS_EXCEPTION_CAUGHT);
    vyn::LogAddOutput("The thread function has thrown an exception.", VYN_EVENT_EXCEPTION,
                      s.start_name, "CVYNThread", "");
  }
  s.exit_code = exit_code;
  try {
    PostProcessThread();
  } catch (...) {
    // Nothing more to report to; the exit code is already stored.
  }
  // An owner waiting for the start of a thread whose function ended without
  // signalling it must not wait for ever.
  s.start_event.Set();
  s.procedure_thread_id = 0;
  s.procedure_done.Set();  // the last touch of the object
}

bool CVYNThread::Stop(bool wait, bool detach_own) {
  State& s = *state_;
  vyn::platform::ThreadHandle handle = 0;
  bool joins = false;
  {
    vyn::ScopedLock guard(&s.lock);
    if (!s.has_handle) return false;
    s.stop_event.Set();
    s.running = false;
    if (vyn::platform::IsCurrentThread(s.handle)) {
      // A thread cannot wait for its own end.
      if (detach_own && !s.join_claimed) {
        vyn::platform::DetachThread(s.handle);
        s.has_handle = false;
        s.thread_id = 0;
        s.released.Set();
      }
      return true;
    }
    if (!wait) return false;
    if (!s.join_claimed) {
      s.join_claimed = true;
      joins = true;
      handle = s.handle;
    }
  }
  if (!joins) {
    // Another caller is joining: wait for the same end.
    s.released.Wait(kInfinite);
    return false;
  }
  vyn::platform::JoinThread(handle);
  {
    vyn::ScopedLock guard(&s.lock);
    s.has_handle = false;
    s.join_claimed = false;
    s.thread_id = 0;
  }
  s.released.Set();
  return false;
}

int32_t CVYNThread::DestroyThread(bool wait) {
  Stop(wait, false);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::EndOfThread() {
  State& s = *state_;
  vyn::ScopedLock guard(&s.lock);
  if (!s.has_handle) return VYN_STATUS_SUCCESS;
  s.running = false;
  // A caller waiting in DestroyThread(true) joins and releases the thread.
  if (s.join_claimed) return VYN_STATUS_SUCCESS;
  vyn::platform::DetachThread(s.handle);
  s.has_handle = false;
  s.thread_id = 0;
  s.released.Set();
  return VYN_STATUS_SUCCESS;
}

bool CVYNThread::IsRunning() const { return state_->running; }

bool CVYNThread::IsCallingThread() const {
  const uint32_t id = state_->procedure_thread_id;
  return id != 0 && id == vyn::platform::GetCurrentThreadId();
}

int32_t CVYNThread::SetExitCode(uint32_t exit_code) {
  state_->exit_code = exit_code;
  return VYN_STATUS_SUCCESS;
}

uint32_t CVYNThread::GetExitCode() { return state_->exit_code; }

int32_t CVYNThread::SignalStart() {
  state_->start_event.Set();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::Sleep(uint32_t milliseconds) {
  return state_->stop_event.Wait(milliseconds) ? VYN_STATUS_OPERATION_BROKEN : VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::SetThreadName(std::string name) {
  State& s = *state_;
  {
    vyn::MutexLock name_lock(&s.name_mutex);
    s.name = name;
  }
  if (IsCallingThread()) {
    vyn::platform::SetCurrentThreadName(name);
    return VYN_STATUS_SUCCESS;
  }
  // Renaming from outside names the object's thread, not the caller's. The
  // lock keeps the handle from being released meanwhile; it is never held
  // across a wait, so this cannot block for long.
  vyn::ScopedLock guard(&s.lock);
  if (s.has_handle) vyn::platform::SetThreadName(s.handle, name);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::SetThreadName() {
  vyn::platform::SetCurrentThreadName(state_->Name());
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::GetThreadName(std::string& name) {
  State& s = *state_;
  vyn::ScopedLock guard(&s.lock);
  if (!s.has_handle) return VYN_STATUS_INVALID_HANDLE;
  name = s.Name();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::GetThreadID(uint32_t& id) {
  const uint32_t found = GetThreadID();
  if (found == kNoThreadId) return VYN_STATUS_INVALID_HANDLE;
  id = found;
  return VYN_STATUS_SUCCESS;
}

uint32_t CVYNThread::GetThreadID() {
  State& s = *state_;
  {
    vyn::ScopedLock guard(&s.lock);
    if (!s.has_handle) return kNoThreadId;
  }
  // The id is known only inside the new thread, which publishes it first
  // thing, before it could take any lock; the first reader waits for that.
  s.id_published.Wait(kInfinite);
  const uint32_t id = s.thread_id;
  return id != 0 ? id : kNoThreadId;
}

int32_t CVYNThread::SetSoftStop() {
  // Event first, flag second: a ResetSoftStop running in between then finds
  // the flag still clear and leaves the event set, and the next one clears
  // both. In the other order it could clear the flag, and our Set would
  // leave an event that no ResetSoftStop clears any more: every Sleep of the
  // thread would return at once until the next soft stop.
  state_->stop_event.Set();
  state_->soft_stop = true;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::ResetSoftStop() {
  if (state_->soft_stop.exchange(false)) state_->stop_event.Reset();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::PreProcessThread() { return VYN_STATUS_SUCCESS; }

int32_t CVYNThread::PostProcessThread() { return VYN_STATUS_SUCCESS; }
