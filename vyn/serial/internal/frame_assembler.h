// CVYNFrameAssembler: finds frames in the received byte stream of one serial
// line, checks their checksums, counts what goes wrong, resynchronises after
// a bad frame, and hands every good frame to a sink. It works in one framing
// at a time (PROTOCOL_CCPU or PROTOCOL_MCPU); what the framings look like is
// in vyn/device/frame_format.h. It knows nothing of ports or messages: the
// serial port driver owns one, feeds it what its reads deliver and turns the
// sink's frames into messages.
//
// Per byte (Feed does this for a whole read): while no frame has begun, a
// byte that is not the selected start delimiter is dropped and counted ISD;
// every other byte goes to AddByte, and a rejection makes
// RestartCommandBuffer look for a frame among the held bytes.
//
// Resynchronisation: the held bytes are scanned from the second one on; at
// each start delimiter the bytes from there are fed again. A frame found
// this way is handed over and the scan goes on behind it; a rejection makes
// the scan go on at the next position. Re-fed bytes count in the statistics
// as fresh bytes do. When the re-fed bytes run out before a frame is
// complete or rejected, the scan stops and those bytes stay in the buffer
// as the beginning of a frame, for the next read to complete.
//
// Time-out: a read sets the time of last reception before its bytes are
// processed, and every clearing of the assembler (a completed frame, a
// resynchronisation, a time-out) sets it to 0. Bytes of a frame begun after
// such a clearing within the same read are pending too: Feed sets the time
// again when the read leaves bytes held and no time. CheckTimeout, called at
// the end of every pass of the reading loop, counts a time-out and clears
// the assembler when more than 2000 ms have passed since a time that is not
// 0. The tick is passed in, so that the check is testable without waiting.
//
// Ownership: the assembler owns its buffer and counters; the sink is called
// with a pointer into the buffer that is valid only during the call.
// Thread-safety: AddByte, Feed, CheckTimeout and the resynchronisation run
// on one thread only (the receiving thread); the sink runs on it too. The
// counters and the framing selector may be read, reset or set from other
// threads: they are relaxed atomics, exact on the receiving thread and
// a snapshot elsewhere.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "vyn/device/frame_format.h"
#include "vyn/serial/serial_statistics.h"

class CVYNFrameAssembler {
 public:
  // Receives every frame whose checksums are right: its bytes from the start
  // delimiter on and its length.
  using FrameSink = std::function<void(const unsigned char* frame, uint16_t length)>;

  // A pending reception is given up after more than this many milliseconds.
  static constexpr uint32_t kReceptionTimeoutMs = 2000;

  using Statistics = _SERIAL_LINK_STATISTICS;

  explicit CVYNFrameAssembler(FrameSink sink = nullptr);
  CVYNFrameAssembler(const CVYNFrameAssembler&) = delete;
  CVYNFrameAssembler& operator=(const CVYNFrameAssembler&) = delete;

  void SetSink(FrameSink sink);

  // Only PROTOCOL_CCPU and PROTOCOL_MCPU: 0; any other value
  // VYN_STATUS_INVALID_PARAMETER and the selector stays. A frame already
  // begun is judged by the new framing from its next byte on.
  int32_t SetProtocol(uint16_t protocol);
  uint16_t GetProtocol() const;

  // One read's bytes: counts them, notes `now_tick` as the time of last
  // reception and passes every byte through the start-of-frame rule.
  void Feed(const unsigned char* bytes, size_t count, uint32_t now_tick);
  // The per-byte rule of Feed, without counting or time-keeping.
  void ProcessByte(unsigned char byte);
  // True (and the assembler cleared, a time-out counted) when a reception is
  // pending for more than kReceptionTimeoutMs at `now_tick` (unsigned
  // difference, so the 32-bit tick may wrap).
  bool CheckTimeout(uint32_t now_tick);

  // Stores the byte and advances the state: RX_COMPLETE (a frame was handed
  // over), RX_INCOMPLETE, or RX_REJECTED (the caller resynchronises).
  int32_t AddByte(unsigned char byte);
  // Checks the payload checksum and hands the held frame to the sink: 0, or
  // RX_BAD_PAYLOAD_CHECKSUM (counted IPCS).
  int32_t ProcessCommand(unsigned char* frame);
  // 0 when the payload checksum is right (or there is none), RX_WRONG_LENGTH
  // when the declared payload and its checksum do not fit in `size` bytes,
  // RX_BAD_PAYLOAD_CHECKSUM otherwise.
  int32_t VerifyPayloadCheckSum(unsigned char* frame, uint16_t size);
  // Clears count, expected length and time of last reception; the bytes stay.
  void ResetCommandBuffer();
  // Resynchronisation after RX_REJECTED (see above).
  void RestartCommandBuffer();

  // The driver counts what it writes.
  void CountSentFrame(uint32_t length);
  // All nine counters to 0.
  void InitializeStatistics();
  Statistics GetStatistics() const;
  // "Serial status; received; ...; timeout; <n>", the line of the debug log.
  std::string FormatStatistics() const;

  uint16_t GetByteCount() const { return byte_count_; }
  uint16_t GetExpectedLength() const { return expected_length_; }
  uint32_t GetTimeOfLastReception() const { return last_reception_; }
  const unsigned char* GetBuffer() const { return buffer_; }

 private:
  // Plain load and store instead of a locked increment: only the receiving
  // thread counts, others only read or reset.
  static void Count(std::atomic<uint32_t>& counter, uint32_t amount = 1) {
    counter.store(counter.load(std::memory_order_relaxed) + amount, std::memory_order_relaxed);
  }
  unsigned char StartDelimiter() const;
  int32_t CompleteFrame();

  FrameSink sink_;
  std::atomic<uint16_t> protocol_{PROTOCOL_CCPU};
  unsigned char buffer_[SERIAL_FRAME_BUFFER_SIZE] = {};
  uint16_t byte_count_ = 0;
  uint16_t expected_length_ = 0;
  uint32_t last_reception_ = 0;

  std::atomic<uint32_t> frames_received_{0};
  std::atomic<uint32_t> bytes_received_{0};
  std::atomic<uint32_t> frames_sent_{0};
  std::atomic<uint32_t> bytes_sent_{0};
  std::atomic<uint32_t> isd_{0};
  std::atomic<uint32_t> ihcs_{0};
  std::atomic<uint32_t> ipcs_{0};
  std::atomic<uint32_t> too_long_{0};
  std::atomic<uint32_t> timeout_{0};
};
