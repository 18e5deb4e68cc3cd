// CVYNCommandSet: the device's command set. Request builders write a frame
// into the caller's buffer and return its length; CalculateChecksums fills
// in the sequence number and checksums just before a frame is sent; reply
// and notification parsers read a received frame into typed values.
//
// Builders write bytes 0 to 4 of a CCPU frame (0 to 2 of an MCPU frame) and
// the payload; the sequence number and the checksums are the sender's
// (CalculateChecksums), never the builder's. Builders check nothing and
// return lengths, never statuses. The buffer must hold the whole frame: the
// largest a builder writes is 773 bytes (a control request with 255 entries
// that all take a value), so a frame record always suffices. Texts are cut
// at their first zero byte and at 254 characters; the longest information
// request is then 520 bytes.
//
// Parsers take the frame from its start delimiter on, as it lies in a
// _SERIAL_FRAME_RECORD (1024 bytes), and read only bytes 0 to 4 (0 to 2) and
// the declared payload: never the payload checksum, never past the record.
// A CCPU frame that declares more than CCPU_MAX_PAYLOAD_LENGTH bytes cannot
// have come from the receiver and gives RX_WRONG_LENGTH before anything is
// read. Outputs are written as soon as the payload holds them; a later
// failing check decides the result but does not undo them, and an output
// whose bytes lie beyond the declared payload is left as it was. Results:
//   0                           the payload has the reply's form
//   RX_WRONG_LENGTH (-27)       too short for the reply, or not its layout
//   VYN_STATUS_INVALID_PARAMETER (-3)  text size below 2, or a text that is
//                               not terminated inside the payload
//   VYN_STATUS_BUFFER_TOO_SMALL (-22)  all read, but a text was cut to fit
//   VYN_STATUS_NOT_FOUND (-12)  unknown property id (property helpers)
// Text outputs keep at most `size - 1` characters, as a C buffer of `size`
// bytes would.
//
// Value widths of the status notification (and of the private property
// helpers): the encoder axes 5, 6 and 7 carry a signed 16-bit value, the
// I2C error count 26 an unsigned 32-bit value, the loops per second 27 an
// unsigned 16-bit value, and every other property id no value at all. A
// control request carries a 16-bit value for 5, 6, 7 and 128.
//
// The MCPU read-parameters request is sent as a well-formed 6-byte frame:
// length byte 1 and the single payload byte 0 (a frame that declared no
// payload but was sent with six bytes would carry one stray byte).
//
// Ownership: the object owns only its two-channel flag and sequence counter;
// frames and outputs belong to the caller.
// Thread-safety: builders and parsers keep no state apart from the
// two-channel flag (written by the ECPU PWM parsers) and the sequence
// counter. CalculateChecksums may be called from any number of threads at
// once (the serial port calls it for every sender): the counter is read and
// advanced under its own lock, so no two frames get the same number. The
// rest expects one thread at a time, as a request dialog uses it.
// Lock order: the sequence lock is a leaf; the serial port's send slot
// mutex may be held when it is taken.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/device/command_ids.h"
#include "vyn/device/frame_format.h"

class VYN_EXPORT CVYNCommandSet {
 public:
  // Capacities that callers of the list parsers must provide. Enumerators
  // rather than static data members: a data member that is bound to a
  // reference becomes a unique symbol, and a library with one can no longer
  // be unloaded.
  enum : int {
    kMaxStatusCodes = 255,        // ProcessAckGetStatus/Control
    kMaxStatusProperties = 255,   // ProcessNotStatus ids
    kMaxStatusValueBytes = 1020,  // ProcessNotStatus values
  };

  CVYNCommandSet();
  // Not virtual: the object is never deleted through a base pointer, and the
  // operation slots below keep their order.
  ~CVYNCommandSet() = default;
  CVYNCommandSet(const CVYNCommandSet&) = delete;
  CVYNCommandSet& operator=(const CVYNCommandSet&) = delete;

