#include "vyn/serial/internal/frame_assembler.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "vyn/core/internal/frame_bytes.h"
#include "vyn/core/status.h"

using vyn::LoadLittleEndian16;
using vyn::Sum8;

CVYNFrameAssembler::CVYNFrameAssembler(FrameSink sink) : sink_(std::move(sink)) {}

void CVYNFrameAssembler::SetSink(FrameSink sink) { sink_ = std::move(sink); }

int32_t CVYNFrameAssembler::SetProtocol(uint16_t protocol) {
  if (protocol != PROTOCOL_CCPU && protocol != PROTOCOL_MCPU) return VYN_STATUS_INVALID_PARAMETER;
  protocol_.store(protocol, std::memory_order_relaxed);
  return VYN_STATUS_SUCCESS;
}

uint16_t CVYNFrameAssembler::GetProtocol() const {
  return protocol_.load(std::memory_order_relaxed);
}

unsigned char CVYNFrameAssembler::StartDelimiter() const {
  return GetProtocol() == PROTOCOL_MCPU ? MCPU_START_DELIMITER : CCPU_START_DELIMITER;
}

void CVYNFrameAssembler::Feed(const unsigned char* bytes, size_t count, uint32_t now_tick) {
  if (count == 0) return;
  Count(bytes_received_, static_cast<uint32_t>(count));
  last_reception_ = now_tick;
  for (size_t i = 0; i < count; ++i) ProcessByte(bytes[i]);
  // A frame completed or a resynchronisation in the middle of the read
  // cleared the time; the bytes behind it that begin a frame are pending all
  // the same and must time out like any others.
  if (byte_count_ != 0 && last_reception_ == 0) last_reception_ = now_tick;
}

void CVYNFrameAssembler::ProcessByte(unsigned char byte) {
  if (byte_count_ == 0 && byte != StartDelimiter()) {
    Count(isd_);
    return;
  }
  if (AddByte(byte) == RX_REJECTED) RestartCommandBuffer();
}

bool CVYNFrameAssembler::CheckTimeout(uint32_t now_tick) {
  if (last_reception_ == 0 || now_tick - last_reception_ <= kReceptionTimeoutMs) return false;
  Count(timeout_);
  ResetCommandBuffer();
  return true;
}

int32_t CVYNFrameAssembler::CompleteFrame() {
  if (ProcessCommand(buffer_) == RX_BAD_PAYLOAD_CHECKSUM) return RX_REJECTED;
  ResetCommandBuffer();
  return RX_COMPLETE;
}

int32_t CVYNFrameAssembler::AddByte(unsigned char byte) {
  // Only a framing switched in the middle of a frame can leave a full buffer
  // behind; nothing more may be stored then.
  if (byte_count_ >= SERIAL_FRAME_BUFFER_SIZE) return RX_REJECTED;
  buffer_[byte_count_++] = byte;
  if (byte_count_ == SERIAL_FRAME_BUFFER_SIZE) {
    Count(too_long_);
    return RX_REJECTED;
  }
  switch (GetProtocol()) {
    case PROTOCOL_CCPU:
      if (byte_count_ == CCPU_HEADER_LENGTH) {
        if (Sum8(buffer_ + 1, 5) != buffer_[6]) {
          Count(ihcs_);
          return RX_REJECTED;
        }
        const uint16_t payload_length = LoadLittleEndian16(buffer_ + 3);
        if (payload_length == 0) {
          ProcessCommand(buffer_);
          ResetCommandBuffer();
          return RX_COMPLETE;
        }
        if (payload_length > CCPU_MAX_PAYLOAD_LENGTH) {
          Count(too_long_);
          return RX_REJECTED;
        }
        expected_length_ = static_cast<uint16_t>(payload_length + CCPU_HEADER_LENGTH + 1);
        return RX_INCOMPLETE;
      }
      if (byte_count_ < CCPU_HEADER_LENGTH || byte_count_ != expected_length_) {
        return RX_INCOMPLETE;
      }
      return CompleteFrame();
    case PROTOCOL_MCPU:
      if (byte_count_ == MCPU_HEADER_LENGTH) {
        if (Sum8(buffer_ + 1, 2) != buffer_[3]) {
          Count(ihcs_);
          return RX_REJECTED;
        }
        expected_length_ = static_cast<uint16_t>(buffer_[2] + MCPU_HEADER_LENGTH + 1);
        return RX_INCOMPLETE;
      }
      if (byte_count_ < MCPU_HEADER_LENGTH || byte_count_ != expected_length_) {
        return RX_INCOMPLETE;
      }
      return CompleteFrame();
    default:
      return RX_INCOMPLETE;
  }
}

