// CVYNSerialPort: the serial port driver and its receiving thread.
#pragma once

#include "vyn/core/export.h"

class VYN_EXPORT CVYNSerialPort {
 public:
  CVYNSerialPort();
  ~CVYNSerialPort();
  CVYNSerialPort(const CVYNSerialPort&) = delete;
  CVYNSerialPort& operator=(const CVYNSerialPort&) = delete;
};

VYN_EXPORT CVYNSerialPort& GetVYNSerialPort();