  // --- Request builders (CCPU), slots 0 to 18 -----------------------------
  // Device information request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetDeviceInfo(unsigned char* frame);
  // Settings dump request, no payload: 7 bytes.
  virtual uint16_t PrepareReqDumpSettings(unsigned char* frame);
  // ECPU information request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetECPUInfo(unsigned char* frame);
  // KCPU information request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetKCPUInfo(unsigned char* frame);
  // PWM zero-offset request; fixed payload of two 16-bit 0x8000 (12 bytes,
  // byte 5 written as 0 as well).
  virtual uint16_t PrepareReqSetECPUPWMZeroOffset(unsigned char* frame);
  // PWM minimum/maximum request; fixed payload of four float 0.0 (24 bytes,
  // byte 5 written as 0 as well).
  virtual uint16_t PrepareReqSetECPUPWMMinMax(unsigned char* frame);
  // PWM calibration read-out request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetECPUPWMCalibration(unsigned char* frame);
  // Encoder minimum/maximum request; fixed payload of two 32-bit 0 (16 bytes,
  // byte 5 written as 0 as well).
  virtual uint16_t PrepareReqSetECPUEncoderMinMax(unsigned char* frame);
  // Encoder calibration read-out request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetECPUEncoderCalibration(unsigned char* frame);
  // One (property id, update rate) pair per entry.
  virtual uint16_t PrepareReqGetStatus(unsigned char* frame, unsigned char count,
                                       const unsigned char* property_ids,
                                       const unsigned char* update_rates);
  // One property id per entry, followed by a 16-bit value for 5, 6, 7 and
  // 128; `values` holds the values of those entries only, in order.
  virtual uint16_t PrepareReqControl(unsigned char* frame, unsigned char count,
                                     const unsigned char* property_ids, const uint16_t* values);
  // Writes the device's hardware information. Payload: type (16-bit),
  // version and serial number, each with its zero.
  virtual uint16_t PrepareReqSetHardwareInfo(unsigned char* frame, uint16_t hardware_type,
                                             std::string hardware_version,
                                             std::string serial_number);
  // Hardware information read-out request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetHardwareInfo(unsigned char* frame);
  // The ECPU's hardware information, same payload as PrepareReqSetHardwareInfo.
  virtual uint16_t PrepareReqSetECPUHardwareInfo(unsigned char* frame, uint16_t hardware_type,
                                                 std::string hardware_version,
                                                 std::string serial_number);
  // ECPU hardware information read-out request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetECPUHardwareInfo(unsigned char* frame);
  // Writes the device's production information. Payload: date and user,
  // each with its zero.
  virtual uint16_t PrepareReqSetProductionInfo(unsigned char* frame, std::string production_date,
                                               std::string production_user);
  // Production information read-out request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetProductionInfo(unsigned char* frame);
  // The ECPU's production information, same payload as
  // PrepareReqSetProductionInfo.
  virtual uint16_t PrepareReqSetECPUProductionInfo(unsigned char* frame,
                                                   std::string production_date,
                                                   std::string production_user);
  // ECPU production information read-out request, no payload: 7 bytes.
  virtual uint16_t PrepareReqGetECPUProductionInfo(unsigned char* frame);

