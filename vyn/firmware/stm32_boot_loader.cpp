// The protocol operations of CVYNSTM32BootLoader (the transmission that
// strings them together lives in firmware_transmission.cpp).
#include "vyn/firmware/stm32_boot_loader.h"

#include <array>

#include "vyn/firmware/internal/boot_loader_line.h"
#include "vyn/platform/serial_device.h"

namespace vyn::firmware {

platform::BootLoaderPort& BootLoaderLine() {
  static platform::BootLoaderPort port;
  return port;
}

}  // namespace vyn::firmware

namespace {

using vyn::firmware::BootLoaderLine;

constexpr int kSuccess = 0;
constexpr int kPortFailed = 1;
constexpr int kNotAcknowledged = 2;
constexpr int kNoAnswer = 3;
constexpr int kNoPort = 5;

constexpr unsigned char kConnect = 0x7F;
constexpr unsigned char kAck = 0x79;
constexpr unsigned char kNack = 0x1F;

constexpr uint32_t kFlashStart = 0x08000000;
constexpr uint32_t kBlockSize = 256;
constexpr size_t kLongestPortPath = 1024;

// The read limits, in the terms of the settings that stm32h_set_timeouts takes.
constexpr uint32_t kOnlyWhatIsThere = 0xFFFFFFFF;
constexpr uint32_t kLongWaitMs = 2000000;

// A chip that streams bytes without end must not keep the drain going: a
// line at 115,200 baud brings 64 KiB in about six seconds.
constexpr int kMostBytesDrained = 65536;

// How long the chip takes to restart after Write Unprotect.
constexpr int kRestartPauseMs = 200;

bool PortOpen() { return BootLoaderLine().IsOpen(); }

void Send(std::initializer_list<unsigned char> bytes) {
  BootLoaderLine().Write(bytes.begin(), bytes.size());
}

bool ReadAck() { return BootLoaderLine().ReadByte() == kAck; }

// The command byte and its complement, then the first acknowledgement.
bool Command(unsigned char command) {
  Send({command, static_cast<unsigned char>(~command)});
  return ReadAck();
}

}  // namespace

int CVYNSTM32BootLoader::stm32h_open_port(std::string port_name) {
  stm32h_close_port();
  const std::string path = vyn::platform::SerialDevicePath(port_name);
  if (port_name.empty() || path.size() > kLongestPortPath) return -1;
  if (!BootLoaderLine().Open(path, nullptr)) return -1;
  return BootLoaderLine().descriptor();
}

int CVYNSTM32BootLoader::stm32h_configure_port(uint32_t baud_rate) {
  if (!BootLoaderLine().Configure(baud_rate, nullptr)) {
    stm32h_close_port();
    return kPortFailed;
  }
  if (stm32h_set_timeouts(0, 0) != kSuccess) return kPortFailed;
  BootLoaderLine().Flush();
  return kSuccess;
}

int CVYNSTM32BootLoader::stm32h_set_timeouts(uint32_t read_interval_ms,
                                             uint32_t read_multiplier_ms) {
  if (!PortOpen()) return kPortFailed;
  int64_t limit_ms = read_multiplier_ms;
  if (read_interval_ms == kOnlyWhatIsThere && read_multiplier_ms == 0) {
    limit_ms = 0;
  } else if (read_multiplier_ms == 0) {
    limit_ms = -1;
  }
  BootLoaderLine().SetReadTimeout(limit_ms);
  return kSuccess;
}

int CVYNSTM32BootLoader::stm32h_send_command(unsigned char command) {
  Send({command});
  Send({static_cast<unsigned char>(~command)});
  return kSuccess;
}

int CVYNSTM32BootLoader::stm32h_read_byte() { return BootLoaderLine().ReadByte(); }

int CVYNSTM32BootLoader::stm32h_send_packet_with_checksum(unsigned char* bytes, uint32_t count) {
  if (bytes == nullptr) count = 0;
  unsigned char checksum = 0;
  for (uint32_t i = 0; i < count; ++i) checksum ^= bytes[i];
  if (count > 0) BootLoaderLine().Write(bytes, count);
  Send({checksum});
  return kSuccess;
}

int CVYNSTM32BootLoader::stm32h_send_address(uint32_t address) {
  const std::array<unsigned char, 5> packet = {
      static_cast<unsigned char>(address >> 24), static_cast<unsigned char>(address >> 16),
      static_cast<unsigned char>(address >> 8), static_cast<unsigned char>(address),
      static_cast<unsigned char>((address >> 24) ^ (address >> 16) ^ (address >> 8) ^ address)};
  BootLoaderLine().Write(packet.data(), packet.size());
  return kSuccess;
}

