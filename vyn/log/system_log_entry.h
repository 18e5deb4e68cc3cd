// _VYN_SYSTEM_LOG_EX_ENTRY: one accepted log entry, as the output thread
// writes it to the CSV file and the view.
//
// Ownership: the log allocates one record per accepted text; its queue owns
// the record until the output thread has written it.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/platform_types.h"
#include "vyn/core/log_event_type.h"

struct _VYN_SYSTEM_LOG_EX_ENTRY {
  int64_t llNumber = 0;    // the log's running number when the entry was accepted
  SYSTEMTIME stTime = {};  // local time of acceptance
  int64_t llTimeGMT = 0;   // the CSV column "ms [GMT]"; the log always leaves it 0
  std::string strText;     // cleaned: no double quotes, no trailing line breaks
  _VYNSystemLogExEventType eType = VYN_EVENT_UNKNOWN;  // the type given to AddOutput
  std::string strReference;  // the caller's reference (a port name, say); prefixed in the view
  std::string strCaller;     // the writing component, file only
  std::string strContext;    // free context text, file only
};