  // --- Reply and notification parsers (CCPU), slots 19 to 40 --------------
  // Protocol version at 0, hardware type at 1, then seven texts.
  virtual int32_t ProcessAckGetDeviceInfo(unsigned char* frame, unsigned char* protocol_version,
                                          uint16_t* hardware_type, std::string* hardware_version,
                                          std::string* serial_number, std::string* mcpu_version,
                                          std::string* ecpu_version, std::string* ccpu_version,
                                          std::string* kcpu_version, std::string* lcpu_version,
                                          unsigned char size);
  // Status at 0, written only for the one-byte payload.
  virtual int32_t ProcessAckDumpSettings(unsigned char* frame, unsigned char* status);
  // Protocol version at 0, hardware type at 1, version text at 3 (the KCPU
  // reply has the same layout).
  virtual int32_t ProcessAckGetECPUInfo(unsigned char* frame, unsigned char* protocol_version,
                                        uint16_t* hardware_type, std::string* version,
                                        unsigned char size);
  // The KCPU information reply, laid out as the ECPU's.
  virtual int32_t ProcessAckGetKCPUInfo(unsigned char* frame, unsigned char* protocol_version,
                                        uint16_t* hardware_type, std::string* version,
                                        unsigned char size);
  // The ECPU PWM replies come for one channel (a rocker) or two (a joystick);
  // each sets the two-channel flag from the payload length before checking
  // anything else. Zero-offset reply: status at 0, one float offset per
  // channel; payload length 5 or 9.
  virtual int32_t ProcessAckSetECPUPWMZeroOffset(unsigned char* frame, unsigned char* status,
                                                 float* zero_offset_1, float* zero_offset_2,
                                                 unsigned char size);
  // Minimum/maximum reply: status at 0, then float minimum and maximum duty
  // cycle per channel; payload length 9 or 17.
  virtual int32_t ProcessAckSetECPUPWMMinMax(unsigned char* frame, unsigned char* status,
                                             float* duty_cycle_min_1, float* duty_cycle_max_1,
                                             float* duty_cycle_min_2, float* duty_cycle_max_2,
                                             unsigned char size);
  // Calibration reply: status at 0, then per channel the min/max and zero
  // calibrated flags and float minimum, maximum and offset; payload length 15
  // or 29.
  virtual int32_t ProcessAckGetECPUPWMCalibration(
      unsigned char* frame, unsigned char* status, unsigned char* min_max_calibrated_1,
      unsigned char* zero_calibrated_1, float* duty_cycle_min_1, float* duty_cycle_max_1,
      float* duty_cycle_offset_1, unsigned char* min_max_calibrated_2,
      unsigned char* zero_calibrated_2, float* duty_cycle_min_2, float* duty_cycle_max_2,
      float* duty_cycle_offset_2, unsigned char size);
  // Payload length 9.
  virtual int32_t ProcessAckSetECPUEncoderMinMax(unsigned char* frame, unsigned char* status,
                                                 uint32_t* encoder_min, uint32_t* encoder_max,
                                                 unsigned char size);
  // Payload length 10.
  virtual int32_t ProcessAckGetECPUEncoderCalibration(unsigned char* frame, unsigned char* status,
                                                      unsigned char* calibrated,
                                                      uint32_t* encoder_min, uint32_t* encoder_max,
                                                      unsigned char size);
  // One device status code per requested entry: count = payload length.
  // `status_codes` holds kMaxStatusCodes entries; a longer payload delivers
  // that many and gives RX_WRONG_LENGTH.
  virtual int32_t ProcessAckGetStatus(unsigned char* frame, unsigned char* count,
                                      unsigned char* status_codes);
  // The control reply: one status code per control entry, read as
  // ProcessAckGetStatus reads its list.
  virtual int32_t ProcessAckControl(unsigned char* frame, unsigned char* count,
                                    unsigned char* status_codes);
  // The four set-acknowledgements: status at 0, payload length 1.
  virtual int32_t ProcessAckSetHardwareInfo(unsigned char* frame, unsigned char* status);
  // Hardware type at 0, then version and serial number texts.
  virtual int32_t ProcessAckGetHardwareInfo(unsigned char* frame, uint16_t* hardware_type,
                                            std::string* hardware_version,
                                            std::string* serial_number, unsigned char size);
  // Acknowledgement of the ECPU hardware information: status at 0, payload
  // length 1.
  virtual int32_t ProcessAckSetECPUHardwareInfo(unsigned char* frame, unsigned char* status);
  // The ECPU hardware information reply, laid out as ProcessAckGetHardwareInfo.
  virtual int32_t ProcessAckGetECPUHardwareInfo(unsigned char* frame, uint16_t* hardware_type,
                                                std::string* hardware_version,
                                                std::string* serial_number, unsigned char size);
  // Acknowledgement of the production information: status at 0, payload
  // length 1.
  virtual int32_t ProcessAckSetProductionInfo(unsigned char* frame, unsigned char* status);
  // Date and user texts. A size below 2 is not refused here: the texts are
  // then cut (to nothing) and the result is -22.
  virtual int32_t ProcessAckGetProductionInfo(unsigned char* frame, std::string* production_date,
                                              std::string* production_user, unsigned char size);
  // Acknowledgement of the ECPU production information: status at 0, payload
  // length 1.
  virtual int32_t ProcessAckSetECPUProductionInfo(unsigned char* frame, unsigned char* status);
  // The ECPU production information reply, read as
  // ProcessAckGetProductionInfo.
  virtual int32_t ProcessAckGetECPUProductionInfo(unsigned char* frame,
                                                  std::string* production_date,
                                                  std::string* production_user, unsigned char size);
  // Entries of a property id and its value (widths above); ids go to
  // `property_ids` (kMaxStatusProperties entries), values are packed into
  // `values` (kMaxStatusValueBytes bytes). Reading stops at the end of the
  // payload. An entry whose value would run past the payload is not taken
  // and gives RX_WRONG_LENGTH; otherwise the result is 0.
  virtual int32_t ProcessNotStatus(unsigned char* frame, unsigned char* count,
                                   unsigned char* property_ids, unsigned char* values);
  // Signed 16-bit values; an empty or odd payload gives -27; count = N / 2,
  // and when `capacity` is smaller nothing is copied and the result is -22.
  virtual int32_t ProcessNotTrace(unsigned char* frame, uint16_t* count, int16_t* values,
                                  uint16_t capacity);
  // Source (16-bit) at 0, priority at 2, and the N - 3 bytes from 3 on as text;
  // the text returned ends at the first zero among them.
  virtual int32_t ProcessNotDebug(unsigned char* frame, uint16_t* source, unsigned char* priority,
                                  std::string* text, uint16_t size);

