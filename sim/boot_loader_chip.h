// The chip side of the STM32 system bootloader's serial protocol, byte by
// byte: it takes the bytes that arrive on the line and says what the chip
// answers, and keeps the chip's flash, protection states and counters. It
// knows nothing of time or terminals; boot_loader_simulator.h puts it on a
// line.
//
// After a reset the chip waits for the connect byte 0x7F and ignores
// everything else; it answers ACK and then takes commands: a code and its
// complement, then the command's own bytes, each group checked with its
// XOR checksum. A wrong complement or checksum, an address outside the flash
// or a command the chip does not offer is answered with NACK, after which
// the chip waits for the next command. A connect byte where a command code
// is expected is answered with NACK, so that a host that connects twice sees
// that the chip is listening already. Go, Write Protect, Write Unprotect,
// Readout Protect and Readout Unprotect end with a reset. While the flash is
// readout-protected only Get, Get Version, Get ID and Readout Unprotect are
// served; every other command is refused at once.
//
// Thread-safety: none; the simulator serialises access.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "sim/boot_loader_types.h"
#include "sim/flash_memory.h"

namespace vyn::sim {

// One byte of the chip's answer and how long the chip works before it can
// send it (an erase).
struct ChipByte {
  uint8_t value = 0;
  std::chrono::microseconds pause{0};
};

class BootLoaderChip {
 public:
  explicit BootLoaderChip(const BootLoaderChipOptions& options);

  // Takes one received byte and appends the chip's answer, if any, to `reply`.
  void Receive(uint8_t byte, std::vector<ChipByte>* reply);

  // The chip restarts: it waits for the connect byte again. Flash and
  // protection are kept.
  void Reset();
  // The same for a chip that has just been powered; not counted as a reset.
  void PowerOn();
  // False while waiting for the connect byte.
  bool connected() const { return step_ != Step::kWaitConnect; }

  const FlashMemory& flash() const { return flash_; }
  BootLoaderSimulatorCounters& counters() { return counters_; }
  const BootLoaderSimulatorCounters& counters() const { return counters_; }

  uint16_t chip_id() const { return chip_id_; }
  void set_chip_id(uint16_t id) { chip_id_ = id; }
  uint8_t version() const { return version_; }
  void set_version(uint8_t version) { version_ = version; }
  bool read_protected() const { return read_protected_; }
  void set_read_protected(bool on) { read_protected_ = on; }
  bool write_protected() const { return flash_.AnyPageProtected(); }
  void set_write_protected(bool on) { flash_.ProtectAll(on); }

  // Faults. A silent chip drops every byte it receives and answers nothing;
  // its state stays as it was.
  void set_silent(bool on) { silent_ = on; }
  bool silent() const { return silent_; }
  void InjectNack(const NackFault& fault) { nack_fault_ = fault; }
  void ClearNack() { nack_fault_.reset(); }
  // The ACK after `skip` more ones is not sent; the chip goes on as if it were.
  void LoseAck(uint32_t skip) { lost_ack_skip_ = skip; }
  void ClearLostAck() { lost_ack_skip_.reset(); }

  // The commands offered, as Get lists them.
  std::vector<uint8_t> Commands() const;

 private:
  enum class Step { kWaitConnect, kCommand, kComplement, kCollect };
  // What the bytes being collected are.
  enum class Stage {
    kReadAddress,
    kReadCount,
    kWriteAddress,
    kWriteCount,
    kWriteData,
    kGoAddress,
    kEraseCount,
    kEraseGlobal,
    kErasePages,
    kExtendedEraseCount,
    kExtendedEraseSpecial,
    kExtendedErasePages,
    kProtectCount,
    kProtectPages,
  };

  void StartCommand();
  void Collect(size_t count, Stage stage);
  void FinishStage();
  // Erases the pages listed (all for `mass`) when the checksum was right.
  void FinishErase(bool checksum_right, const std::vector<uint32_t>& pages, bool mass);
  // The address in the first four bytes collected, when its checksum is right.
  std::optional<uint32_t> CollectedAddress();
  // True when the XOR of `seed` and the bytes collected is 0.
  bool CollectedChecksumRight(uint8_t seed);
  bool RefusedWhileReadProtected(uint8_t command) const;
  bool Offers(uint8_t command) const;
  // Whether the injected NACK hits the current command at `point`; each
  // call counts as one occurrence.
  bool NackInjected(NackPoint point);
  // `ok`, unless an injected NACK refuses the command's work.
  bool Allowed(bool ok) { return ok && !NackInjected(NackPoint::kResult); }

  void Send(uint8_t byte);
  // The next byte sent goes out `duration` later.
  void Pause(std::chrono::microseconds duration) { pause_ += duration; }
  void Ack();
  void Nack();

  FlashMemory flash_;
  uint16_t chip_id_;
  uint8_t version_;
  bool read_protected_;
  std::chrono::microseconds page_erase_time_;

  Step step_ = Step::kWaitConnect;
  uint8_t command_ = 0;
  Stage stage_ = Stage::kReadAddress;
  std::vector<uint8_t> collected_;
  size_t wanted_ = 0;
  uint32_t address_ = 0;
  uint8_t count_ = 0;  // the count byte of the command's data
  uint16_t extended_count_ = 0;

  bool silent_ = false;
  std::optional<NackFault> nack_fault_;
  std::optional<uint32_t> lost_ack_skip_;

  std::vector<ChipByte>* reply_ = nullptr;  // during Receive()
  std::chrono::microseconds pause_{0};
  BootLoaderSimulatorCounters counters_;
};

}  // namespace vyn::sim
