// vyn frame: builds request frames and renders received frames as the
// traffic monitor shows them, without a device.
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "tools/vyn/commands.h"
#include "tools/vyn/number_grammar.h"
#include "tools/vyn/request_table.h"
#include "vyn/core/status.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/command_set.h"

namespace vyn::tool {
namespace {

using Arguments = std::vector<std::string>;

void PrintHex(const unsigned char* bytes, size_t count) {
  for (size_t i = 0; i < count; ++i) std::printf(i == 0 ? "%02X" : " %02X", bytes[i]);
  std::printf("\n");
}

void RunBuild(const std::string& name, const Arguments& args, unsigned int sequence) {
  CVYNCommandSet command_set;
  unsigned char frame[SERIAL_FRAME_BUFFER_SIZE] = {};
  const uint16_t length = BuildRequestFrame(name, args, command_set, frame);
  // A fresh command set numbers from 1; earlier frames move the counter on.
  unsigned char scratch[SERIAL_FRAME_BUFFER_SIZE] = {};
  command_set.PrepareReqGetDeviceInfo(scratch);
  for (unsigned int i = 1; i < sequence; ++i) command_set.CalculateChecksums(scratch);
  if (command_set.CalculateChecksums(frame) != VYN_STATUS_SUCCESS) {
    throw CLI::RuntimeError("the frame is too long for a frame record", 1);
  }
  PrintHex(frame, length);
}

// One byte per argument ("42 2 40" or "0x42 0x02 0x40"), or all bytes in
// one argument as a hex string ("420240", "42 02 40", "42:02:40").
std::vector<unsigned char> ParseHex(const Arguments& parts) {
  std::vector<unsigned char> bytes;
  auto digit = [](char c) {
    if (!std::isxdigit(static_cast<unsigned char>(c))) {
      throw CLI::ValidationError("HEX", std::string("'") + c + "' is not a hexadecimal digit");
    }
    return static_cast<unsigned char>(std::stoul(std::string(1, c), nullptr, 16));
  };
  if (parts.size() == 1) {
    std::string digits;
    for (char c : parts[0]) {
      if (!std::isspace(static_cast<unsigned char>(c)) && c != ',' && c != ':') digits += c;
    }
    if (digits.size() % 2 != 0) {
      throw CLI::ValidationError("HEX", "odd number of hex digits in '" + parts[0] + "'");
    }
    for (size_t i = 0; i < digits.size(); i += 2) {
      bytes.push_back(static_cast<unsigned char>(digit(digits[i]) << 4 | digit(digits[i + 1])));
    }
  } else {
    for (std::string part : parts) {
      if (part.rfind("0x", 0) == 0 || part.rfind("0X", 0) == 0) part.erase(0, 2);
      if (part.empty() || part.size() > 2) {
        throw CLI::ValidationError(
            "HEX", "'" + part + "' is not one byte; give one byte per argument or one hex string");
      }
      unsigned char value = 0;
      for (char c : part) value = static_cast<unsigned char>(value << 4 | digit(c));
      bytes.push_back(value);
    }
  }
  if (bytes.empty() || bytes.size() > SERIAL_FRAME_MAX_LENGTH) {
    throw CLI::ValidationError(
        "HEX", "a frame has 1 to " + std::to_string(SERIAL_FRAME_MAX_LENGTH) + " bytes");
  }
  return bytes;
}

// Checks the checksums the frame's header places; a message for each wrong one.
bool ChecksumsRight(const unsigned char* record, size_t declared) {
  bool right = true;
  auto check = [&right](const char* which, unsigned found, unsigned expected) {
    if (found == expected) return;
    std::fprintf(stderr, "bad %s checksum: 0x%02X, expected 0x%02X\n", which, found, expected);
    right = false;
  };
  auto sum = [record](size_t from, size_t to) {
    unsigned total = 0;
    for (size_t i = from; i < to; ++i) total += record[i];
    return total & 0xFFu;
  };
  if (record[0] == CCPU_START_DELIMITER) {
    check("header", record[6], sum(1, 6));
    if (declared > CCPU_HEADER_LENGTH) {
      check("payload", record[declared - 1], sum(CCPU_HEADER_LENGTH, declared - 1));
    }
  } else {
    check("header", record[3], sum(1, 3));
    check("payload", record[declared - 1], sum(MCPU_HEADER_LENGTH, declared - 1));
  }
  return right;
}

void RunDump(const Arguments& hex) {
  const std::vector<unsigned char> bytes = ParseHex(hex);
  // The record the dump reads: the frame, then zeros.
  unsigned char record[SERIAL_FRAME_BUFFER_SIZE] = {};
  std::copy(bytes.begin(), bytes.end(), record);
  size_t declared = 0;
  if (record[0] == CCPU_START_DELIMITER) {
    const size_t payload = record[3] | (record[4] << 8);
    declared = payload == 0 ? CCPU_HEADER_LENGTH : payload + CCPU_HEADER_LENGTH + 1;
  } else if (record[0] == MCPU_START_DELIMITER) {
    declared = record[2] + MCPU_HEADER_LENGTH + 1u;
  }
  // A frame that is cut short or damaged is still shown, but flagged and
  // failed, as the receiver would not have taken it.
  bool sound = true;
  if (bytes.size() < declared) {
    std::fprintf(stderr, "the header declares %zu bytes, %zu given; the rest reads as 0\n",
                 declared, bytes.size());
    sound = false;
  } else if (bytes.size() > declared && declared > 0) {
    std::fprintf(stderr, "note: the header declares %zu bytes; the %zu after them are ignored\n",
                 declared, bytes.size() - declared);
  }
  if (declared > 0 && declared <= SERIAL_FRAME_MAX_LENGTH && !ChecksumsRight(record, declared)) {
    sound = false;
  }
  CVYNCommandDump& dump = GetVYNCommandDump();
  dump.ClearCommandDump();
  if (dump.DumpAcknowledgeOrNotification(record) != VYN_STATUS_SUCCESS) {
    std::fprintf(stderr, "not a frame: start byte 0x%02X is neither 0x42 (CCPU) nor 0x3E (MCPU)\n",
                 record[0]);
    throw CLI::RuntimeError(1);
  }
  const char* line = dump.GetCommandDump();
  if (line[0] == '\0') {
    std::fprintf(stderr, "no line for this frame (a request, a trace, or an unknown id)\n");
    throw CLI::RuntimeError(1);
  }
  std::printf("%s\n", line);
  if (!sound) throw CLI::RuntimeError(1);
}

}  // namespace

void AddFrameCommand(CLI::App& app) {
  CLI::App* frame = app.add_subcommand("frame", "Build request frames and render received frames");
  frame->require_subcommand(1);
  frame->footer(
      "Examples:\n"
      "  vyn frame build GetDeviceInfo            42 01 00 00 00 01 02\n"
      "  vyn frame build GetStatus 5:10 27:1\n"
      "  vyn frame build -s 7 MotorsOn\n"
      "  vyn frame dump 42 02 40 02 00 01 45 00 04 04\n"
      "'vyn frame build --help' lists every request and its arguments.");

  CLI::App* build = frame->add_subcommand(
      "build", "Print a request frame in hex, sequence number and checksums filled in");
  static std::string request_name;
  static Arguments request_args;
  static unsigned int sequence = 1;
  build->add_option("REQUEST", request_name, "Request name (see the list below)")->required();
  build->add_option("ARGS", request_args, "Arguments of the request");
  build->add_option("-s,--sequence", sequence, "Sequence number of the frame")
      ->transform(NumberIn(1, 255))
      ->capture_default_str();
  build->footer(RequestHelp());
  build->callback([] { RunBuild(request_name, request_args, sequence); });

  CLI::App* dump = frame->add_subcommand(
      "dump", "Print the traffic-monitor line of a received frame given in hex");
  static Arguments hex;
  dump->add_option("HEX", hex,
                   "Frame bytes: one byte per argument, or one hex string such as "
                   "\"42 02 40 02 00 01 45 00 04 04\"")
      ->required();
  dump->footer(
      "Example: vyn frame dump 42 02 40 02 00 01 45 00 04 04\n"
      "A frame cut short or with a wrong checksum is shown, flagged on standard error and\n"
      "ends with exit code 1.");
  dump->callback([] { RunDump(hex); });
}

}  // namespace vyn::tool
