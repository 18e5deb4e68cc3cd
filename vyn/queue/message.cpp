#include "vyn/queue/message.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <utility>

#include "vyn/core/status.h"

namespace {

// Blocks come from the nothrow form of new[]: a request the system cannot
// serve must become VYN_STATUS_NO_MEMORY, never an exception out of the
// library. A zero-byte request still yields a block (a buffer of size 0).
std::unique_ptr<unsigned char[]> AllocateBytes(int32_t size) {
  return std::unique_ptr<unsigned char[]>(
      new (std::nothrow) unsigned char[static_cast<size_t>(size)]);
}

}  // namespace

CVYNMessage::CVYNMessage() = default;

CVYNMessage::CVYNMessage(uint32_t message_type, unsigned char* data, int32_t size)
    : message_type_(message_type) {
  if (data != nullptr && size >= 0) CreateBuffer(data, size);
}

CVYNMessage::CVYNMessage(const CVYNMessage& other) : message_type_(other.message_type_) {
  const unsigned char* data = other.GetBuffer();
  if (data != nullptr) CreateBuffer(data, other.GetBufferSize());
}

CVYNMessage::CVYNMessage(CVYNMessage&& other) noexcept
    : message_type_(other.message_type_),
      buffer_size_(std::exchange(other.buffer_size_, 0)),
      buffer_(std::move(other.buffer_)) {}

CVYNMessage::~CVYNMessage() = default;

CVYNMessage& CVYNMessage::operator=(const CVYNMessage& other) {
  if (this == &other) return *this;
  message_type_ = other.message_type_;
  unsigned char* data = other.GetBuffer();
  if (data != nullptr) {
    SetBuffer(data, other.GetBufferSize());
  } else {
    FreeBuffer();
  }
  return *this;
}

CVYNMessage& CVYNMessage::operator=(CVYNMessage&& other) noexcept {
  if (this == &other) return *this;
  message_type_ = other.message_type_;
  buffer_ = std::move(other.buffer_);
  buffer_size_ = std::exchange(other.buffer_size_, 0);
  return *this;
}

int32_t CVYNMessage::SetMessageType(uint32_t message_type) {
  message_type_ = message_type;
  return VYN_STATUS_SUCCESS;
}

uint32_t CVYNMessage::GetMessageType() const { return message_type_; }

int32_t CVYNMessage::GetBufferSize() const { return buffer_size_; }

unsigned char* CVYNMessage::GetBuffer() const { return buffer_.get(); }

int32_t CVYNMessage::SetBuffer(unsigned char* data, int32_t size) {
  if (data == nullptr) return VYN_STATUS_SUCCESS;
  if (size < 0) {
    FreeBuffer();
    return VYN_STATUS_INVALID_PARAMETER;
  }
  return CreateBuffer(data, size);
}

int32_t CVYNMessage::SetBufferSize(int32_t size) {
  if (size == buffer_size_) return buffer_size_;
  if (size < 0) return VYN_STATUS_INVALID_PARAMETER;
  std::unique_ptr<unsigned char[]> resized = AllocateBytes(size);
  if (!resized) return VYN_STATUS_NO_MEMORY;
  if (buffer_)
    std::memcpy(resized.get(), buffer_.get(), static_cast<size_t>(std::min(buffer_size_, size)));
  buffer_ = std::move(resized);
  buffer_size_ = size;
  return size;
}

int32_t CVYNMessage::CreateBuffer(const unsigned char* data, int32_t size) {
  std::unique_ptr<unsigned char[]> fresh = AllocateBytes(size);
  if (!fresh) {
    FreeBuffer();
    return VYN_STATUS_NO_MEMORY;
  }
  if (data != nullptr && size > 0) std::memcpy(fresh.get(), data, static_cast<size_t>(size));
  buffer_ = std::move(fresh);
  buffer_size_ = size;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMessage::FreeBuffer() {
  buffer_.reset();
  buffer_size_ = 0;
  return VYN_STATUS_SUCCESS;
}
