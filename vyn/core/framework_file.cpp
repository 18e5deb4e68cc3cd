#include "vyn/core/framework_file.h"

#include "vyn/platform/random_access_file.h"

namespace {

using vyn::platform::FileOpenMode;

FileOpenMode ModeOf(uint32_t flags) {
  const bool create = (flags & CFile::modeCreate) != 0;
  const bool keep = (flags & CFile::modeNoTruncate) != 0;
  if ((flags & CFile::modeReadWrite) != 0) {
    if (!create) return FileOpenMode::kReadWrite;
    return keep ? FileOpenMode::kCreateKeep : FileOpenMode::kCreateReadWrite;
  }
  if (create) return keep ? FileOpenMode::kCreateKeep : FileOpenMode::kCreate;
  return (flags & CFile::modeWrite) != 0 ? FileOpenMode::kWrite : FileOpenMode::kRead;
}

}  // namespace

CFile::CFile() = default;

CFile::~CFile() = default;

bool CFile::Open(std::string file_name, uint32_t open_flags, int* error) {
  Close();
  auto file = std::make_unique<vyn::platform::RandomAccessFile>();
  const bool opened = file->Open(file_name, ModeOf(open_flags));
  if (error != nullptr) *error = file->last_error();
  if (opened) file_ = std::move(file);
  return opened;
}

void CFile::Close() { file_.reset(); }

bool CFile::IsOpen() const { return file_ != nullptr; }

uint32_t CFile::Read(void* buffer, uint32_t count) {
  if (file_ == nullptr || buffer == nullptr) return 0;
  const int64_t got = file_->Read(buffer, count);
  return got < 0 ? 0 : static_cast<uint32_t>(got);
}

bool CFile::Write(const void* buffer, uint32_t count) {
  if (file_ == nullptr || (buffer == nullptr && count > 0)) return false;
  return file_->WriteAll(buffer, count);
}

int64_t CFile::Seek(int64_t offset, uint32_t from) {
  if (file_ == nullptr || from > end) return -1;
  const vyn::platform::SeekOrigin origin = from == begin     ? vyn::platform::SeekOrigin::kBegin
                                           : from == current ? vyn::platform::SeekOrigin::kCurrent
                                                             : vyn::platform::SeekOrigin::kEnd;
  return file_->Seek(offset, origin);
}

int64_t CFile::GetPosition() const { return file_ == nullptr ? -1 : file_->Position(); }

int64_t CFile::GetLength() const { return file_ == nullptr ? -1 : file_->Length(); }
