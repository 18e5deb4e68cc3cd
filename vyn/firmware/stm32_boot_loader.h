// CVYNSTM32BootLoader: firmware update of the device's STM32 processors
// through the chip's serial system bootloader.
//
// TransmitFirmware prepares the plain image of a firmware file as
// "temp.bin" in the current directory, connects to the bootloader on a
// serial port, checks its version and reads the chip id, erases the flash,
// writes the image from 0x08000000 in blocks of 256 bytes, and starts it
// with Go. Every step is logged (caller "CVYNSTM32BootLoader") in the
// user's language; progress goes out as messages of type
// MSG_FIRMWARE_TRANSMISSION_PROGRESS through Notify of the library's queue
// (GetVYNMessageQueue), one for each percentage from the last one posted
// on, so a large image posts each of 1 to 100 once.
//
// The protocol operations (stm32_ commands, stm32h_ helpers) return small
// results of their own, not status codes:
//   0 success; 1 the port could not be opened or set up; 2 a command was not
//   acknowledged, or a reply byte was missing or wrong; 3 the bootloader did
//   not answer the connect byte; 5 no port is open.
// A command stops at the first missing or wrong reply, without sending more;
// the port stays open for the caller to close.
//
// The port: one for the process, opened for this process alone (the serial
// driver of this library must have stopped its receiving thread on the same
// port), at 8E1 with parity checking. Reads wait under one of three limits
// that the operations switch between: none at all (draining before the
// connect), 2,000,000 ms (after the connect) and no limit (after an
// Extended Erase, whose end takes as long as the chip needs). A line that
// hangs up ends every wait at once, and so does CancelTransmission.
//
// Ownership: the object holds nothing; the port and the transmission's
// image file are process-wide and closed by the transmission on every path.
// Thread-safety: one transmission at a time in the process; a second call
// while one runs returns VYN_STATUS_BUSY at once. TransmitFirmware blocks
// its caller's thread. CancelTransmission may be called from any thread.
// Lock order: the transmission's state lock, then the port's cancel lock;
// neither is held while logging or posting progress.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/export.h"
#include "vyn/core/log_event_type.h"

class VYN_EXPORT CVYNSTM32BootLoader {
 public:
  CVYNSTM32BootLoader();
  virtual ~CVYNSTM32BootLoader();
  CVYNSTM32BootLoader(const CVYNSTM32BootLoader&) = delete;
  CVYNSTM32BootLoader& operator=(const CVYNSTM32BootLoader&) = delete;

  // Sends the firmware file `file_name` to the bootloader on `port_name`
  // ("COM3", "ttyUSB0" or a path). VYN_STATUS_SUCCESS when Go was
  // acknowledged; the status of DecryptFileA when the file cannot be turned
  // into the image (the port is not touched then); VYN_STATUS_FILE_ERROR
  // when the image cannot be read back; VYN_STATUS_UNSPECIFIC_ERROR for every
  // failure from the port on (the log says which step failed);
  // VYN_STATUS_BUSY while another transmission runs.
  int32_t TransmitFirmware(std::string port_name, std::string file_name);

  // Ends a transmission running on another thread: its current and every
  // later wait on the line ends at once, so it fails at the step it is in,
  // logs that step's error, closes the port and returns. The chip is left
  // as that step left it. Does nothing while no transmission runs.
  void CancelTransmission();

 protected:
  // A data source places up to `size` bytes into `buffer` and returns how
  // many (0 at the end of the data).
  using DataSource = uint32_t (*)(unsigned char* buffer, uint32_t size);
  // A progress function is told the bytes written to the chip so far.
  using ProgressFunction = void (*)(uint32_t written);

  // The system log's AddOutput with caller "CVYNSTM32BootLoader".
  int32_t AddOutput(std::string text, _VYNSystemLogExEventType type);
  // The data source of a transmission: the next bytes of "temp.bin".
  static uint32_t ReadUpdateFileBlock(unsigned char* buffer, uint32_t size);
  // The progress function of a transmission: posts a progress message when
  // the percentage written has reached the next one due.
  static void ReportProgress(uint32_t written);

  // Opens, sets up and connects: 0, 1 or 3.
  int stm32_init(std::string port_name, uint32_t baud_rate);
  // Get: the bootloader version as major (high nibble) and minor (low).
  int stm32_get_version(unsigned char* major, unsigned char* minor);
  // Get ID: the chip's product id.
  int stm32_get_chip_id(uint16_t* chip_id);
  // Write Unprotect; the chip restarts, and the port connects again: 0, 2,
  // 3 or 5.
  int stm32_write_unprotect();
  // Erase, of the whole flash.
  int stm32_erase_flash();
  // Extended Erase, mass erase; leaves reads without time limit.
  int stm32_extended_erase_flash();
  // Write Memory from 0x08000000 on, block by block as `source` delivers
  // them (at most 256 bytes each); `progress` may be null.
  int stm32_write_flash(DataSource source, ProgressFunction progress);
  // Go to 0x08000000.
  int stm32_go_command();

  // Opens the port for this process alone, closing one open before; its
  // descriptor, or -1 (no port). Names longer than 1,024 characters give -1.
  int stm32h_open_port(std::string port_name);
  // Line settings, no read time limit, buffers flushed: 0, or 1 with the
  // port closed.
  int stm32h_configure_port(uint32_t baud_rate);
  // The read limits: interval 0xFFFFFFFF with multiplier 0 takes only bytes
  // already received; otherwise a one-byte read waits `read_multiplier_ms`,
  // and 0 means without limit. 0, or 1 with the port closed when none is
  // open.
  int stm32h_set_timeouts(uint32_t read_interval_ms, uint32_t read_multiplier_ms);
  // The command byte and its complement; 0.
  int stm32h_send_command(unsigned char command);
  // One byte, or -1.
  int stm32h_read_byte();
  // The bytes and their XOR; 0.
  int stm32h_send_packet_with_checksum(unsigned char* bytes, uint32_t count);
  // The address, most significant byte first, and its XOR; 0.
  int stm32h_send_address(uint32_t address);
  // Drops what waits in the input, sends the connect byte and takes ACK or
  // NACK (a chip already connected answers NACK) as an answer: 0 or 3.
  int stm32h_connect_to_bl();
  // Closes the port; nothing happens when none is open.
  void stm32h_close_port();
};

// The process's one CVYNSTM32BootLoader, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNSTM32BootLoader& GetVYNSTM32BootLoader();
