#include "vyn/threads/thread.h"

#include <exception>

#include "vyn/core/log_output.h"
#include "vyn/core/status.h"
#include "vyn/core/synchronize.h"

using vyn::platform::kInfinite;

CVYNThread::CVYNThread() = default;

CVYNThread::~CVYNThread() {
  bool on_own_thread = false;
  {
    CVYNSynchronize guard(&lock_, true);
    if (HasThread()) {
      stop_event_.Set();
      running_ = false;
      // An object destroyed by its own thread cannot wait for that thread.
      on_own_thread = vyn::platform::IsCurrentThread(handle_);
      if (on_own_thread) {
        vyn::platform::DetachThread(handle_);
      } else {
        vyn::platform::JoinThread(handle_);
      }
      has_handle_ = false;
      thread_id_ = 0;
    }
  }
  // A thread released with EndOfThread may still be running the end of its
  // procedure, which touches this object: wait for it unless it is us.
  if (!on_own_thread && procedure_thread_id_ != vyn::platform::GetCurrentThreadId()) {
    procedure_done_.Wait(kInfinite);
  }
}

int32_t CVYNThread::CreateThread(VYN_THREAD_FUNCTION function, void* parameter,
                                 SECURITY_ATTRIBUTES* /*security_attributes*/, uint32_t stack_size,
                                 uint32_t /*creation_flags*/, bool wait_for_start) {
  CVYNSynchronize guard(&lock_, true);
  if (HasThread()) return VYN_STATUS_BUSY;
  // A released thread may still be finishing its procedure; the record and
  // events below are its, until it is done.
  procedure_done_.Wait(kInfinite);
  start_record_.owner = this;
  start_record_.function = function;
  start_record_.parameter = parameter;
  {
    std::lock_guard name_lock(name_mutex_);
    start_record_.name = name_;
  }
  start_event_.Reset();
  stop_event_.Reset();
  id_published_.Reset();
  procedure_done_.Reset();
  thread_id_ = 0;
  running_ = true;
  if (!vyn::platform::StartThread(&CVYNThread::ThreadProcedure, this, stack_size, &handle_)) {
    running_ = false;
    procedure_done_.Set();
    return VYN_STATUS_INVALID_HANDLE;
  }
  has_handle_ = true;
  if (wait_for_start) start_event_.Wait(kInfinite);
  return VYN_STATUS_SUCCESS;
}

void CVYNThread::ThreadProcedure(void* self) { static_cast<CVYNThread*>(self)->RunProcedure(); }

void CVYNThread::RunProcedure() {
  const StartRecord record = start_record_;
  procedure_thread_id_ = vyn::platform::GetCurrentThreadId();
  thread_id_ = procedure_thread_id_.load();
  id_published_.Set();
  vyn::platform::SetCurrentThreadName(record.name);

  uint32_t exit_code = exit_code_;
  // Nothing thrown may leave the thread: it would end the whole process.
  try {
    PreProcessThread();
    if (record.function != nullptr) {
      exit_code = static_cast<uint32_t>(record.function(record.parameter));
    }
  } catch (const std::exception& error) {
    exit_code = static_cast<uint32_t>(VYN_STATUS_EXCEPTION_CAUGHT);
    vyn::LogAddOutput(std::string("The thread function has thrown an exception: ") + error.what(),
                      VYN_EVENT_EXCEPTION, record.name, "CVYNThread", "");
  } catch (...) {
    exit_code = static_cast<uint32_t>(VYN_STATUS_EXCEPTION_CAUGHT);
    vyn::LogAddOutput("The thread function has thrown an exception.", VYN_EVENT_EXCEPTION,
                      record.name, "CVYNThread", "");
  }
  exit_code_ = exit_code;
  try {
    PostProcessThread();
  } catch (...) {
    // Nothing more to report to; the exit code is already stored.
  }
  // An owner waiting for the start of a thread whose function ended without
  // signalling it must not wait for ever.
  start_event_.Set();
  procedure_done_.Set();  // the last touch of the object
}