  // --- Request builders (MCPU), slots 41 to 47 ----------------------------
  // Board information request, no payload: 5 bytes.
  virtual uint16_t PrepareReqBoardInfo(unsigned char* frame);
  // Extended parameter read-out; payload one byte 0: 6 bytes.
  virtual uint16_t PrepareReqReadParamsExt(unsigned char* frame);
  // Encoder field-offset calibration, no payload: 5 bytes.
  virtual uint16_t PrepareReqEncodersCalibFldOffset(unsigned char* frame);
  // Encoder zero-offset calibration, no payload: 5 bytes.
  virtual uint16_t PrepareReqEncodersCalibOffset(unsigned char* frame);
  // Real-time data set 3 request, no payload: 5 bytes.
  virtual uint16_t PrepareReqRealTimeData3(unsigned char* frame);
  // Motors on: the motor change command with payload byte 0x0B (6 bytes).
  virtual uint16_t PrepareReqMotorsOn(unsigned char* frame);
  // Motors off: the motor change command with payload byte 0x0C (6 bytes).
  virtual uint16_t PrepareReqMotorsOff(unsigned char* frame);

  // --- Reply parsers (MCPU), slots 48 to 51 -------------------------------
  // Payload length 18: state at 3, version number at 7 rendered "V xx.yy.zz".
  virtual int32_t ProcessAckBoardInfo(unsigned char* frame, unsigned char* state,
                                      std::string* version, unsigned char size);
  // Two triples of signed 16-bit values at 28 and 34; the payload must hold
  // them (40 bytes), else RX_WRONG_LENGTH and the triples stay as they were.
  virtual int32_t ProcessAckReadParamsExt(unsigned char* frame, int16_t* first_triple,
                                          int16_t* second_triple);
  // Payload length 63: A = byte at 57, B = 16-bit at 52, C = 16-bit at 14,
  // D = byte at 16. The command id is not looked at.
  virtual int32_t ProcessRealtimeData3(unsigned char* frame, unsigned char* value_a,
                                       uint16_t* value_b, uint16_t* value_c,
                                       unsigned char* value_d);
  // The confirmed command's id, payload byte 0; an empty payload gives -27.
  virtual int32_t ProcessAckConfirm(unsigned char* frame, unsigned char* command);

