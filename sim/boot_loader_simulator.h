// A simulated STM32 system bootloader on a pseudo-terminal, for tests, the
// benchmarks and firmware updates without hardware.
//
// The chip (boot_loader_chip.h) answers the bootloader's serial protocol:
// connect byte, Get, Get Version, Get ID, Read Memory, Go, Write Memory,
// Erase or Extended Erase (by version), Write Protect and Unprotect, Readout
// Protect and Unprotect, with a flash that behaves as flash does. A program
// opens the port path like a serial port; line settings are taken as given
// (a pseudo-terminal keeps no parity, which the simulator does not need).
//
// Pacing: at a given baud rate both directions of the line carry one byte
// per 11 bit times (8 data bits, parity, start and stop bit), each on its
// own clock (line_clock.h): a byte from the host reaches the chip when the
// line has carried it, and an answer reaches the host when the line has
// carried it after the chip decided to send it. So transfer times are those
// of a real line, and the simulator's own delays do not add up. At 0 baud
// everything goes at once.
//
// Faults on demand, each with its undo: a NACK instead of an ACK for a given
// command (once, or always), a lost ACK, silence, another chip id or
// version, write- or readout-protected flash, and unplugging (the terminal
// closes, every program on the port sees a hang-up, the path goes away;
// Replug() brings a fresh terminal under the same path).
//
// Usage:
//   vyn::sim::BootLoaderSimulatorOptions options;
//   options.baud_rate = 115200;
//   vyn::sim::BootLoaderSimulator chip(options);
//   if (!chip.Start()) { ... }
//   Flash(chip.port_path());                     // e.g. /tmp/vyn-sim-Ab12Cd/bootloader
//   chip.InjectNack({vyn::sim::boot_command::kWriteMemory});  // the next write fails
//   std::vector<uint8_t> flash = chip.FlashContents();
//   chip.Stop();
//
// Ownership: the simulator owns its thread, the pseudo-terminal, the link
// and (when it created it) the link's directory; Stop() or destruction
// removes them.
// Thread-safety: Start(), Stop() and destruction belong to the owning
// thread. Every other method may be called from any thread; faults take
// effect from the next byte the chip receives. One lock, the port's, guards
// all state; it is never held while the simulator's thread waits for the
// line, and the simulator calls nothing outside itself.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "sim/boot_loader_chip.h"
#include "sim/boot_loader_types.h"
#include "sim/line_clock.h"
#include "sim/pluggable_port.h"
#include "vyn/base/thread_annotations.h"

namespace vyn::sim {

struct BootLoaderSimulatorOptions : BootLoaderChipOptions {
  // Where the port link is made; empty: a new directory below /tmp, removed
  // again when the simulator stops. A given directory must exist.
  std::string link_directory;
  std::string link_name = "bootloader";
  // Bytes per second times 11; 0 for an unpaced line.
  uint32_t baud_rate = 0;
};

class BootLoaderSimulator {
 public:
  using Clock = std::chrono::steady_clock;
  // The largest flash the simulator takes.
  static constexpr uint32_t kMaxFlashSize = 64u * 1024 * 1024;

  explicit BootLoaderSimulator(BootLoaderSimulatorOptions options = {});
  ~BootLoaderSimulator();
  BootLoaderSimulator(const BootLoaderSimulator&) = delete;
  BootLoaderSimulator& operator=(const BootLoaderSimulator&) = delete;

  // Makes the pseudo-terminal and the link and starts the thread. False when
  // any of them fails (nothing is left behind then), when the flash is empty
  // or larger than kMaxFlashSize, or when already running. A restart keeps
  // the chip: flash, protection and counters.
  [[nodiscard]] bool Start();
  // True when the last Start() failed because something was at the link's path.
  bool LinkTaken() const { return port_.LinkTaken(); }
  // Stops the thread and removes terminal, link and own directory; answers
  // not yet sent are dropped. Safe to call more than once.
  void Stop() { port_.Stop(); }
  bool IsRunning() const { return port_.IsRunning(); }

  const BootLoaderSimulatorOptions& options() const { return options_; }
  // The path to open: the link. Set by Start() and kept until the next Start().
  const std::string& port_path() const { return port_.path(); }
  // The terminal device the link points to now; empty while unplugged.
  std::string terminal_path() const { return port_.terminal_path(); }

