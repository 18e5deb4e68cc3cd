// Every parser slot of the command set as a call that returns the result and
// a text of all outputs, so that tests can compare two runs of a parser.
#pragma once

#include <cstdint>
#include <functional>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "vyn/device/command_set.h"

namespace vyn::test {

struct ParserRun {
  int32_t result;
  std::string outputs;
  bool operator==(const ParserRun&) const = default;
};

struct ParserCase {
  const char* name;
  bool mcpu;
  std::function<ParserRun(CVYNCommandSet&, unsigned char*)> run;
};

// Numbers as numbers (bytes too), texts as they are.
template <typename T>
auto Printable(const T& value) {
  if constexpr (std::is_arithmetic_v<T>) {
    return +value;
  } else {
    return value;
  }
}

template <typename... T>
std::string Join(const T&... values) {
  std::ostringstream out;
  ((out << Printable(values) << '|'), ...);
  return out.str();
}

inline std::string JoinBytes(const unsigned char* bytes, int count) {
  std::ostringstream out;
  for (int i = 0; i < count; ++i) out << +bytes[i] << ',';
  return out.str();
}

inline std::vector<ParserCase> AllParsers() {
  using S = CVYNCommandSet;
  using F = unsigned char*;
  const auto info =
      [](int32_t (S::*parse)(F, unsigned char*, uint16_t*, std::string*, unsigned char)) {
        return [parse](S& s, F f) {
          unsigned char version = 0;
          uint16_t type = 0;
          std::string text;
          const int32_t r = (s.*parse)(f, &version, &type, &text, 32);
          return ParserRun{r, Join(version, type, text)};
        };
      };
  const auto set_ack = [](int32_t (S::*parse)(F, unsigned char*)) {
    return [parse](S& s, F f) {
      unsigned char status = 0;
      const int32_t r = (s.*parse)(f, &status);
      return ParserRun{r, Join(status)};
    };
  };
  const auto list = [](int32_t (S::*parse)(F, unsigned char*, unsigned char*)) {
    return [parse](S& s, F f) {
      unsigned char count = 0;
      unsigned char codes[255] = {};
      const int32_t r = (s.*parse)(f, &count, codes);
      return ParserRun{r, Join(count) + JoinBytes(codes, 255)};
    };
  };
  const auto hardware =
      [](int32_t (S::*parse)(F, uint16_t*, std::string*, std::string*, unsigned char)) {
        return [parse](S& s, F f) {
          uint16_t type = 0;
          std::string version;
          std::string serial;
          const int32_t r = (s.*parse)(f, &type, &version, &serial, 32);
          return ParserRun{r, Join(type, version, serial)};
        };
      };
  const auto production = [](int32_t (S::*parse)(F, std::string*, std::string*, unsigned char)) {
    return [parse](S& s, F f) {
      std::string date;
      std::string user;
      const int32_t r = (s.*parse)(f, &date, &user, 32);
      return ParserRun{r, Join(date, user)};
    };
  };
  return {
      {"GetDeviceInfo", false,
       [](S& s, F f) {
         unsigned char version = 0;
         uint16_t type = 0;
         std::string t[7];
         const int32_t r = s.ProcessAckGetDeviceInfo(f, &version, &type, &t[0], &t[1], &t[2], &t[3],
                                                     &t[4], &t[5], &t[6], 32);
         return ParserRun{r, Join(version, type, t[0], t[1], t[2], t[3], t[4], t[5], t[6])};
       }},
      {"DumpSettings", false, set_ack(&S::ProcessAckDumpSettings)},
      {"GetECPUInfo", false, info(&S::ProcessAckGetECPUInfo)},
      {"GetKCPUInfo", false, info(&S::ProcessAckGetKCPUInfo)},
      {"SetECPUPWMZeroOffset", false,
       [](S& s, F f) {
         unsigned char status = 0;
         float a = 0;
         float b = 0;
         const int32_t r = s.ProcessAckSetECPUPWMZeroOffset(f, &status, &a, &b, 32);
         return ParserRun{r, Join(status, a, b)};
       }},
      {"SetECPUPWMMinMax", false,
       [](S& s, F f) {
         unsigned char status = 0;
         float v[4] = {};
         const int32_t r = s.ProcessAckSetECPUPWMMinMax(f, &status, &v[0], &v[1], &v[2], &v[3], 32);
         return ParserRun{r, Join(status, v[0], v[1], v[2], v[3])};
       }},
      {"GetECPUPWMCalibration", false,
       [](S& s, F f) {
         unsigned char b[5] = {};
         float v[6] = {};
         const int32_t r = s.ProcessAckGetECPUPWMCalibration(
             f, &b[0], &b[1], &b[2], &v[0], &v[1], &v[2], &b[3], &b[4], &v[3], &v[4], &v[5], 32);
         return ParserRun{r,
                          Join(b[0], b[1], b[2], b[3], b[4], v[0], v[1], v[2], v[3], v[4], v[5])};
       }},
      {"SetECPUEncoderMinMax", false,
       [](S& s, F f) {
         unsigned char status = 0;
         uint32_t low = 0;
         uint32_t high = 0;
         const int32_t r = s.ProcessAckSetECPUEncoderMinMax(f, &status, &low, &high, 32);
         return ParserRun{r, Join(status, low, high)};
       }},
      {"GetECPUEncoderCalibration", false,
       [](S& s, F f) {
         unsigned char status = 0;
         unsigned char calibrated = 0;
         uint32_t low = 0;
         uint32_t high = 0;
         const int32_t r =
             s.ProcessAckGetECPUEncoderCalibration(f, &status, &calibrated, &low, &high, 32);
         return ParserRun{r, Join(status, calibrated, low, high)};
       }},
      {"GetStatus", false, list(&S::ProcessAckGetStatus)},
      {"Control", false, list(&S::ProcessAckControl)},
      {"SetHardwareInfo", false, set_ack(&S::ProcessAckSetHardwareInfo)},
      {"GetHardwareInfo", false, hardware(&S::ProcessAckGetHardwareInfo)},
      {"SetECPUHardwareInfo", false, set_ack(&S::ProcessAckSetECPUHardwareInfo)},
      {"GetECPUHardwareInfo", false, hardware(&S::ProcessAckGetECPUHardwareInfo)},
      {"SetProductionInfo", false, set_ack(&S::ProcessAckSetProductionInfo)},
      {"GetProductionInfo", false, production(&S::ProcessAckGetProductionInfo)},
      {"SetECPUProductionInfo", false, set_ack(&S::ProcessAckSetECPUProductionInfo)},
      {"GetECPUProductionInfo", false, production(&S::ProcessAckGetECPUProductionInfo)},
      {"NotStatus", false,
       [](S& s, F f) {
         unsigned char count = 0;
         unsigned char ids[255] = {};
         unsigned char values[1020] = {};
         const int32_t r = s.ProcessNotStatus(f, &count, ids, values);
         return ParserRun{r, Join(count) + JoinBytes(ids, 255) + JoinBytes(values, 1020)};
       }},
      {"NotTrace", false,
       [](S& s, F f) {
         uint16_t count = 0;
         int16_t values[600] = {};
         const int32_t r = s.ProcessNotTrace(f, &count, values, 600);
         std::string text = Join(count);
         for (int16_t value : values) text += Join(value);
         return ParserRun{r, text};
       }},
      {"NotDebug", false,
       [](S& s, F f) {
         uint16_t source = 0;
         unsigned char priority = 0;
         std::string text;
         const int32_t r = s.ProcessNotDebug(f, &source, &priority, &text, 1024);
         return ParserRun{r, Join(source, priority, text)};
       }},
      {"BoardInfo", true,
       [](S& s, F f) {
         unsigned char state = 0;
         std::string version;
         const int32_t r = s.ProcessAckBoardInfo(f, &state, &version, 32);
         return ParserRun{r, Join(state, version)};
       }},
      {"ReadParamsExt", true,
       [](S& s, F f) {
         int16_t first[3] = {};
         int16_t second[3] = {};
         const int32_t r = s.ProcessAckReadParamsExt(f, first, second);
         return ParserRun{r, Join(first[0], first[1], first[2], second[0], second[1], second[2])};
       }},
      {"RealtimeData3", true,
       [](S& s, F f) {
         unsigned char a = 0;
         uint16_t b = 0;
         uint16_t c = 0;
         unsigned char d = 0;
         const int32_t r = s.ProcessRealtimeData3(f, &a, &b, &c, &d);
         return ParserRun{r, Join(a, b, c, d)};
       }},
      {"Confirm", true,
       [](S& s, F f) {
         unsigned char command = 0;
         const int32_t r = s.ProcessAckConfirm(f, &command);
         return ParserRun{r, Join(command)};
       }},
  };
}

}  // namespace vyn::test
