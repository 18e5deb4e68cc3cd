// Fuzz target of the receive assembler. Input: one control byte (bit 0 the
// framing, bits 1..7 the size of the reads) and the received bytes. Every
// frame handed over must be well formed, and the assembler must never hold
// a full buffer between reads.
#include <cstddef>
#include <cstdint>

#include "vyn/serial/internal/frame_assembler.h"

namespace {

uint16_t g_protocol = PROTOCOL_CCPU;

unsigned int Sum(const unsigned char* bytes, size_t count) {
  unsigned int sum = 0;
  for (size_t i = 0; i < count; ++i) sum += bytes[i];
  return sum & 0xFF;
}

void CheckFrame(const unsigned char* frame, uint16_t length) {
  bool good = false;
  if (g_protocol == PROTOCOL_CCPU) {
    const size_t n = frame[3] | (frame[4] << 8);
    good = length >= 7 && frame[0] == 0x42 && Sum(frame + 1, 5) == frame[6] &&
           (n == 0 ? length == 7 : (length == n + 8 && Sum(frame + 7, n) == frame[7 + n]));
  } else {
    const size_t n = frame[2];
    good = length == n + 5 && frame[0] == 0x3E && ((frame[1] + frame[2]) & 0xFF) == frame[3] &&
           Sum(frame + 4, n) == frame[4 + n];
  }
  if (!good) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  g_protocol = (data[0] & 1) != 0 ? PROTOCOL_MCPU : PROTOCOL_CCPU;
  const size_t read_size = (data[0] >> 1) + 1;
  CVYNFrameAssembler assembler(CheckFrame);
  assembler.SetProtocol(g_protocol);
  uint32_t tick = 1;
  for (size_t offset = 1; offset < size; offset += read_size) {
    const size_t count = size - offset < read_size ? size - offset : read_size;
    assembler.Feed(data + offset, count, tick);
    if (assembler.GetByteCount() >= SERIAL_FRAME_BUFFER_SIZE) __builtin_trap();
    // Now and then a pause long enough for the time-out.
    tick += (data[offset] & 0x80) != 0 ? 2500 : 10;
    assembler.CheckTimeout(tick);
  }
  return 0;
}