  // A copy of the whole flash, from flash_base().
  std::vector<uint8_t> FlashContents() const VYN_EXCLUDES(port_.mutex());
  uint32_t flash_base() const { return options_.flash_base; }
  BootLoaderSimulatorCounters counters() const VYN_EXCLUDES(port_.mutex());
  // True once the chip has answered the connect byte, until its next reset.
  bool IsConnected() const VYN_EXCLUDES(port_.mutex());
  // The chip restarts and waits for the connect byte; answers not yet sent
  // are dropped. Flash and protection stay.
  void Reset() VYN_EXCLUDES(port_.mutex());
  void SetBaudRate(uint32_t baud_rate) VYN_EXCLUDES(port_.mutex());

  // Faults.
  void InjectNack(const NackFault& fault)
      VYN_EXCLUDES(port_.mutex());  // replaces one injected before
  void ClearNack() VYN_EXCLUDES(port_.mutex());
  // The ACK after `skip` more ones is not sent; the chip goes on as if it were.
  void LoseAck(uint32_t skip = 0) VYN_EXCLUDES(port_.mutex());
  void ClearLostAck() VYN_EXCLUDES(port_.mutex());
  // A silent chip drops what it receives and answers nothing.
  void SetSilent(bool silent) VYN_EXCLUDES(port_.mutex());
  void SetChipId(uint16_t chip_id) VYN_EXCLUDES(port_.mutex());
  uint16_t chip_id() const VYN_EXCLUDES(port_.mutex());
  void SetVersion(uint8_t version) VYN_EXCLUDES(port_.mutex());
  uint8_t version() const VYN_EXCLUDES(port_.mutex());
  // Every page protected, or none; Write Unprotect also lifts it.
  void SetWriteProtected(bool on) VYN_EXCLUDES(port_.mutex());
  bool IsWriteProtected() const VYN_EXCLUDES(port_.mutex());  // any page
  // Readout Unprotect also lifts it (and erases the flash).
  void SetReadProtected(bool on) VYN_EXCLUDES(port_.mutex());
  bool IsReadProtected() const VYN_EXCLUDES(port_.mutex());
  // Undoes the injected NACK, the lost ACK and silence, and gives chip id
  // and version their values from the options. Protection and plug stay.
  void ClearFaults() VYN_EXCLUDES(port_.mutex());

  // Closes the terminal (every program on the port sees a hang-up) and
  // removes the link; the chip loses power, so it restarts and answers not
  // yet sent are gone. True once done; false when not running or the
  // simulator's thread did not answer within seconds.
  bool Unplug() { return port_.Unplug(); }
  // A new terminal under the same path, with the chip waiting for the
  // connect byte; a terminal still plugged in is closed afterwards, so this
  // also works as a quick unplug and replug. True once done; false when not
  // running or the terminal or link could not be made (the chip then stays
  // unplugged).
  bool Replug() { return port_.Replug(); }
  bool IsPlugged() const { return port_.IsPlugged(); }

 private:
  // One answer byte and the moment the line has carried it to the host.
  struct Outgoing {
    uint8_t value;
    Clock::time_point due;
  };

  void Run() VYN_EXCLUDES(port_.mutex());
  // A new terminal is a new cable and a chip that has just been powered;
  // no terminal is a chip without power.
  void LineChanged();
  void DropAnswers() VYN_REQUIRES(port_.mutex());
  void ReadFromLine() VYN_REQUIRES(port_.mutex());
  void WriteDueAnswers() VYN_REQUIRES(port_.mutex());

  const BootLoaderSimulatorOptions options_;
  // Declared mutable for the const accessors, which take its lock.
  mutable PluggablePort port_;

  BootLoaderChip chip_ VYN_GUARDED_BY(port_.mutex());
  LineClock to_chip_ VYN_GUARDED_BY(port_.mutex());
  LineClock to_host_ VYN_GUARDED_BY(port_.mutex());
  std::deque<Outgoing> outbox_ VYN_GUARDED_BY(port_.mutex());
  // The host does not read: wait until the terminal takes more.
  bool write_blocked_ VYN_GUARDED_BY(port_.mutex()) = false;
};

}  // namespace vyn::sim
