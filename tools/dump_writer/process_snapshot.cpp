#include "tools/dump_writer/process_snapshot.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace vyn::dump_writer {
namespace {

// Ends a wait that takes too long: the timer's signal interrupts waitpid.
void OnTimer(int /*signal*/) {}

void StartTimer(int milliseconds) {
  struct sigaction action {};
  action.sa_handler = &OnTimer;  // no SA_RESTART: the wait returns EINTR
  sigaction(SIGALRM, &action, nullptr);
  itimerval timer{};
  timer.it_value.tv_sec = milliseconds / 1000;
  timer.it_value.tv_usec = static_cast<suseconds_t>(milliseconds % 1000) * 1000;
  setitimer(ITIMER_REAL, &timer, nullptr);
}

void StopTimer() {
  itimerval timer{};
  setitimer(ITIMER_REAL, &timer, nullptr);
}

std::string ReadWholeFile(const std::string& path) {
  std::string content;
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return content;
  char chunk[16384];
  for (;;) {
    const ssize_t got = read(file, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    content.append(chunk, static_cast<size_t>(got));
  }
  close(file);
  return content;
}

// One line of /proc/<pid>/maps:
// "start-end perms offset major:minor inode   path".
bool ParseMapping(const std::string& line, Mapping* mapping) {
  const char* at = line.c_str();
  char* end = nullptr;
  mapping->start = std::strtoull(at, &end, 16);
  if (*end != '-') return false;
  mapping->end = std::strtoull(end + 1, &end, 16);
  if (*end != ' ' || std::strlen(end) < 6) return false;
  const char* permissions = end + 1;
  mapping->readable = permissions[0] == 'r';
  mapping->writable = permissions[1] == 'w';
  mapping->executable = permissions[2] == 'x';
  mapping->shared = permissions[3] == 's';
  mapping->offset = std::strtoull(permissions + 5, &end, 16);
  const char* device_end = std::strchr(end + 1, ' ');  // skip "major:minor"
  if (device_end == nullptr) return false;
  mapping->inode = std::strtoull(device_end + 1, &end, 10);
  while (*end == ' ') ++end;
  mapping->path = end;
  return mapping->start < mapping->end;
}

}  // namespace

ProcessSnapshot::ProcessSnapshot(pid_t pid) : pid_(pid) {}

ProcessSnapshot::~ProcessSnapshot() { Resume(); }

std::vector<uint32_t> ProcessSnapshot::ListThreads() const {
  std::vector<uint32_t> ids;
  std::error_code error;
  const std::string folder = "/proc/" + std::to_string(pid_) + "/task";
  for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
    ids.push_back(static_cast<uint32_t>(std::strtoul(item.path().filename().c_str(), nullptr, 10)));
  }
  return ids;
}

bool ProcessSnapshot::SeizeThread(uint32_t id, int* error) {
  const auto thread = static_cast<pid_t>(id);
  if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0 ||
      ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0) {
    *error = errno;
    return false;
  }
  return true;
}

bool ProcessSnapshot::CollectThread(uint32_t id, int* error) {
  const auto thread = static_cast<pid_t>(id);
  int status = 0;
  if (waitpid(thread, &status, __WALL) != thread || !WIFSTOPPED(status)) {
    *error = errno == 0 ? ESRCH : errno;
    ptrace(PTRACE_DETACH, thread, nullptr, nullptr);
    return false;
  }
  ThreadState state;
  state.id = id;
  // A stop for a signal that was on its way (not our interrupt): the signal
  // goes back to the thread when it is released.
  if ((status >> 16) != PTRACE_EVENT_STOP) state.pending_signal = WSTOPSIG(status);
  ptrace(PTRACE_GETREGS, thread, nullptr, &state.registers);
  ptrace(PTRACE_GETFPREGS, thread, nullptr, &state.floating_point);
  state.name = ReadProcFile("task/" + std::to_string(id) + "/comm");
  while (!state.name.empty() && state.name.back() == '\n') state.name.pop_back();
  threads_.push_back(state);
  return true;
}

