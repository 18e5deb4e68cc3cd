# Turns a key file (format in keys/README.md) into a C++ source file that
# defines the key stream and the start offsets as constants.
#   cmake -DINPUT=<key file> -DOUTPUT=<source file> -P embed_key_material.cmake
cmake_minimum_required(VERSION 3.25)

if(NOT EXISTS "${INPUT}")
  message(FATAL_ERROR "key file ${INPUT} does not exist")
endif()
file(SIZE "${INPUT}" size)
if(NOT size EQUAL 32788)
  message(FATAL_ERROR "key file ${INPUT} has ${size} bytes; a key file has 32788")
endif()
file(READ "${INPUT}" magic LIMIT 8 HEX)
if(NOT magic STREQUAL "56594e4b45595331")
  message(FATAL_ERROR "key file ${INPUT} does not begin with VYNKEYS1")
endif()

file(READ "${INPUT}" offsets_hex OFFSET 8 LIMIT 12 HEX)
set(offsets "")
foreach(key RANGE 0 5)
  math(EXPR at "${key} * 4")
  string(SUBSTRING "${offsets_hex}" ${at} 2 low)
  math(EXPR at "${at} + 2")
  string(SUBSTRING "${offsets_hex}" ${at} 2 high)
  math(EXPR value "0x${high}${low}")
  if(value GREATER_EQUAL 32768)
    math(EXPR number "${key} + 1")
    message(FATAL_ERROR "key file ${INPUT}: start offset of key ${number} is ${value}, not below 32768")
  endif()
  list(APPEND offsets ${value})
endforeach()
list(GET offsets 0 first)
list(GET offsets 1 second)
if(NOT first EQUAL second)
  message(FATAL_ERROR "key file ${INPUT}: keys 1 and 2 must share one start offset")
endif()
list(SUBLIST offsets 1 5 distinct)
list(REMOVE_DUPLICATES distinct)
list(LENGTH distinct distinct_count)
if(NOT distinct_count EQUAL 5)
  message(FATAL_ERROR "key file ${INPUT}: keys 2 to 6 need five different start offsets")
endif()

file(READ "${INPUT}" stream_hex OFFSET 20 HEX)
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," stream "${stream_hex}")
# Sixteen bytes a line (CMake's expressions know no counted repetition).
string(REPEAT "0x[0-9a-f][0-9a-f]," 16 sixteen)
string(REGEX REPLACE "(${sixteen})" "\\1\n    " stream "${stream}")
list(JOIN offsets ", " offsets_text)

file(WRITE "${OUTPUT}.tmp" "// Generated from ${INPUT} by keys/embed_key_material.cmake.
#include \"vyn/firmware/internal/key_material.h\"

namespace vyn::firmware {

const uint16_t kKeyStartOffsets[kKeyCount] = {${offsets_text}};

const unsigned char kKeyStream[kKeyStreamSize] = {
    ${stream}};

}  // namespace vyn::firmware
")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