  // --- Sending side --------------------------------------------------------
  // By byte 0: 0x3E as CalculateChecksumsForMCPU, 0x42 as ...ForCCPU, any
  // other byte VYN_STATUS_NOT_IMPLEMENTED with the frame unchanged.
  int32_t CalculateChecksums(unsigned char* frame);
  // Sequence number (then advanced, 255 -> 1, never 0), header checksum and,
  // for a payload, the payload checksum. 0; a header declaring more than
  // CCPU_MAX_PAYLOAD_LENGTH bytes is refused with VYN_STATUS_INVALID_PARAMETER
  // and left unchanged, since its checksum would lie outside a frame record.
  int32_t CalculateChecksumsForCCPU(unsigned char* frame) VYN_EXCLUDES(sequence_lock_);
  // Header checksum and payload checksum (also for an empty payload). 0.
  int32_t CalculateChecksumsForMCPU(unsigned char* frame);

 protected:
  // Value bytes that a status notification carries for a property id.
  static unsigned char StatusValueSize(unsigned char property_id);

 private:
  int32_t ParseInformationAck(unsigned char* frame, unsigned char* protocol_version,
                              uint16_t* hardware_type, std::string* version, unsigned char size);
  int32_t ParseStatusList(unsigned char* frame, unsigned char* count, unsigned char* status_codes);
  int32_t ParseSetAck(unsigned char* frame, unsigned char* status);
  int32_t ParseHardwareInfoAck(unsigned char* frame, uint16_t* hardware_type,
                               std::string* hardware_version, std::string* serial_number,
                               unsigned char size);
  int32_t ParseProductionInfoAck(unsigned char* frame, std::string* production_date,
                                 std::string* production_user, unsigned char size);

  // Reads `count` zero-terminated texts from payload offset `offset` on; each
  // must end inside the payload, and the last one exactly at its end.
  int32_t ExtractTexts(const unsigned char* payload, uint16_t length, uint16_t offset,
                       std::string* const* outputs, int count, uint16_t size);
  // Copies `length` characters and a terminator into a text of `size` bytes:
  // 0, or -22 when only size - 1 characters fit.
  int32_t ExtractString(const unsigned char* source, std::string* destination, uint16_t length,
                        uint16_t size);
  // Control entries: 5, 6, 7 and 128 write the 16-bit *source little-endian
  // and report 2; any other id reports 0 and returns -12.
  int32_t SetPropertyValue(unsigned char* destination, unsigned char property_id,
                           const uint16_t* source, unsigned char* size);
  // Status notification values: copies StatusValueSize(id) bytes and reports
  // the size; ids without a value report 0 and return -12.
  int32_t GetPropertyValue(const unsigned char* source, unsigned char property_id,
                           unsigned char* destination, unsigned char* size);

  // Set by the ECPU PWM parsers: 1 when the last such reply had two channels.
  bool two_channels_ = false;
  CRITICAL_SECTION sequence_lock_;
  unsigned char sequence_counter_ VYN_GUARDED_BY(sequence_lock_) = 1;

 protected:
  // True when the last ECPU PWM reply parsed carried two channels; false
  // before any. Read it on the thread that parsed.
  bool HasTwoChannels() const { return two_channels_; }
};

// The process's one CVYNCommandSet, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNCommandSet& GetVYNCommandSet();
