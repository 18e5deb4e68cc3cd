// CVYNCommandHelper: lets a service dialog compose one CCPU request by hand.
// FillRequest fills the request list; FillParameters adjusts the parameter
// list, the two labels and the value field to the chosen request;
// GetCurrentCommand builds the chosen request into a frame buffer, ready for
// SendCommand.
//
// Value texts are read like atoi reads them (leading blanks, a sign, then
// digits), and the value is the decimal number modulo 256 (update rate) or
// 65536 (setpoint) whatever its length; the field is then rewritten with the
// value actually used, so the user sees the truncation.
//
// Ownership: the controls and the frame buffer belong to the caller.
// Thread-safety: none; called on the dialog's thread. The instance's own
// sequence counter is not used: frames are numbered by the sender.
#pragma once

#include <cstdint>

#include "vyn/base/export.h"
#include "vyn/core/window_controls.h"
#include "vyn/device/command_set.h"

class VYN_EXPORT CVYNCommandHelper : public CVYNCommandSet {
 public:
  CVYNCommandHelper();
  ~CVYNCommandHelper();
  CVYNCommandHelper(const CVYNCommandHelper&) = delete;
  CVYNCommandHelper& operator=(const CVYNCommandHelper&) = delete;

  // Empties the list, adds the eleven request names and selects the first;
  // VYN_STATUS_INVALID_PARAMETER without a list.
  int32_t FillRequest(CComboBox* request_list);
  // Labels, parameter list and value field for the chosen request: property
  // list and value for status and control requests, "n/a" and disabled
  // controls for the others. VYN_STATUS_INVALID_PARAMETER when a control is
  // absent, VYN_STATUS_NOT_FOUND when no request is chosen.
  int32_t FillParameters(CComboBox* request_list, CStatic* parameter_label,
                         CComboBox* parameter_list, CStatic* value_label, CEdit* value_field);
  // Builds the chosen request into `frame` and stores its length: 0;
  // VYN_STATUS_INVALID_PARAMETER when an argument is absent;
  // VYN_STATUS_WRONG_FORMAT for an empty value text or one of 256 characters
  // or more (status and control requests only); VYN_STATUS_UNSPECIFIC_ERROR
  // when nothing was built (no request chosen, or a control of ALL_MOTORS,
  // which takes no setpoint).
  int32_t GetCurrentCommand(CComboBox* request_list, CComboBox* parameter_list, CEdit* value_field,
                            unsigned char* frame, uint16_t* length);

 private:
  // Request id for a list index; 0xFFFF for an unknown index.
  uint16_t ConvertIndexToRequest(int32_t index);
  // Property id for a parameter list index of a status or control request;
  // 255 for any other request.
  uint16_t ConvertParameter1ToInt(uint16_t request, int32_t index);
};

// The process's one CVYNCommandHelper, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNCommandHelper& GetVYNCommandHelper();
