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
#include "vyn/core/status.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/command_set.h"

namespace vyn::tool {
namespace {

using Arguments = std::vector<std::string>;
using Builder = std::function<uint16_t(CVYNCommandSet&, unsigned char*, const Arguments&)>;

struct Request {
  const char* name;
  const char* arguments;  // usage of the arguments, empty when there are none
  size_t min_arguments;
  size_t max_arguments;
  Builder build;
};

// A number in decimal or (with 0x) hexadecimal that fits `max`.
unsigned long ParseNumber(const std::string& text, unsigned long max, const char* what) {
  errno = 0;
  char* end = nullptr;
  const unsigned long value = std::strtoul(text.c_str(), &end, 0);
  if (text.empty() || text[0] == '-' || *end != '\0' || errno != 0 || value > max) {
    throw CLI::ValidationError(what,
                               "'" + text + "' is not a number from 0 to " + std::to_string(max));
  }
  return value;
}

// "ID:VALUE" or "ID" into its parts.
bool SplitPair(const std::string& text, std::string* id, std::string* value) {
  const size_t colon = text.find(':');
  *id = text.substr(0, colon);
  if (colon == std::string::npos) return false;
  *value = text.substr(colon + 1);
  return true;
}

uint16_t BuildGetStatus(CVYNCommandSet& set, unsigned char* frame, const Arguments& args) {
  std::vector<unsigned char> ids;
  std::vector<unsigned char> rates;
  for (const std::string& entry : args) {
    std::string id;
    std::string rate;
    if (!SplitPair(entry, &id, &rate)) {
      throw CLI::ValidationError("GetStatus", "entry '" + entry + "' is not ID:RATE");
    }
    ids.push_back(static_cast<unsigned char>(ParseNumber(id, 255, "property id")));
    rates.push_back(static_cast<unsigned char>(ParseNumber(rate, 255, "update rate")));
  }
  return set.PrepareReqGetStatus(frame, static_cast<unsigned char>(ids.size()), ids.data(),
                                 rates.data());
}

uint16_t BuildControl(CVYNCommandSet& set, unsigned char* frame, const Arguments& args) {
  std::vector<unsigned char> ids;
  std::vector<uint16_t> values;
  for (const std::string& entry : args) {
    std::string id_text;
    std::string value_text;
    const bool has_value = SplitPair(entry, &id_text, &value_text);
    const auto id = static_cast<unsigned char>(ParseNumber(id_text, 255, "property id"));
    const bool takes_value = id == ENCODER_AXIS_1 || id == ENCODER_AXIS_2 || id == ENCODER_AXIS_3 ||
                             id == UPDATE_FIRMWARE;
    if (takes_value != has_value) {
      throw CLI::ValidationError("Control", "entry '" + entry + "': properties 5, 6, 7 and 128 " +
                                                "take ID:VALUE, all others ID alone");
    }
    ids.push_back(id);
    if (has_value)
      values.push_back(static_cast<uint16_t>(ParseNumber(value_text, 0xFFFF, "value")));
  }
  return set.PrepareReqControl(frame, static_cast<unsigned char>(ids.size()), ids.data(),
                               values.data());
}

uint16_t HardwareType(const Arguments& args) {
  return static_cast<uint16_t>(ParseNumber(args[0], 0xFFFF, "hardware type"));
}

const std::vector<Request>& Requests() {
  using S = CVYNCommandSet;
  static const std::vector<Request> requests = {
      {"GetDeviceInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqGetDeviceInfo(f); }},
      {"DumpSettings", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqDumpSettings(f); }},
      {"GetECPUInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqGetECPUInfo(f); }},
      {"GetKCPUInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqGetKCPUInfo(f); }},
      {"SetECPUPWMZeroOffset", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) {
         return s.PrepareReqSetECPUPWMZeroOffset(f);
       }},
      {"SetECPUPWMMinMax", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqSetECPUPWMMinMax(f); }},
      {"GetECPUPWMCalibration", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) {
         return s.PrepareReqGetECPUPWMCalibration(f);
       }},
      {"SetECPUEncoderMinMax", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) {
         return s.PrepareReqSetECPUEncoderMinMax(f);
       }},
      {"GetECPUEncoderCalibration", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) {
         return s.PrepareReqGetECPUEncoderCalibration(f);
       }},
      {"GetStatus", "[ID:RATE ...]", 0, 255, BuildGetStatus},
      {"Control", "[ID[:VALUE] ...]", 0, 255, BuildControl},
      {"SetHardwareInfo", "TYPE VERSION SERIAL", 3, 3,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetHardwareInfo(f, HardwareType(a), a[1], a[2]);
       }},
      {"GetHardwareInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqGetHardwareInfo(f); }},
      {"SetECPUHardwareInfo", "TYPE VERSION SERIAL", 3, 3,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetECPUHardwareInfo(f, HardwareType(a), a[1], a[2]);
       }},
      {"GetECPUHardwareInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqGetECPUHardwareInfo(f); }},
      {"SetProductionInfo", "DATE USER", 2, 2,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetProductionInfo(f, a[0], a[1]);
       }},
      {"GetProductionInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqGetProductionInfo(f); }},
      {"SetECPUProductionInfo", "DATE USER", 2, 2,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetECPUProductionInfo(f, a[0], a[1]);
       }},
      {"GetECPUProductionInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) {
         return s.PrepareReqGetECPUProductionInfo(f);
       }},
      {"BoardInfo", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqBoardInfo(f); }},
      {"ReadParamsExt", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqReadParamsExt(f); }},
      {"EncodersCalibFldOffset", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) {
         return s.PrepareReqEncodersCalibFldOffset(f);
       }},
      {"EncodersCalibOffset", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqEncodersCalibOffset(f); }},
      {"RealTimeData3", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqRealTimeData3(f); }},
      {"MotorsOn", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqMotorsOn(f); }},
      {"MotorsOff", "", 0, 0,
       [](S& s, unsigned char* f, const Arguments&) { return s.PrepareReqMotorsOff(f); }},
  };
  return requests;
}

