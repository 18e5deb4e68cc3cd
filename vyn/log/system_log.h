// CVYNSystemLogEx: the process's one system log.
//
// Every thread hands it texts through AddOutput, which filters, numbers,
// counts and queues them and wakes the output thread "VYN System Log". That
// thread writes each entry as one line of a CSV file and, while a view is
// attached and enabled, as one line of that text control. Entries are
// accepted only while the output thread runs, from Initialize to Terminate.
//
// Files: Logs/ below the current directory at the moment a file is started,
// named "<name> YYYY-MM-DD hh-mm-ss.csv" after the local time. A new file is
// started at every Initialize and after the line that takes the current file
// past 10,485,760 bytes or past 65,000 entries (every entry the output thread
// handles counts, also one that only the view shows). A file is never
// emptied or appended to: when the name is taken (two files started within
// one second), the first free of "<name> YYYY-MM-DD hh-mm-ss (2).csv",
// "... (3).csv" and so on is created, always exclusively.
//
// Writing: the output thread takes everything queued at once and writes it
// as one batch. Lines gather in memory and are handed to the operating
// system at least after every batch, that is whenever the queue runs empty
// and before every heartbeat: a crash of the process loses nothing that was
// accepted before the thread last caught up, and a thread frozen by the
// thread monitor holds back no line. Terminate returns when every accepted
// entry is written and the file's data is on the storage device.
//
// Failures: when the file cannot be created (at Initialize or at a change of
// file), entries go to the view only until the next Initialize. When a write
// fails (full disk, failing device), the file is closed; it keeps only whole
// lines (a line cut short is cut off again), and a file that kept no entry
// line is removed. The first entry for the file that comes 10 s or more
// after the failure starts a new file; should that fail too, the next try
// is another 10 s later. Every entry that passes the file filter but is not
// whole in a file is counted (GetLostEntryCount). Each failure, with the
// file's path and the system's reason, goes to standard error at once (also
// from Initialize, under its lock) and to the view as soon as the output
// thread runs (a line without a number, not counted as an entry); the view
// is fed as before. GetFilePath tells which file a run writes to.
//
// Ownership: the log owns its queue and entries, its file and its thread.
// The view belongs to the application and must stay valid until Terminate.
//
// Thread-safety: AddOutput, every setter and getter, GetEntryCount,
// GetLogStatistics and ResetPriorityCounter may be called from any thread.
// Initialize and Terminate are for the application's controlling thread;
// Initialize calls are serialised. The view is called from the output
// thread only, with no lock of the log held.
//
// Terminate and the view: Terminate waits for the output thread, which may
// be inside a call of the view. A CEdit that hands its calls over to the
// toolkit's thread and waits for them must not be stopped from that thread
// while the view is enabled: call SetEnableOutput(false) first (the file
// still receives every entry), or let the control take the calls without
// waiting. Terminate called on the output thread itself (from inside a view
// call) only asks the thread to stop and returns; the thread writes what is
// queued and ends, and the next Initialize collects it.
//
// Backlog: the entry queue has no bound, on purpose. The log is what
// explains a failure afterwards, so an accepted entry is never dropped for
// want of room, and AddOutput, called by every thread of the process, never
// waits for the disk. When the disk stalls, the output thread waits in a
// write and accepted entries gather in memory (measured: about 180 bytes
// for an entry with a 60-character text, bench/backlog_bench.cpp);
// GetEntryCount shows the backlog. Only when no
// memory is left does AddOutput answer VYN_STATUS_NO_MEMORY.
//
// Lock order: Initialize's lock, then the output thread object's lock (which
// that object holds only for a few instructions, never while it waits). The
// queue lock is a leaf: it is held only to accept or to take entries, and
// nothing else is called while it is held. The output thread's wake-up is
// an atomic flag and an eventfd: raising it takes no lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/core/log_event_type.h"
#include "vyn/core/window_controls.h"
#include "vyn/log/system_log_entry.h"
#include "vyn/threads/monitored_thread.h"

class VYN_EXPORT CVYNSystemLogEx {
 public:
  CVYNSystemLogEx();
  // Stops a still running output thread, which writes what is queued.
  virtual ~CVYNSystemLogEx();
  CVYNSystemLogEx(const CVYNSystemLogEx&) = delete;
  CVYNSystemLogEx& operator=(const CVYNSystemLogEx&) = delete;

  // Accepts one entry: VYN_STATUS_FORBIDDEN while the log does not run,
  // VYN_STATUS_DISABLED when the type passes neither filter (always so for
  // VYN_EVENT_UNKNOWN), VYN_STATUS_INVALID_PARAMETER for an empty text,
  // VYN_STATUS_NO_MEMORY when the entry cannot be stored. Never waits for a
  // file or the view.
  int32_t AddOutput(std::string text, _VYNSystemLogExEventType type, std::string reference = "",
                    std::string caller = "", std::string context = "");

  // Event-type masks for the file and the view; read when an entry is
  // accepted (it must pass one of them) and again when it is written.
  void SetFileFilter(uint32_t mask);
  // The file's mask as last set.
  uint32_t GetFileFilter();
  // Sets the view's mask, used as the file's is.
  void SetOutputFilter(uint32_t mask);
  // The view's mask as last set.
  uint32_t GetOutputFilter();
  // The view is fed only while this is true (false after load).
  void SetEnableOutput(bool enable);
  // With auto-scroll the view follows the newest line; without, the user's
  // selection and scroll position stay.
  void SetControlAutoScroll(bool auto_scroll);
  // The auto-scroll flag as last set.
  bool GetControlAutoScroll();
  // A value kept for the application; the log never consults it.
  void SetAllowDowngrade(uint32_t value);
  // The value last given to SetAllowDowngrade.
  uint32_t GetAllowDowngrade();

