// CVYNCommandDump: turns one received acknowledgement or notification into
// one line of text for a traffic monitor: the reply's symbolic name, the
// parser's result ("internal status") and every decoded field, separated by
// "; ". DumpAcknowledgeOrNotification renders a frame; GetCommandDump
// fetches the line.
//
// Every rendering override calls the parser of CVYNCommandSet and then
// writes the line anew, so the line always reflects the parser's result. A
// frame with an id that renders nothing (and the trace notification, which is
// parsed but has no line) leaves the previous line in place: a caller that
// shows the line after every frame clears it first or checks the id.
//
// Length of the line: at most 1023 characters. A head line that would be
// longer (only a long debug text can make it so) is cut at 1023 characters.
// The pieces of a list (statuses of an acknowledgement, properties of a
// status notification) are appended whole or not at all: the first piece
// that does not fit in full ends the list, and no later, shorter piece is
// appended after it, so the line never shows a list with a hole.
//
// In a status notification a property without a value (every id but 5, 6,
// 7, 26 and 27, the update-firmware id 128 included) takes no value bytes;
// its value text is the one GetPropertyValue gives for an id it has no value
// for, "<id> - unknown property".
//
// Ownership: the object owns its texts; the returned pointers stay valid
// until the next call of the same operation. Frames belong to the caller.
// Thread-safety: none; one thread renders at a time (the traffic monitor's).
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/export.h"
#include "vyn/device/command_set.h"

class VYN_EXPORT CVYNCommandDump : private CVYNCommandSet {
 public:
  // Enumerators, not data members, for the reason given in command_set.h.
  enum : int { kDumpTextSize = 1024, kShortTextSize = 128 };

  CVYNCommandDump();
  ~CVYNCommandDump();
  CVYNCommandDump(const CVYNCommandDump&) = delete;
  CVYNCommandDump& operator=(const CVYNCommandDump&) = delete;

  // By byte 0: 0x3E an MCPU reply, 0x42 a CCPU reply (both 0); any other
  // byte VYN_STATUS_NOT_IMPLEMENTED with the line untouched; no frame
  // VYN_STATUS_INVALID_PARAMETER.
  int32_t DumpAcknowledgeOrNotification(unsigned char* frame);
  // Render by command id; 0.
  int32_t DumpAcknowledgeOrNotificationFromCCPU(unsigned char* frame);
  // Renders the MCPU replies by command id (extended parameters, confirm,
  // board information); other ids leave the line as it was. 0.
  int32_t DumpAcknowledgeOrNotificationFromMCPU(unsigned char* frame);

  // The line. With a destination of `size` bytes (size counts the zero), the
  // line is copied too, cut to size - 1 characters when it is longer; a size
  // below 1 copies nothing.
  const char* GetCommandDump(char* destination = nullptr, int32_t size = 0);
  // Sets all 1024 characters of the line to zero; 0.
  int32_t ClearCommandDump();

  // "STATUS_SUCCESS" ... or "<code> - unknown status code".
  const char* GetStatusString(unsigned char status);
  // "Encoder Axis 1" ... or "<id> - unknown property".
  const char* GetPropertyName(unsigned char property_id);
  // The value at `value` as text; `size` tells how many bytes it took:
  // 5, 6, 7 signed 16-bit in degrees ("%0.3f; degrees"), 26 unsigned 32-bit,
  // 27 unsigned 16-bit, 128 unsigned 16-bit in hex; any other id takes no
  // bytes and reads "<id> - unknown property".
  const char* GetPropertyValue(unsigned char property_id, unsigned char* value,
                               unsigned char* size);

