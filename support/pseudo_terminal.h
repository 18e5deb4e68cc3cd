// A pseudo-terminal pair: the master side stays with its owner (a simulated
// device), the slave side is a terminal device that any program opens by
// path, exactly like a serial port.
//
// The slave is put into raw mode (no echo, no line editing, no character
// translation in either direction), so both sides see every byte unchanged
// even when the program on the slave side leaves the settings alone. The
// settings belong to the terminal, not to a descriptor, and stay while the
// master is open.
//
// While no program holds the slave open, the master reports a hang-up in
// WaitForDescriptor and reading it fails with kHungUp; bytes written to the
// master meanwhile would wait in the terminal for the next program that
// opens the slave. Closing the master hangs up every open slave descriptor
// (poll reports POLLHUP, reads return 0, writes fail with EIO) and removes
// the slave's device node.
//
// Ownership: the object owns the master descriptor and closes it on Close()
// or destruction; it can be moved, not copied.
// Thread-safety: none; one thread owns the object. I/O on the master goes
// through descriptor_io.h.
#pragma once

#include <string>

namespace vyn::support {

class PseudoTerminal {
 public:
  PseudoTerminal() = default;
  ~PseudoTerminal();
  PseudoTerminal(PseudoTerminal&& other) noexcept;
  PseudoTerminal& operator=(PseudoTerminal&& other) noexcept;
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;

  // Opens a new pair, closing a pair held before. The master is
  // non-blocking and close-on-exec. False when the system has no pair to
  // give or the slave cannot be configured; nothing is held then.
  [[nodiscard]] bool Open();
  void Close();

  // Keeps a descriptor of the slave open in this object until Close(), so
  // that the master stops reporting a hang-up while no program has the port
  // open and its owner can wait on it without a time limit. Bytes written to
  // the master then wait in the terminal for the next program that reads
  // the port. False when the slave cannot be opened.
  [[nodiscard]] bool HoldSlaveOpen();

  // Starts noting every open of the slave from now on, so that an owner
  // waiting for the first program on the port can sleep on
  // open_watch_descriptor() (readable after an open) instead of looking at
  // the master again and again. False when the system cannot watch.
  [[nodiscard]] bool WatchSlaveOpens();
  // -1 without a watch.
  int open_watch_descriptor() const { return open_watch_; }
  // Forgets the opens noted so far.
  void DrainOpenWatch();

  bool IsOpen() const { return master_ >= 0; }
  // -1 while closed.
  int master_descriptor() const { return master_; }
  // The slave's device path, such as /dev/pts/3; empty while closed.
  const std::string& slave_path() const { return slave_path_; }

 private:
  int master_ = -1;
  int held_slave_ = -1;
  int open_watch_ = -1;
  std::string slave_path_;
};

}  // namespace vyn::support