  // Entries accepted and not yet written (and handed to the operating
  // system); 0 means everything accepted so far is in the file.
  int32_t GetEntryCount();
  // Zeroes the per-type counters; the running number stays.
  int32_t ResetPriorityCounter();
  // Writes through every pointer given: the running number, then the
  // counters of unknown, exception, assert, fatal, error, warning,
  // information, command and debug entries. A snapshot without the lock.
  int32_t GetLogStatistics(int64_t* number, int64_t* unknown, int64_t* exception,
                           int64_t* assert_count, int64_t* fatal, int64_t* error, int64_t* warning,
                           int64_t* information, int64_t* command, int64_t* debug);
  // Entries that passed the file filter but are in no file (see above).
  int64_t GetLostEntryCount();
  // Full path of the CSV file this run of the log writes to: the current
  // file, or after a failed write the last file that kept entries. Empty
  // when no file holding an entry of this run exists (for example when the
  // folder cannot be written). Stays after Terminate, until Initialize.
  std::string GetFilePath();

  // Starts the log: VYN_STATUS_BUSY while it runs; else the status of
  // starting the thread. An empty name becomes "VYN System Log", an empty
  // version "V 00.00 (2010-01-01)". Zeroes the per-type counters and starts
  // a new file (without a file the log still runs and feeds the view).
  int32_t Initialize(CEdit* view, std::string name, std::string version);
  // Stops the output thread after it has written every accepted entry. The
  // file stays open until the next Initialize.
  int32_t Terminate();
  // The body of the output thread.
  int32_t RunOutputThread();

 protected:
  // Counts one more entry of `type` (an unknown type counts as unknown); 0.
  // Lock-free, from any thread.
  int32_t IncreasePriorityCounter(_VYNSystemLogExEventType type);
  // The event column's word for `type` ("error", "debug", ...); "???" for a
  // value that is no event type.
  std::string GetEventTypeAsString(_VYNSystemLogExEventType type);
  // Writes one entry to the file and the view, as the filters and flags
  // stand now. Output thread only.
  void ProcessEntry(_VYN_SYSTEM_LOG_EX_ENTRY* entry);
  // Starts a new file when the current one is too long or has too many
  // entries.
  int32_t CheckLogFile();
  // Closes the current file and starts a new one.
  int32_t GenerateFileNames();
  // Writes the CSV column titles as the file's first line and flushes them;
  // 0. Output thread only.
  int32_t WriteCSVHeader();

 private:
  // An entry with the moment it was accepted, which the output thread turns
  // into local time.
  struct QueuedEntry {
    _VYN_SYSTEM_LOG_EX_ENTRY entry;
    int64_t accepted_at = 0;  // UTC file time
  };
  using Batch = std::vector<std::unique_ptr<QueuedEntry>>;

  static int32_t OutputThreadFunction(void* log);
  // Swaps the queue for the (empty) batch; false when nothing was queued.
  bool TakeQueued(Batch* batch);
  void WriteBatch(Batch* batch);
  // After the stop: writes every entry left and hands the file to the device.
  void WriteUntilEmpty(Batch* batch);
  // Writes what is pending, then tells the queue that nothing taken is
  // outstanding any more.
  void CatchUp();
  // Hands pending lines to the system, then stamps the heartbeat (which
  // freezes this thread for good once the thread monitor has found a hang).
  void HeartBeat();
  // After a failed write: starts a new file when the wait is over.
  void RetryFailedFile();
  // Shows one line on the view, as the flags and the output filter stand.
  void ShowOnView(const _VYN_SYSTEM_LOG_EX_ENTRY& entry);
  // Shows the file writer's failure reports on the view. Output thread only.
  void ShowReports();
  int32_t AddOwnOutput(const char* text, _VYNSystemLogExEventType type);
  // Asks the output thread to stop, wakes it and waits for its end.
  void StopOutputThread();

  CEdit* view_ = nullptr;  // not owned
  std::string name_;
  std::string version_;
  std::atomic<bool> enable_output_{false};
  std::atomic<bool> auto_scroll_{false};
  std::string path_;
  int64_t file_entry_count_ = 0;             // output thread
  std::atomic<int64_t> sequence_number_{0};  // written under queue_lock_
  std::atomic<int64_t> counters_[9] = {};
  CRITICAL_SECTION queue_lock_;
  Batch queue_ VYN_GUARDED_BY(queue_lock_);
  int64_t taken_not_written_ VYN_GUARDED_BY(queue_lock_) = 0;
  std::atomic<uint32_t> file_filter_{0xFFFFFFFF};
  std::atomic<uint32_t> output_filter_{0xFFFFFFFF};
  std::atomic<uint32_t> allow_downgrade_{0};
  // The CSV file, the local-time cache, the output thread's wake-up and the
  // lock that serialises Initialize, kept out of this header because they
  // are built on the platform layer. Used by the output thread (and
  // GetLostEntryCount, which reads an atomic counter of the file).
  struct Output;
  std::unique_ptr<Output> output_;
  std::string line_;  // output thread: the line being formatted
  // Last member: destroyed first, after the destructor has stopped it.
  CVYNMonitoredThread output_thread_;
};

// The process's one CVYNSystemLogEx, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNSystemLogEx& GetVYNSystemLogEx();