  // Rendering versions of the parsers; each returns the parser's result.
  int32_t ProcessAckGetDeviceInfo(unsigned char* frame, unsigned char* protocol_version,
                                  uint16_t* hardware_type, std::string* hardware_version,
                                  std::string* serial_number, std::string* mcpu_version,
                                  std::string* ecpu_version, std::string* ccpu_version,
                                  std::string* kcpu_version, std::string* lcpu_version,
                                  unsigned char size) override;
  int32_t ProcessAckDumpSettings(unsigned char* frame, unsigned char* status) override;
  int32_t ProcessAckGetECPUInfo(unsigned char* frame, unsigned char* protocol_version,
                                uint16_t* hardware_type, std::string* version,
                                unsigned char size) override;
  int32_t ProcessAckGetKCPUInfo(unsigned char* frame, unsigned char* protocol_version,
                                uint16_t* hardware_type, std::string* version,
                                unsigned char size) override;
  int32_t ProcessAckSetECPUPWMZeroOffset(unsigned char* frame, unsigned char* status,
                                         float* zero_offset_1, float* zero_offset_2,
                                         unsigned char size) override;
  int32_t ProcessAckSetECPUPWMMinMax(unsigned char* frame, unsigned char* status,
                                     float* duty_cycle_min_1, float* duty_cycle_max_1,
                                     float* duty_cycle_min_2, float* duty_cycle_max_2,
                                     unsigned char size) override;
  int32_t ProcessAckGetECPUPWMCalibration(unsigned char* frame, unsigned char* status,
                                          unsigned char* min_max_calibrated_1,
                                          unsigned char* zero_calibrated_1, float* duty_cycle_min_1,
                                          float* duty_cycle_max_1, float* duty_cycle_offset_1,
                                          unsigned char* min_max_calibrated_2,
                                          unsigned char* zero_calibrated_2, float* duty_cycle_min_2,
                                          float* duty_cycle_max_2, float* duty_cycle_offset_2,
                                          unsigned char size) override;
  int32_t ProcessAckSetECPUEncoderMinMax(unsigned char* frame, unsigned char* status,
                                         uint32_t* encoder_min, uint32_t* encoder_max,
                                         unsigned char size) override;
  int32_t ProcessAckGetECPUEncoderCalibration(unsigned char* frame, unsigned char* status,
                                              unsigned char* calibrated, uint32_t* encoder_min,
                                              uint32_t* encoder_max, unsigned char size) override;
  int32_t ProcessAckGetStatus(unsigned char* frame, unsigned char* count,
                              unsigned char* status_codes) override;
  int32_t ProcessAckControl(unsigned char* frame, unsigned char* count,
                            unsigned char* status_codes) override;
  int32_t ProcessAckSetHardwareInfo(unsigned char* frame, unsigned char* status) override;
  int32_t ProcessAckGetHardwareInfo(unsigned char* frame, uint16_t* hardware_type,
                                    std::string* hardware_version, std::string* serial_number,
                                    unsigned char size) override;
  int32_t ProcessAckSetECPUHardwareInfo(unsigned char* frame, unsigned char* status) override;
  int32_t ProcessAckGetECPUHardwareInfo(unsigned char* frame, uint16_t* hardware_type,
                                        std::string* hardware_version, std::string* serial_number,
                                        unsigned char size) override;
  int32_t ProcessAckSetProductionInfo(unsigned char* frame, unsigned char* status) override;
  int32_t ProcessAckGetProductionInfo(unsigned char* frame, std::string* production_date,
                                      std::string* production_user, unsigned char size) override;
  int32_t ProcessAckSetECPUProductionInfo(unsigned char* frame, unsigned char* status) override;
  int32_t ProcessAckGetECPUProductionInfo(unsigned char* frame, std::string* production_date,
                                          std::string* production_user,
                                          unsigned char size) override;
  int32_t ProcessNotStatus(unsigned char* frame, unsigned char* count, unsigned char* property_ids,
                           unsigned char* values) override;
  // Parsed, but renders no line.
  int32_t ProcessNotTrace(unsigned char* frame, uint16_t* count, int16_t* values,
                          uint16_t capacity) override;
  int32_t ProcessNotDebug(unsigned char* frame, uint16_t* source, unsigned char* priority,
                          std::string* text, uint16_t size) override;
  int32_t ProcessAckBoardInfo(unsigned char* frame, unsigned char* state, std::string* version,
                              unsigned char size) override;

  // The read-parameters reply: the second triple as EFO, then the first as
  // zero values; the parser's result.
  int32_t ProcessAckReadParamsExt(unsigned char* frame);
  // An MCPU confirmation: the confirmed command's name, and for payloads of
  // 2 or 3 bytes the byte or 16-bit value that follows it. 0, or
  // VYN_STATUS_NOT_IMPLEMENTED (line untouched) for an unknown command or a
  // payload length other than 1 to 3.
  int32_t ProcessAckConfirm(unsigned char* frame);

 private:
  // The parsers that the two operations above replace for the dump's users.
  using CVYNCommandSet::ProcessAckConfirm;
  using CVYNCommandSet::ProcessAckReadParamsExt;

  // Writes the line anew.
  void Format(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Appends one list piece if it fits whole; false (and the list ends) if not.
  bool AppendPiece(const char* piece);
  // For the status-code lists of GetStatus and Control.
  int32_t RenderStatusList(const char* head, unsigned char* frame, unsigned char* count,
                           unsigned char* status_codes);

  char dump_text_[kDumpTextSize];
  char status_text_[kShortTextSize];
  char property_name_text_[kShortTextSize];
  char property_value_text_[kShortTextSize];
};

// The process's one CVYNCommandDump, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNCommandDump& GetVYNCommandDump();
