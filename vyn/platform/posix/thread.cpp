#include "vyn/platform/thread.h"

#include <limits.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <memory>
#include <type_traits>

#include "vyn/platform/crash_signals.h"

namespace vyn::platform {
namespace {

static_assert(sizeof(pthread_t) <= sizeof(ThreadHandle) && std::is_integral_v<pthread_t>,
              "pthread_t must fit the opaque handle");

struct StartRecord {
  void (*entry)(void*);
  void* argument;
};

void* Trampoline(void* raw) {
  // Lets the crash handlers run even when this thread overflows its stack.
  const ThreadSignalStack signal_stack;
  const std::unique_ptr<StartRecord> record(static_cast<StartRecord*>(raw));
  record->entry(record->argument);
  return nullptr;
}

std::string KernelName(const std::string& name) { return name.substr(0, 15); }

}  // namespace

bool StartThread(void (*entry)(void*), void* argument, uint32_t stack_size, ThreadHandle* handle) {
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) return false;
  if (stack_size != 0) {
    const long page = sysconf(_SC_PAGESIZE);
    size_t size = stack_size < PTHREAD_STACK_MIN ? PTHREAD_STACK_MIN : stack_size;
    size = (size + static_cast<size_t>(page) - 1) / static_cast<size_t>(page) *
           static_cast<size_t>(page);
    pthread_attr_setstacksize(&attributes, size);
  }
  // The record travels to the new thread, which frees it; only a failed start
  // leaves it with us.
  auto record = std::make_unique<StartRecord>(StartRecord{entry, argument});
  pthread_t thread{};
  const int started = pthread_create(&thread, &attributes, &Trampoline, record.get());
  pthread_attr_destroy(&attributes);
  if (started != 0) return false;
  static_cast<void>(record.release());  // now owned by the new thread
  *handle = static_cast<ThreadHandle>(thread);
  return true;
}

void JoinThread(ThreadHandle handle) { pthread_join(static_cast<pthread_t>(handle), nullptr); }

void DetachThread(ThreadHandle handle) { pthread_detach(static_cast<pthread_t>(handle)); }

bool IsCurrentThread(ThreadHandle handle) {
  return pthread_equal(pthread_self(), static_cast<pthread_t>(handle)) != 0;
}

uint32_t GetCurrentThreadId() { return static_cast<uint32_t>(syscall(SYS_gettid)); }

void SetThreadName(ThreadHandle handle, const std::string& name) {
  pthread_setname_np(static_cast<pthread_t>(handle), KernelName(name).c_str());
}

void SetCurrentThreadName(const std::string& name) {
  pthread_setname_np(pthread_self(), KernelName(name).c_str());
}

}  // namespace vyn::platform