int CVYNSTM32BootLoader::stm32h_connect_to_bl() {
  if (stm32h_set_timeouts(kOnlyWhatIsThere, 0) != kSuccess) return kNoAnswer;
  for (int dropped = 0; dropped < kMostBytesDrained && stm32h_read_byte() >= 0; ++dropped) {
  }
  if (stm32h_set_timeouts(0, kLongWaitMs) != kSuccess) return kNoAnswer;
  Send({kConnect});
  const int answer = stm32h_read_byte();
  return answer == kAck || answer == kNack ? kSuccess : kNoAnswer;
}

void CVYNSTM32BootLoader::stm32h_close_port() { BootLoaderLine().Close(); }

int CVYNSTM32BootLoader::stm32_init(std::string port_name, uint32_t baud_rate) {
  if (stm32h_open_port(port_name) < 0) return kPortFailed;
  if (stm32h_configure_port(baud_rate) != kSuccess) return kPortFailed;
  return stm32h_connect_to_bl();
}

int CVYNSTM32BootLoader::stm32_get_version(unsigned char* major, unsigned char* minor) {
  if (!PortOpen()) return kNoPort;
  if (!Command(0x00)) return kNotAcknowledged;
  const int count = stm32h_read_byte();
  if (count < 0) return kNotAcknowledged;
  // The version, then the codes of the commands the bootloader knows.
  int version = -1;
  for (int i = 0; i <= count; ++i) {
    const int byte = stm32h_read_byte();
    if (byte < 0) return kNotAcknowledged;
    if (i == 0) version = byte;
  }
  if (major != nullptr) *major = static_cast<unsigned char>(version >> 4);
  if (minor != nullptr) *minor = static_cast<unsigned char>(version & 0x0F);
  return ReadAck() ? kSuccess : kNotAcknowledged;
}

int CVYNSTM32BootLoader::stm32_get_chip_id(uint16_t* chip_id) {
  if (!PortOpen()) return kNoPort;
  if (!Command(0x02)) return kNotAcknowledged;
  if (stm32h_read_byte() != 1) return kNotAcknowledged;
  const int high = stm32h_read_byte();
  if (high < 0) return kNotAcknowledged;
  const int low = stm32h_read_byte();
  if (low < 0) return kNotAcknowledged;
  if (chip_id != nullptr) *chip_id = static_cast<uint16_t>(high << 8 | low);
  return ReadAck() ? kSuccess : kNotAcknowledged;
}

int CVYNSTM32BootLoader::stm32_write_unprotect() {
  if (!PortOpen()) return kNoPort;
  if (!Command(0x73) || !ReadAck()) return kNotAcknowledged;
  // The chip restarts; a cancelled transmission does not wait for it.
  if (!BootLoaderLine().Pause(kRestartPauseMs)) return kNoAnswer;
  return stm32h_connect_to_bl();
}

int CVYNSTM32BootLoader::stm32_erase_flash() {
  if (!PortOpen()) return kNoPort;
  if (!Command(0x43)) return kNotAcknowledged;
  Send({0xFF, 0x00});
  return ReadAck() ? kSuccess : kNotAcknowledged;
}

int CVYNSTM32BootLoader::stm32_extended_erase_flash() {
  if (!PortOpen()) return kNoPort;
  if (!Command(0x44)) return kNotAcknowledged;
  // The special code 0xFFFF (mass erase) and its checksum.
  Send({0xFF, 0xFF, 0x00});
  // A mass erase takes as long as the chip needs.
  stm32h_set_timeouts(0, 0);
  return ReadAck() ? kSuccess : kNotAcknowledged;
}

int CVYNSTM32BootLoader::stm32_write_flash(DataSource source, ProgressFunction progress) {
  if (!PortOpen()) return kNoPort;
  if (source == nullptr) return kSuccess;
  uint32_t address = kFlashStart;
  uint32_t written = 0;
  // Count byte, up to 256 data bytes and the checksum go out in one write.
  std::array<unsigned char, kBlockSize + 2> block{};
  for (;;) {
    const uint32_t count = std::min(source(block.data() + 1, kBlockSize), kBlockSize);
    if (count == 0) return kSuccess;
    if (!Command(0x31)) return kNotAcknowledged;
    stm32h_send_address(address);
    if (!ReadAck()) return kNotAcknowledged;
    block[0] = static_cast<unsigned char>(count - 1);
    unsigned char checksum = 0;
    for (uint32_t i = 0; i <= count; ++i) checksum ^= block[i];
    block[count + 1] = checksum;
    BootLoaderLine().Write(block.data(), count + 2);
    if (!ReadAck()) return kNotAcknowledged;
    written += count;
    if (progress != nullptr) progress(written);
    address += count;
  }
}

int CVYNSTM32BootLoader::stm32_go_command() {
  if (!PortOpen()) return kNoPort;
  if (!Command(0x21)) return kNotAcknowledged;
  stm32h_send_address(kFlashStart);
  return ReadAck() ? kSuccess : kNotAcknowledged;
}
