#include "vyn/firmware/file_header.h"

CVYNFileHeader::CVYNFileHeader() = default;

CVYNFileHeader::~CVYNFileHeader() = default;
