#include "sim/boot_loader_chip.h"

namespace vyn::sim {
namespace {

namespace cmd = boot_command;

// Extended Erase counts from here up are special codes, not page counts.
constexpr uint16_t kFirstSpecialErase = 0xFFF0;
constexpr uint16_t kMassErase = 0xFFFF;

uint8_t Complement(uint8_t byte) { return static_cast<uint8_t>(~byte); }

}  // namespace

BootLoaderChip::BootLoaderChip(const BootLoaderChipOptions& options)
    : flash_(options.flash_base, options.flash_size, options.page_sizes),
      chip_id_(options.chip_id),
      version_(options.version),
      read_protected_(options.read_protected),
      page_erase_time_(options.page_erase_time) {
  flash_.ProtectAll(options.write_protected);
}

std::vector<uint8_t> BootLoaderChip::Commands() const {
  // From version 3.0 on the chip erases with Extended Erase instead of Erase.
  const uint8_t erase = version_ >= 0x30 ? cmd::kExtendedErase : cmd::kErase;
  return {cmd::kGet,
          cmd::kGetVersion,
          cmd::kGetId,
          cmd::kReadMemory,
          cmd::kGo,
          cmd::kWriteMemory,
          erase,
          cmd::kWriteProtect,
          cmd::kWriteUnprotect,
          cmd::kReadoutProtect,
          cmd::kReadoutUnprotect};
}

bool BootLoaderChip::Offers(uint8_t command) const {
  for (const uint8_t offered : Commands()) {
    if (offered == command) return true;
  }
  return false;
}

bool BootLoaderChip::RefusedWhileReadProtected(uint8_t command) const {
  // Only what tells about the chip, and lifting the protection, stay open.
  return command != cmd::kGet && command != cmd::kGetVersion && command != cmd::kGetId &&
         command != cmd::kReadoutUnprotect;
}

void BootLoaderChip::Reset() {
  PowerOn();
  ++counters_.resets;
}

void BootLoaderChip::PowerOn() {
  step_ = Step::kWaitConnect;
  collected_.clear();
}

void BootLoaderChip::Receive(uint8_t byte, std::vector<ChipByte>* reply) {
  if (silent_) {
    ++counters_.ignored_bytes;
    return;
  }
  reply_ = reply;
  pause_ = std::chrono::microseconds(0);
  switch (step_) {
    case Step::kWaitConnect:
      if (byte == kBootConnect) {
        ++counters_.connects;
        Ack();
        step_ = Step::kCommand;
      } else {
        ++counters_.ignored_bytes;
      }
      break;
    case Step::kCommand:
      if (byte == kBootConnect) {
        Nack();
      } else {
        command_ = byte;
        step_ = Step::kComplement;
      }
      break;
    case Step::kComplement:
      if (byte == Complement(command_)) {
        StartCommand();
      } else {
        ++counters_.checksum_errors;
        Nack();
        step_ = Step::kCommand;
      }
      break;
    case Step::kCollect:
      collected_.push_back(byte);
      if (collected_.size() == wanted_) FinishStage();
      break;
  }
  reply_ = nullptr;
}

void BootLoaderChip::StartCommand() {
  ++counters_.commands;
  ++counters_.commands_by_code[command_];
  step_ = Step::kCommand;
  if (!Offers(command_) || (read_protected_ && RefusedWhileReadProtected(command_)) ||
      NackInjected(NackPoint::kCommand)) {
    Nack();
    return;
  }
  Ack();
  switch (command_) {
    case cmd::kGet: {
      const std::vector<uint8_t> commands = Commands();
      Send(static_cast<uint8_t>(commands.size()));  // bytes that follow, less one
      Send(version_);
      for (const uint8_t code : commands) Send(code);
      Allowed(true) ? Ack() : Nack();
      break;
    }
    case cmd::kGetVersion:
      Send(version_);
      Send(0x00);  // two option bytes, kept for compatibility
      Send(0x00);
      Allowed(true) ? Ack() : Nack();
      break;
    case cmd::kGetId:
      Send(1);  // two bytes follow
      Send(static_cast<uint8_t>(chip_id_ >> 8));
      Send(static_cast<uint8_t>(chip_id_ & 0xFF));
      Allowed(true) ? Ack() : Nack();
      break;
    case cmd::kReadMemory:
      Collect(5, Stage::kReadAddress);
      break;
    case cmd::kWriteMemory:
      Collect(5, Stage::kWriteAddress);
      break;
    case cmd::kGo:
      Collect(5, Stage::kGoAddress);
      break;
    case cmd::kErase:
      Collect(1, Stage::kEraseCount);
      break;
    case cmd::kExtendedErase:
      Collect(2, Stage::kExtendedEraseCount);
      break;
    case cmd::kWriteProtect:
      Collect(1, Stage::kProtectCount);
      break;
    case cmd::kWriteUnprotect:
      if (!Allowed(true)) {
        Nack();
        break;
      }
      flash_.ProtectAll(false);
      Ack();
      Reset();
      break;
    case cmd::kReadoutProtect:
      if (!Allowed(true)) {
        Nack();
        break;
      }
      read_protected_ = true;
      Ack();
      Reset();
      break;
    case cmd::kReadoutUnprotect:
      if (!Allowed(true)) {
        Nack();
        break;
      }
      // Lifting the protection wipes the flash first.
      Pause(page_erase_time_ * static_cast<int64_t>(flash_.page_count()));
      flash_.EraseAllAndUnprotect();
      read_protected_ = false;
      ++counters_.mass_erases;
      Ack();
      Reset();
      break;
    default:
      break;
  }
}

void BootLoaderChip::Collect(size_t count, Stage stage) {
  collected_.clear();
  wanted_ = count;
  stage_ = stage;
  step_ = Step::kCollect;
}

std::optional<uint32_t> BootLoaderChip::CollectedAddress() {
  if (!CollectedChecksumRight(0)) return std::nullopt;
  return (uint32_t{collected_[0]} << 24) | (uint32_t{collected_[1]} << 16) |
         (uint32_t{collected_[2]} << 8) | collected_[3];
}

bool BootLoaderChip::CollectedChecksumRight(uint8_t seed) {
  uint8_t sum = seed;
  for (const uint8_t byte : collected_) sum ^= byte;
  if (sum != 0) ++counters_.checksum_errors;
  return sum == 0;
}

void BootLoaderChip::FinishStage() {
  step_ = Step::kCommand;
  switch (stage_) {
    case Stage::kReadAddress:
    case Stage::kWriteAddress:
    case Stage::kGoAddress: {
      const std::optional<uint32_t> address = CollectedAddress();
      if (!address || !flash_.Contains(*address, 1)) {
        Nack();
        return;
      }
      address_ = *address;
      if (stage_ == Stage::kGoAddress) {
        if (!Allowed(true)) {
          Nack();
          return;
        }
        Ack();
        ++counters_.go_commands;
        counters_.last_go_address = address_;
        // The program runs; it hands back to the bootloader by resetting the chip.
        Reset();
        return;
      }
      Ack();
      if (stage_ == Stage::kReadAddress) {
        Collect(2, Stage::kReadCount);
      } else {
        Collect(1, Stage::kWriteCount);
      }
      return;
    }
    case Stage::kReadCount: {
      const uint32_t length = uint32_t{collected_[0]} + 1;
      const bool counted = collected_[1] == Complement(collected_[0]);
      if (!counted) ++counters_.checksum_errors;
      std::vector<uint8_t> data;
      if (!Allowed(counted && flash_.Read(address_, length, &data))) {
        Nack();
        return;
      }
      Ack();
      for (const uint8_t byte : data) Send(byte);
      counters_.bytes_read += data.size();
      return;
    }
    case Stage::kWriteCount:
      count_ = collected_[0];
      Collect(size_t{count_} + 2, Stage::kWriteData);  // data and checksum
      return;
    case Stage::kWriteData: {
      const size_t length = size_t{count_} + 1;
      const bool ok = Allowed(CollectedChecksumRight(count_)) &&
                      flash_.Program(address_, collected_.data(), length);
      if (ok) {
        ++counters_.blocks_written;
        counters_.bytes_written += length;
      }
      ok ? Ack() : Nack();
      return;
    }
    case Stage::kEraseCount:
      count_ = collected_[0];
      if (count_ == 0xFF) {
        Collect(1, Stage::kEraseGlobal);
      } else {
        Collect(size_t{count_} + 2, Stage::kErasePages);  // page numbers and checksum
      }
      return;
    case Stage::kEraseGlobal: {
      // A global erase is confirmed with the complement of 0xFF.
      const bool right = collected_[0] == 0x00;
      if (!right) ++counters_.checksum_errors;
      FinishErase(right, {}, true);
      return;
    }
    case Stage::kErasePages: {
      const bool right = CollectedChecksumRight(count_);
      FinishErase(right, std::vector<uint32_t>(collected_.begin(), collected_.end() - 1), false);
      return;
    }
    case Stage::kExtendedEraseCount:
      extended_count_ = static_cast<uint16_t>((collected_[0] << 8) | collected_[1]);
      if (extended_count_ >= kFirstSpecialErase) {
        Collect(1, Stage::kExtendedEraseSpecial);
      } else {
        // Two bytes per page number, and the checksum.
        Collect((size_t{extended_count_} + 1) * 2 + 1, Stage::kExtendedErasePages);
      }
      return;
    case Stage::kExtendedEraseSpecial: {
      const uint8_t high = static_cast<uint8_t>(extended_count_ >> 8);
      const uint8_t low = static_cast<uint8_t>(extended_count_ & 0xFF);
      const bool right = CollectedChecksumRight(high ^ low);
      // This flash has a single bank: only the mass erase is known, and
      // the codes of bank erases are refused like the reserved ones.
      if (right && extended_count_ != kMassErase) {
        Nack();
        return;
      }
      FinishErase(right, {}, true);
      return;
    }
    case Stage::kExtendedErasePages: {
      const bool right = CollectedChecksumRight(
          static_cast<uint8_t>((extended_count_ >> 8) ^ (extended_count_ & 0xFF)));
      std::vector<uint32_t> pages;
      for (size_t i = 0; i + 1 < collected_.size(); i += 2) {
        pages.push_back((uint32_t{collected_[i]} << 8) | collected_[i + 1]);
      }
      FinishErase(right, pages, false);
      return;
    }
    case Stage::kProtectCount:
      count_ = collected_[0];
      Collect(size_t{count_} + 2, Stage::kProtectPages);  // sector numbers and checksum
      return;
    case Stage::kProtectPages: {
      const std::vector<uint32_t> pages(collected_.begin(), collected_.end() - 1);
      if (!Allowed(CollectedChecksumRight(count_)) || !flash_.ProtectPages(pages)) {
        Nack();
        return;
      }
      Ack();
      Reset();
      return;
    }
  }
}

void BootLoaderChip::FinishErase(bool checksum_right, const std::vector<uint32_t>& pages,
                                 bool mass) {
  const bool ok = Allowed(checksum_right) && (mass ? flash_.EraseAll() : flash_.ErasePages(pages));
  if (!ok) {
    Nack();
    return;
  }
  const size_t erased = mass ? flash_.page_count() : pages.size();
  Pause(page_erase_time_ * static_cast<int64_t>(erased));
  if (mass) {
    ++counters_.mass_erases;
  } else {
    counters_.pages_erased += erased;
  }
  Ack();
}

bool BootLoaderChip::NackInjected(NackPoint point) {
  if (!nack_fault_ || nack_fault_->command != command_ || nack_fault_->point != point) {
    return false;
  }
  if (nack_fault_->skip > 0) {
    --nack_fault_->skip;
    return false;
  }
  if (nack_fault_->repeat == FaultRepeat::kOnce) nack_fault_.reset();
  ++counters_.injected_nacks;
  return true;
}

void BootLoaderChip::Send(uint8_t byte) {
  reply_->push_back(ChipByte{byte, pause_});
  pause_ = std::chrono::microseconds(0);
}

void BootLoaderChip::Ack() {
  if (lost_ack_skip_) {
    if (*lost_ack_skip_ > 0) {
      --*lost_ack_skip_;
    } else {
      lost_ack_skip_.reset();
      ++counters_.lost_acks;
      return;
    }
  }
  Send(kBootAck);
  ++counters_.acks;
}

void BootLoaderChip::Nack() {
  Send(kBootNack);
  ++counters_.nacks;
}

}  // namespace vyn::sim