int32_t CVYNFrameAssembler::VerifyPayloadCheckSum(unsigned char* frame, uint16_t size) {
  switch (GetProtocol()) {
    case PROTOCOL_CCPU: {
      const uint16_t payload_length = LoadLittleEndian16(frame + 3);
      if (payload_length == 0) return RX_COMPLETE;
      if (payload_length + CCPU_HEADER_LENGTH >= size) return RX_WRONG_LENGTH;
      return Sum8(frame + CCPU_HEADER_LENGTH, payload_length) ==
                     frame[CCPU_HEADER_LENGTH + payload_length]
                 ? RX_COMPLETE
                 : RX_BAD_PAYLOAD_CHECKSUM;
    }
    case PROTOCOL_MCPU: {
      const uint16_t payload_length = frame[2];
      if (payload_length + MCPU_HEADER_LENGTH >= size) return RX_WRONG_LENGTH;
      return Sum8(frame + MCPU_HEADER_LENGTH, payload_length) ==
                     frame[MCPU_HEADER_LENGTH + payload_length]
                 ? RX_COMPLETE
                 : RX_BAD_PAYLOAD_CHECKSUM;
    }
    default:
      return RX_BAD_PAYLOAD_CHECKSUM;
  }
}

int32_t CVYNFrameAssembler::ProcessCommand(unsigned char* frame) {
  if (VerifyPayloadCheckSum(frame, SERIAL_FRAME_BUFFER_SIZE) != RX_COMPLETE) {
    Count(ipcs_);
    return RX_BAD_PAYLOAD_CHECKSUM;
  }
  Count(frames_received_);
  if (sink_) sink_(frame, byte_count_);
  return RX_COMPLETE;
}

void CVYNFrameAssembler::ResetCommandBuffer() {
  byte_count_ = 0;
  expected_length_ = 0;
  last_reception_ = 0;
}

void CVYNFrameAssembler::RestartCommandBuffer() {
  // The scan reads the held bytes from a copy: re-feeding moves bytes to the
  // front of the buffer and would overwrite those still to be scanned.
  const uint16_t held = byte_count_;
  unsigned char bytes[SERIAL_FRAME_BUFFER_SIZE];
  std::memcpy(bytes, buffer_, held);
  ResetCommandBuffer();
  const unsigned char delimiter = StartDelimiter();
  uint16_t position = 1;
  while (position < held) {
    if (bytes[position] != delimiter) {
      ++position;
      continue;
    }
    ResetCommandBuffer();
    uint16_t next = position;
    int32_t result = RX_INCOMPLETE;
    while (next < held && result == RX_INCOMPLETE) result = AddByte(bytes[next++]);
    if (result == RX_COMPLETE) {
      position = next;
    } else if (result == RX_REJECTED) {
      ResetCommandBuffer();
      ++position;
    } else {
      // The bytes ran out in the middle of a frame: keep them as its start.
      return;
    }
  }
}

void CVYNFrameAssembler::CountSentFrame(uint32_t length) {
  Count(frames_sent_);
  Count(bytes_sent_, length);
}

void CVYNFrameAssembler::InitializeStatistics() {
  for (std::atomic<uint32_t>* counter :
       {&frames_received_, &bytes_received_, &frames_sent_, &bytes_sent_, &isd_, &ihcs_, &ipcs_,
        &too_long_, &timeout_}) {
    counter->store(0, std::memory_order_relaxed);
  }
}

CVYNFrameAssembler::Statistics CVYNFrameAssembler::GetStatistics() const {
  const auto get = [](const std::atomic<uint32_t>& counter) {
    return counter.load(std::memory_order_relaxed);
  };
  return Statistics{get(frames_received_),
                    get(bytes_received_),
                    get(frames_sent_),
                    get(bytes_sent_),
                    get(isd_),
                    get(ihcs_),
                    get(ipcs_),
                    get(too_long_),
                    get(timeout_)};
}

std::string CVYNFrameAssembler::FormatStatistics() const {
  const Statistics s = GetStatistics();
  char line[256];
  std::snprintf(line, sizeof line,
                "Serial status; received; %i; %i; sent; %i; %i; ISD; %i; IHCS; %i; IPCS; %i; too "
                "long; %i; timeout; %i",
                static_cast<int>(s.frames_received), static_cast<int>(s.bytes_received),
                static_cast<int>(s.frames_sent), static_cast<int>(s.bytes_sent),
                static_cast<int>(s.isd), static_cast<int>(s.ihcs), static_cast<int>(s.ipcs),
                static_cast<int>(s.too_long), static_cast<int>(s.timeout));
  return line;
}
