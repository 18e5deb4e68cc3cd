// Fuzz target of every reply and notification parser and of the dump. Input:
// one byte that chooses the parser (or the dump), then the frame. The frame
// lies in a 1024-byte record, as received frames do, and everything behind
// its declared payload is poisoned: a parser that reads its checksum byte or
// anything beyond is caught by AddressSanitizer.
#include <sanitizer/asan_interface.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "vyn/device/command_dump.h"
#include "vyn/device/command_set.h"

namespace {

constexpr int kParsers = 26;

void RunParser(int which, CVYNCommandSet& s, unsigned char* f, unsigned char size) {
  unsigned char b[8] = {};
  uint16_t w[2] = {};
  uint32_t l[2] = {};
  float v[6] = {};
  std::string t[7];
  unsigned char list[1020] = {};
  unsigned char values[1020] = {};
  int16_t trace[600] = {};
  int16_t triple[2][3] = {};
  switch (which) {
    case 0:
      s.ProcessAckGetDeviceInfo(f, &b[0], &w[0], &t[0], &t[1], &t[2], &t[3], &t[4], &t[5], &t[6],
                                size);
      break;
    case 1:
      s.ProcessAckDumpSettings(f, &b[0]);
      break;
    case 2:
      s.ProcessAckGetECPUInfo(f, &b[0], &w[0], &t[0], size);
      break;
    case 3:
      s.ProcessAckGetKCPUInfo(f, &b[0], &w[0], &t[0], size);
      break;
    case 4:
      s.ProcessAckSetECPUPWMZeroOffset(f, &b[0], &v[0], &v[1], size);
      break;
    case 5:
      s.ProcessAckSetECPUPWMMinMax(f, &b[0], &v[0], &v[1], &v[2], &v[3], size);
      break;
    case 6:
      s.ProcessAckGetECPUPWMCalibration(f, &b[0], &b[1], &b[2], &v[0], &v[1], &v[2], &b[3], &b[4],
                                        &v[3], &v[4], &v[5], size);
      break;
    case 7:
      s.ProcessAckSetECPUEncoderMinMax(f, &b[0], &l[0], &l[1], size);
      break;
    case 8:
      s.ProcessAckGetECPUEncoderCalibration(f, &b[0], &b[1], &l[0], &l[1], size);
      break;
    case 9:
      s.ProcessAckGetStatus(f, &b[0], list);
      break;
    case 10:
      s.ProcessAckControl(f, &b[0], list);
      break;
    case 11:
      s.ProcessAckSetHardwareInfo(f, &b[0]);
      break;
    case 12:
      s.ProcessAckGetHardwareInfo(f, &w[0], &t[0], &t[1], size);
      break;
    case 13:
      s.ProcessAckSetECPUHardwareInfo(f, &b[0]);
      break;
    case 14:
      s.ProcessAckGetECPUHardwareInfo(f, &w[0], &t[0], &t[1], size);
      break;
    case 15:
      s.ProcessAckSetProductionInfo(f, &b[0]);
      break;
    case 16:
      s.ProcessAckGetProductionInfo(f, &t[0], &t[1], size);
      break;
    case 17:
      s.ProcessAckSetECPUProductionInfo(f, &b[0]);
      break;
    case 18:
      s.ProcessAckGetECPUProductionInfo(f, &t[0], &t[1], size);
      break;
    case 19:
      s.ProcessNotStatus(f, &b[0], list, values);
      break;
    case 20:
      s.ProcessNotTrace(f, &w[0], trace, static_cast<uint16_t>(size * 3));
      break;
    case 21:
      s.ProcessNotDebug(f, &w[0], &b[0], &t[0], static_cast<uint16_t>(size * 4));
      break;
    case 22:
      s.ProcessAckBoardInfo(f, &b[0], &t[0], size);
      break;
    case 23:
      s.ProcessAckReadParamsExt(f, triple[0], triple[1]);
      break;
    case 24:
      s.ProcessRealtimeData3(f, &b[0], &w[0], &w[1], &b[1]);
      break;
    default:
      s.ProcessAckConfirm(f, &b[0]);
      break;
  }
}

// Where the declared payload ends for a parser that reads the given framing.
size_t PayloadEnd(const unsigned char* record, bool mcpu) {
  if (mcpu) return 4 + static_cast<size_t>(record[2]);
  return std::min<size_t>(SERIAL_FRAME_BUFFER_SIZE, 7 + (record[3] | (record[4] << 8)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const int which = data[0] % (kParsers + 1);
  // A heap record of exactly the frame record's size: reading past it is a
  // heap overflow.
  auto record = std::make_unique<unsigned char[]>(SERIAL_FRAME_BUFFER_SIZE);
  std::memcpy(record.get(), data + 1, std::min(size - 1, SERIAL_FRAME_BUFFER_SIZE));
  const bool mcpu = which == kParsers ? record[0] == 0x3E : which >= 22;
  const size_t end = PayloadEnd(record.get(), mcpu);
  // Text sizes come from the input too, so that small and zero sizes are
  // tried; taken before the poisoning, since byte 5 may lie behind a payload.
  const unsigned char text_size = record[5];
  ASAN_POISON_MEMORY_REGION(record.get() + end, SERIAL_FRAME_BUFFER_SIZE - end);
  if (which == kParsers) {
    static CVYNCommandDump dump;
    dump.DumpAcknowledgeOrNotification(record.get());
    if (std::strlen(dump.GetCommandDump()) > 1023) __builtin_trap();
  } else {
    CVYNCommandSet command_set;
    RunParser(which, command_set, record.get(), text_size);
  }
  ASAN_UNPOISON_MEMORY_REGION(record.get() + end, SERIAL_FRAME_BUFFER_SIZE - end);
  return 0;
}
