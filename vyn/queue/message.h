// CVYNMessage: the unit a message queue carries between threads, a message
// type chosen by the sender and an optional block of bytes that the message
// owns. Copies are deep: every copy owns its own bytes.
//
// States: without buffer (GetBuffer() is null, size 0), or with a buffer of
// exactly GetBufferSize() bytes (a buffer of 0 bytes may exist).
//
// Ownership: the message owns its buffer; GetBuffer lends it out. Data handed
// to the constructor or to SetBuffer stays the caller's; it is copied.
// Allocation failures never throw: the constructors leave the message without
// buffer, SetBuffer and SetBufferSize report VYN_STATUS_NO_MEMORY.
// Thread-safety: none of its own. A message being changed belongs to one
// thread; the queue copies messages in and out under its own lock.
#pragma once

#include <cstdint>
#include <memory>

#include "vyn/base/export.h"

class VYN_EXPORT CVYNMessage {
 public:
  // Type 0, no buffer.
  CVYNMessage();
  // Copies `size` bytes of `data` when data is present; absent data (or a
  // negative size) gives a message without buffer.
  CVYNMessage(uint32_t message_type, unsigned char* data, int32_t size);
  // Reads the other's bytes through its GetBuffer, so that a derived message
  // is copied as it presents itself.
  CVYNMessage(const CVYNMessage& other);
  // Takes over the other's buffer; the other keeps its type and is left
  // without buffer. No bytes are copied and nothing can fail.
  CVYNMessage(CVYNMessage&& other) noexcept;
  virtual ~CVYNMessage();

  // Copies the type, then the buffer as SetBuffer would; a source without
  // buffer leaves this message without buffer. Self-assignment does nothing.
  CVYNMessage& operator=(const CVYNMessage& other);
  // As the move constructor; this message's old buffer is released.
  CVYNMessage& operator=(CVYNMessage&& other) noexcept;

  // Changes the type; the buffer stays. 0.
  int32_t SetMessageType(uint32_t message_type);
  // The sender's type (vyn/core/message_types.h or the application's own).
  uint32_t GetMessageType() const;
  // Bytes in the buffer; 0 without buffer.
  int32_t GetBufferSize() const;

  // The bytes, or null without buffer; the message keeps ownership.
  virtual unsigned char* GetBuffer() const;
  // Replaces the buffer with a copy of `size` bytes of `data`. Absent data:
  // VYN_STATUS_SUCCESS and nothing changes. A negative size:
  // VYN_STATUS_INVALID_PARAMETER, and the message is left without buffer, as
  // it is on VYN_STATUS_NO_MEMORY. `data` may point into this message's own
  // buffer.
  virtual int32_t SetBuffer(unsigned char* data, int32_t size);

  // Resizes the buffer keeping its leading bytes; bytes beyond the old size
  // are not initialised. Returns the new size, VYN_STATUS_INVALID_PARAMETER
  // for a negative size or VYN_STATUS_NO_MEMORY; the message is unchanged on
  // both failures. The current size is returned at once.
  int32_t SetBufferSize(int32_t size);

 private:
  // Replaces the buffer by a new one of `size` bytes, filled from `data`
  // when data is present. The new block is in place before the old one is
  // released, so `data` may lie in the old buffer. On failure the message is
  // left without buffer.
  int32_t CreateBuffer(const unsigned char* data, int32_t size);
  int32_t FreeBuffer();

  uint32_t message_type_ = 0;
  int32_t buffer_size_ = 0;
  std::unique_ptr<unsigned char[]> buffer_;
};
