#include "tools/vyn/request_table.h"

#include <CLI/CLI.hpp>
#include <functional>

#include "tools/vyn/number_grammar.h"

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

unsigned long ParseNumber(const std::string& text, unsigned long max, const char* what) {
  return static_cast<unsigned long>(NumberArgument(text, 0, static_cast<int64_t>(max), what));
}

// The device stores texts of at most this many characters; longer ones are
// refused here rather than cut short unseen.
constexpr size_t kMaxText = 254;

const std::string& CheckedText(const std::string& text, const char* what) {
  if (text.size() > kMaxText) {
    throw CLI::ValidationError(what, std::to_string(text.size()) + " characters; at most " +
                                         std::to_string(kMaxText) + " fit");
  }
  return text;
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

// A request that takes no arguments: only its builder differs.
template <uint16_t (CVYNCommandSet::*kBuild)(unsigned char*)>
Request WithoutArguments(const char* name) {
  return {name, "", 0, 0,
          [](CVYNCommandSet& s, unsigned char* f, const Arguments&) { return (s.*kBuild)(f); }};
}

const std::vector<Request>& Requests() {
  using S = CVYNCommandSet;
  static const std::vector<Request> requests = {
      WithoutArguments<&S::PrepareReqGetDeviceInfo>("GetDeviceInfo"),
      WithoutArguments<&S::PrepareReqDumpSettings>("DumpSettings"),
      WithoutArguments<&S::PrepareReqGetECPUInfo>("GetECPUInfo"),
      WithoutArguments<&S::PrepareReqGetKCPUInfo>("GetKCPUInfo"),
      WithoutArguments<&S::PrepareReqSetECPUPWMZeroOffset>("SetECPUPWMZeroOffset"),
      WithoutArguments<&S::PrepareReqSetECPUPWMMinMax>("SetECPUPWMMinMax"),
      WithoutArguments<&S::PrepareReqGetECPUPWMCalibration>("GetECPUPWMCalibration"),
      WithoutArguments<&S::PrepareReqSetECPUEncoderMinMax>("SetECPUEncoderMinMax"),
      WithoutArguments<&S::PrepareReqGetECPUEncoderCalibration>("GetECPUEncoderCalibration"),
      {"GetStatus", "[ID:RATE ...]", 0, 255, BuildGetStatus},
      {"Control", "[ID[:VALUE] ...]", 0, 255, BuildControl},
      {"SetHardwareInfo", "TYPE VERSION SERIAL", 3, 3,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetHardwareInfo(f, HardwareType(a), CheckedText(a[1], "VERSION"),
                                            CheckedText(a[2], "SERIAL"));
       }},
      WithoutArguments<&S::PrepareReqGetHardwareInfo>("GetHardwareInfo"),
      {"SetECPUHardwareInfo", "TYPE VERSION SERIAL", 3, 3,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetECPUHardwareInfo(f, HardwareType(a), CheckedText(a[1], "VERSION"),
                                                CheckedText(a[2], "SERIAL"));
       }},
      WithoutArguments<&S::PrepareReqGetECPUHardwareInfo>("GetECPUHardwareInfo"),
      {"SetProductionInfo", "DATE USER", 2, 2,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetProductionInfo(f, CheckedText(a[0], "DATE"),
                                              CheckedText(a[1], "USER"));
       }},
      WithoutArguments<&S::PrepareReqGetProductionInfo>("GetProductionInfo"),
      {"SetECPUProductionInfo", "DATE USER", 2, 2,
       [](S& s, unsigned char* f, const Arguments& a) {
         return s.PrepareReqSetECPUProductionInfo(f, CheckedText(a[0], "DATE"),
                                                  CheckedText(a[1], "USER"));
       }},
      WithoutArguments<&S::PrepareReqGetECPUProductionInfo>("GetECPUProductionInfo"),
      WithoutArguments<&S::PrepareReqBoardInfo>("BoardInfo"),
      WithoutArguments<&S::PrepareReqReadParamsExt>("ReadParamsExt"),
      WithoutArguments<&S::PrepareReqEncodersCalibFldOffset>("EncodersCalibFldOffset"),
      WithoutArguments<&S::PrepareReqEncodersCalibOffset>("EncodersCalibOffset"),
      WithoutArguments<&S::PrepareReqRealTimeData3>("RealTimeData3"),
      WithoutArguments<&S::PrepareReqMotorsOn>("MotorsOn"),
      WithoutArguments<&S::PrepareReqMotorsOff>("MotorsOff"),
  };
  return requests;
}

}  // namespace

std::string RequestHelp() {
  std::string text = "Requests (arguments):\n";
  for (const Request& request : Requests()) {
    text += std::string("  ") + request.name;
    if (request.arguments[0] != '\0') text += std::string(" ") + request.arguments;
    text += "\n";
  }
  text +=
      "Texts have at most 254 characters, GetStatus and Control at most 255 entries. GetStatus "
      "takes "
      "(property id, update rate) pairs;\n"
      "Control takes property ids, with a 16-bit value for 5, 6, 7 and 128.\n"
      "Example: vyn frame build Control 128:0x1234 0";
  return text;
}

uint16_t BuildRequestFrame(const std::string& name, const std::vector<std::string>& args,
                           CVYNCommandSet& command_set, unsigned char* frame) {
  const Request* request = nullptr;
  for (const Request& candidate : Requests()) {
    if (name == candidate.name) request = &candidate;
  }
  if (request == nullptr) {
    throw CLI::ValidationError("REQUEST", "unknown request '" + name + "'\n" + RequestHelp());
  }
  if (args.size() < request->min_arguments || args.size() > request->max_arguments) {
    std::string limit;
    if (request->max_arguments > 3)
      limit = " (at most " + std::to_string(request->max_arguments) + ")";
    throw CLI::ValidationError(name, std::string("expects: ") + name + " " + request->arguments +
                                         limit + ", got " + std::to_string(args.size()));
  }
  return request->build(command_set, frame, args);
}

}  // namespace vyn::tool