std::string RequestList() {
  std::string text = "Requests (arguments):\n";
  for (const Request& request : Requests()) {
    text += std::string("  ") + request.name;
    if (request.arguments[0] != '\0') text += std::string(" ") + request.arguments;
    text += "\n";
  }
  text +=
      "Numbers are decimal or 0x hexadecimal. GetStatus takes (property id, update rate) pairs;\n"
      "Control takes property ids, with a 16-bit value for 5, 6, 7 and 128.\n"
      "Example: vyn frame build Control 128:0x1234 0";
  return text;
}

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

std::vector<unsigned char> ParseHex(const Arguments& parts) {
  std::string digits;
  for (std::string part : parts) {
    if (part.rfind("0x", 0) == 0 || part.rfind("0X", 0) == 0) part.erase(0, 2);
    for (char c : part) {
      if (std::isspace(static_cast<unsigned char>(c)) || c == ',' || c == ':') continue;
      if (!std::isxdigit(static_cast<unsigned char>(c))) {
        throw CLI::ValidationError("HEX", std::string("'") + c + "' is not a hexadecimal digit");
      }
      digits += c;
    }
  }
  if (digits.size() % 2 != 0) throw CLI::ValidationError("HEX", "odd number of hex digits");
  if (digits.empty() || digits.size() / 2 > SERIAL_FRAME_BUFFER_SIZE) {
    throw CLI::ValidationError("HEX", "a frame has 1 to 1024 bytes");
  }
  std::vector<unsigned char> bytes;
  for (size_t i = 0; i < digits.size(); i += 2) {
    bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
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
  if (bytes.size() < declared) {
    std::fprintf(stderr, "note: the header declares %zu bytes, %zu given; the rest reads as 0\n",
                 declared, bytes.size());
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
}

}  // namespace

uint16_t BuildRequestFrame(const std::string& name, const std::vector<std::string>& args,
                           CVYNCommandSet& command_set, unsigned char* frame) {
  const Request* request = nullptr;
  for (const Request& candidate : Requests()) {
    if (name == candidate.name) request = &candidate;
  }
  if (request == nullptr) {
    throw CLI::ValidationError("REQUEST", "unknown request '" + name + "'\n" + RequestList());
  }
  if (args.size() < request->min_arguments || args.size() > request->max_arguments) {
    throw CLI::ValidationError(name, std::string("expects: ") + name + " " + request->arguments);
  }
  return request->build(command_set, frame, args);
}

std::string RequestHelp() { return RequestList(); }

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
      ->check(CLI::Range(1, 255))
      ->capture_default_str();
  build->footer(RequestList());
  build->callback([] { RunBuild(request_name, request_args, sequence); });

  CLI::App* dump = frame->add_subcommand(
      "dump", "Print the traffic-monitor line of a received frame given in hex");
  static Arguments hex;
  dump->add_option("HEX", hex, "Frame bytes, e.g. \"42 02 40 02 00 01 45 00 04 04\"")->required();
  dump->footer("Example: vyn frame dump 42 02 40 02 00 01 45 00 04 04");
  dump->callback([] { RunDump(hex); });
}

}  // namespace vyn::tool