bool ProcessSnapshot::Suspend(int timeout_ms, int* error) {
  StartTimer(timeout_ms);
  *error = 0;
  std::vector<uint32_t> tried;
  // Threads may start while others are being stopped; a few passes over the
  // list catch them (a stopped thread starts nothing). Within a pass every
  // thread is asked to stop before the first stop is awaited, so that the
  // threads stop in parallel.
  for (int pass = 0; pass < 8; ++pass) {
    std::vector<uint32_t> seized;
    for (const uint32_t id : ListThreads()) {
      if (std::find(tried.begin(), tried.end(), id) != tried.end()) continue;
      tried.push_back(id);
      int thread_error = 0;
      if (SeizeThread(id, &thread_error)) {
        seized.push_back(id);
      } else if (*error == 0) {
        *error = thread_error;
      }
    }
    if (seized.empty()) break;
    for (const uint32_t id : seized) {
      int thread_error = 0;
      if (!CollectThread(id, &thread_error) && *error == 0) *error = thread_error;
    }
  }
  StopTimer();
  std::sort(threads_.begin(), threads_.end(),
            [](const ThreadState& a, const ThreadState& b) { return a.id < b.id; });
  // The process's first thread leads the list, as debuggers expect.
  const auto main_thread =
      std::find_if(threads_.begin(), threads_.end(),
                   [this](const ThreadState& t) { return t.id == static_cast<uint32_t>(pid_); });
  if (main_thread != threads_.end()) std::rotate(threads_.begin(), main_thread, main_thread + 1);
  return !threads_.empty();
}

void ProcessSnapshot::ResumeThread(uint32_t id) {
  const auto found = std::find_if(threads_.begin(), threads_.end(),
                                  [id](const ThreadState& t) { return t.id == id; });
  if (found == threads_.end() || found->released) return;
  // The signal to deliver travels in ptrace's data argument.
  ptrace(PTRACE_DETACH, static_cast<pid_t>(id), nullptr,
         reinterpret_cast<void*>(static_cast<intptr_t>(found->pending_signal)));  // NOLINT
  found->released = true;
}

void ProcessSnapshot::Resume() {
  for (const ThreadState& thread : threads_) ResumeThread(thread.id);
  threads_.clear();
}

bool ProcessSnapshot::ReadMappings() {
  const std::string maps = ReadProcFile("maps");
  if (maps.empty()) return false;
  mappings_.clear();
  size_t start = 0;
  while (start < maps.size()) {
    size_t end = maps.find('\n', start);
    if (end == std::string::npos) end = maps.size();
    Mapping mapping;
    if (ParseMapping(maps.substr(start, end - start), &mapping)) mappings_.push_back(mapping);
    start = end + 1;
  }
  return !mappings_.empty();
}

size_t ProcessSnapshot::ReadMemory(uint64_t address, void* buffer, size_t size) const {
  iovec local{buffer, size};
  iovec remote{reinterpret_cast<void*>(address), size};  // NOLINT(performance-no-int-to-ptr)
  const ssize_t got = process_vm_readv(pid_, &local, 1, &remote, 1, 0);
  if (got >= 0) return static_cast<size_t>(got);
  // Fall back to the memory file (process_vm_readv may be unavailable).
  const std::string path = "/proc/" + std::to_string(pid_) + "/mem";
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (file < 0) return 0;
  const ssize_t read_now = pread(file, buffer, size, static_cast<off_t>(address));
  close(file);
  return read_now > 0 ? static_cast<size_t>(read_now) : 0;
}

std::string ProcessSnapshot::ReadProcFile(const std::string& name) const {
  return ReadWholeFile("/proc/" + std::to_string(pid_) + "/" + name);
}

std::string ProcessSnapshot::ReadProcLink(const std::string& name) const {
  const std::string path = "/proc/" + std::to_string(pid_) + "/" + name;
  char target[4096];
  const ssize_t length = readlink(path.c_str(), target, sizeof target - 1);
  return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

const Mapping* ProcessSnapshot::FindMapping(uint64_t address) const {
  const auto after = std::upper_bound(
      mappings_.begin(), mappings_.end(), address,
      [](uint64_t value, const Mapping& mapping) { return value < mapping.start; });
  if (after == mappings_.begin()) return nullptr;
  const Mapping& candidate = *(after - 1);
  return address < candidate.end ? &candidate : nullptr;
}

}  // namespace vyn::dump_writer
