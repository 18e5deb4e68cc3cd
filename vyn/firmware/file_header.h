// CVYNFileHeader: firmware files: header, CRC-32 and scrambling.
#pragma once

#include "vyn/base/export.h"

class VYN_EXPORT CVYNFileHeader {
 public:
  CVYNFileHeader();
  virtual ~CVYNFileHeader();
  CVYNFileHeader(const CVYNFileHeader&) = delete;
  CVYNFileHeader& operator=(const CVYNFileHeader&) = delete;
};

VYN_EXPORT CVYNFileHeader& GetVYNFileHeader();
