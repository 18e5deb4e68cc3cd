// Settings, faults and counters of the simulated STM32 system bootloader
// (boot_loader_chip.h, boot_loader_simulator.h).
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <vector>

namespace vyn::sim {

// Command codes of the bootloader's serial protocol.
namespace boot_command {
constexpr uint8_t kGet = 0x00;
constexpr uint8_t kGetVersion = 0x01;  // version and read protection status
constexpr uint8_t kGetId = 0x02;
constexpr uint8_t kReadMemory = 0x11;
constexpr uint8_t kGo = 0x21;
constexpr uint8_t kWriteMemory = 0x31;
constexpr uint8_t kErase = 0x43;
constexpr uint8_t kExtendedErase = 0x44;
constexpr uint8_t kWriteProtect = 0x63;
constexpr uint8_t kWriteUnprotect = 0x73;
constexpr uint8_t kReadoutProtect = 0x82;
constexpr uint8_t kReadoutUnprotect = 0x92;
}  // namespace boot_command

constexpr uint8_t kBootConnect = 0x7F;
constexpr uint8_t kBootAck = 0x79;
constexpr uint8_t kBootNack = 0x1F;

// What the chip is. The defaults make a 1 MiB part with the sector layout
// of the larger families, chip id 0x0413 and bootloader version 3.1, which
// erases with Extended Erase; a version below 3.0 offers Erase instead.
struct BootLoaderChipOptions {
  uint16_t chip_id = 0x0413;
  uint8_t version = 0x31;  // major in the high, minor in the low nibble
  uint32_t flash_base = 0x08000000;
  uint32_t flash_size = 1024 * 1024;
  // Page (sector) sizes from the base upwards; the last one repeats until
  // the flash ends. Erase addresses pages by number, 0 being at the base.
  std::vector<uint32_t> page_sizes = {0x4000, 0x4000, 0x4000, 0x4000, 0x10000, 0x20000};
  bool read_protected = false;
  bool write_protected = false;  // every page
  // How long the chip is busy per erased page before it answers; mass
  // erases take as long as erasing every page.
  std::chrono::microseconds page_erase_time{0};
};

enum class FaultRepeat { kOnce, kAlways };

// Which answer of a command an injected NACK replaces.
enum class NackPoint {
  kCommand,  // the first: the command itself is refused
  kResult,   // the last: the command's work (write, erase, unprotect...) is refused and not done
};

struct NackFault {
  uint8_t command = 0;
  FaultRepeat repeat = FaultRepeat::kOnce;
  NackPoint point = NackPoint::kCommand;
  // Occurrences of the command that pass before the first NACK, so that a
  // write can fail in its middle.
  uint32_t skip = 0;
};

struct BootLoaderSimulatorCounters {
  uint64_t bytes_received = 0;
  uint64_t bytes_sent = 0;
  uint64_t ignored_bytes = 0;  // received while waiting for the connect byte or silent
  uint64_t connects = 0;       // connect bytes answered with ACK
  uint64_t commands = 0;       // command codes received with a correct complement
  std::array<uint64_t, 256> commands_by_code{};
  uint64_t acks = 0;             // ACKs answered (lost ones not counted)
  uint64_t nacks = 0;            // NACKs answered, injected ones included
  uint64_t checksum_errors = 0;  // wrong complements and checksums
  uint64_t blocks_written = 0;   // Write Memory commands carried out
  uint64_t bytes_written = 0;    // data bytes programmed into the flash
  uint64_t bytes_read = 0;       // data bytes sent by Read Memory
  uint64_t pages_erased = 0;     // by Erase and Extended Erase with page lists
  uint64_t mass_erases = 0;      // global erases, readout unprotect included
  uint64_t resets = 0;           // restarts by command, Go or Reset(), not by power
  uint64_t go_commands = 0;      // Go commands carried out
  uint32_t last_go_address = 0;
  uint64_t injected_nacks = 0;
  uint64_t lost_acks = 0;
  uint64_t discarded_bytes = 0;  // answers thrown away by an unplug or a stop
};

}  // namespace vyn::sim