void CVYNThread::StopLocked(bool wait) {
  if (!HasThread()) return;
  stop_event_.Set();
  running_ = false;
  if (!wait || vyn::platform::IsCurrentThread(handle_)) return;
  vyn::platform::JoinThread(handle_);
  has_handle_ = false;
  thread_id_ = 0;
}

int32_t CVYNThread::DestroyThread(bool wait) {
  // From inside the thread: only the request. Taking the lock here could
  // deadlock against an owner that holds it while it waits for our end.
  if (procedure_thread_id_ == vyn::platform::GetCurrentThreadId()) {
    stop_event_.Set();
    running_ = false;
    return VYN_STATUS_SUCCESS;
  }
  CVYNSynchronize guard(&lock_, true);
  StopLocked(wait);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::EndOfThread() {
  CVYNSynchronize guard(&lock_, true);
  if (HasThread()) {
    vyn::platform::DetachThread(handle_);
    has_handle_ = false;
    thread_id_ = 0;
    running_ = false;
  }
  return VYN_STATUS_SUCCESS;
}

bool CVYNThread::IsRunning() const { return running_; }

int32_t CVYNThread::SetExitCode(uint32_t exit_code) {
  exit_code_ = exit_code;
  return VYN_STATUS_SUCCESS;
}

uint32_t CVYNThread::GetExitCode() { return exit_code_; }

int32_t CVYNThread::SignalStart() {
  start_event_.Set();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::Sleep(uint32_t milliseconds) {
  return stop_event_.Wait(milliseconds) ? VYN_STATUS_OPERATION_BROKEN : VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::SetThreadName(std::string name) {
  CVYNSynchronize guard(&lock_, true);
  {
    std::lock_guard name_lock(name_mutex_);
    name_ = name;
  }
  if (HasThread()) {
    if (vyn::platform::IsCurrentThread(handle_)) {
      vyn::platform::SetCurrentThreadName(name);
    } else {
      // Renaming from outside names the object's thread, not the caller's.
      vyn::platform::SetThreadName(handle_, name);
    }
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::SetThreadName() {
  std::lock_guard name_lock(name_mutex_);
  vyn::platform::SetCurrentThreadName(name_);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::GetThreadName(std::string& name) {
  CVYNSynchronize guard(&lock_, true);
  if (!HasThread()) return VYN_STATUS_INVALID_HANDLE;
  std::lock_guard name_lock(name_mutex_);
  name = name_;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::GetThreadID(uint32_t& id) {
  CVYNSynchronize guard(&lock_, true);
  if (!HasThread()) return VYN_STATUS_INVALID_HANDLE;
  id = PublishedThreadId();
  return VYN_STATUS_SUCCESS;
}

uint32_t CVYNThread::GetThreadID() {
  CVYNSynchronize guard(&lock_, true);
  return HasThread() ? PublishedThreadId() : kNoThreadId;
}

uint32_t CVYNThread::PublishedThreadId() {
  // The id is known only inside the new thread, which publishes it first
  // thing; the creator does not wait for that, the first reader does.
  id_published_.Wait(kInfinite);
  return thread_id_;
}

int32_t CVYNThread::SetSoftStop() {
  // Event first, flag second: a ResetSoftStop running in between then finds
  // the flag still clear and leaves the event set, and the next one clears
  // both. In the other order it could clear the flag, and our Set would
  // leave an event that no ResetSoftStop clears any more: every Sleep of the
  // thread would return at once until the next soft stop.
  stop_event_.Set();
  soft_stop_ = true;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::ResetSoftStop() {
  if (soft_stop_.exchange(false)) stop_event_.Reset();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNThread::PreProcessThread() { return VYN_STATUS_SUCCESS; }

int32_t CVYNThread::PostProcessThread() { return VYN_STATUS_SUCCESS; }
