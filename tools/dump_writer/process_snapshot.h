// A stopped view of another process: its threads (stopped with ptrace, with
// their registers), its memory mappings, its memory and its /proc records.
//
// Threads are seized and interrupted, which stops them without sending a
// signal that could stay pending; a signal that arrives while they are
// stopped is handed back to them when they are released. A thread that does
// not stop within the time limit (one blocked uninterruptibly in the kernel)
// is left out rather than waited for.
//
// Ownership: the destructor releases every stopped thread.
// Thread-safety: none; one thread uses the object.
#pragma once

#include <sys/types.h>
#include <sys/user.h>

#include <cstdint>
#include <string>
#include <vector>

namespace vyn::dump_writer {

struct Mapping {
  uint64_t start = 0;
  uint64_t end = 0;
  uint64_t offset = 0;
  uint64_t inode = 0;
  bool readable = false;
  bool writable = false;
  bool executable = false;
  bool shared = false;
  std::string path;  // file path, or a name such as [stack], or empty

  uint64_t size() const { return end - start; }
  bool IsFile() const { return inode != 0 && !path.empty() && path[0] == '/'; }
};

struct ThreadState {
  uint32_t id = 0;
  std::string name;
  user_regs_struct registers{};
  user_fpregs_struct floating_point{};
  int pending_signal = 0;  // to be handed back on release
  bool released = false;
};

class ProcessSnapshot {
 public:
  explicit ProcessSnapshot(pid_t pid);
  ~ProcessSnapshot();
  ProcessSnapshot(const ProcessSnapshot&) = delete;
  ProcessSnapshot& operator=(const ProcessSnapshot&) = delete;

  // Stops every thread, also those started while stopping the others.
  // False (and `error` set) when not a single thread could be stopped.
  bool Suspend(int timeout_ms, int* error);
  // Releases one stopped thread, before the others.
  void ResumeThread(uint32_t id);
  // Releases every stopped thread and forgets them.
  void Resume();
  // Reads the memory mappings; false when /proc/<pid>/maps cannot be read.
  bool ReadMappings();

  // Copies up to `size` bytes from `address`; returns how many could be
  // read (whole pages only are skipped when a page is unreadable).
  size_t ReadMemory(uint64_t address, void* buffer, size_t size) const;
  // The content of /proc/<pid>/<name>; empty when unreadable.
  std::string ReadProcFile(const std::string& name) const;
  // The target of the link /proc/<pid>/<name>; empty when unreadable.
  std::string ReadProcLink(const std::string& name) const;

  const Mapping* FindMapping(uint64_t address) const;

  pid_t pid() const { return pid_; }
  const std::vector<Mapping>& mappings() const { return mappings_; }
  const std::vector<ThreadState>& threads() const { return threads_; }

 private:
  bool SeizeThread(uint32_t id, int* error);
  bool CollectThread(uint32_t id, int* error);
  std::vector<uint32_t> ListThreads() const;

  pid_t pid_;
  std::vector<Mapping> mappings_;
  std::vector<ThreadState> threads_;
};

}  // namespace vyn::dump_writer
