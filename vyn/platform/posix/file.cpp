#include "vyn/platform/file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "vyn/platform/system_error.h"

namespace vyn::platform {

File::~File() { Close(); }

File::File(File&& other) noexcept
    : descriptor_(std::move(other.descriptor_)), last_error_(other.last_error_) {}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    Close();
    descriptor_ = std::move(other.descriptor_);
    last_error_ = other.last_error_;
  }
  return *this;
}

FileCreateResult File::CreateNew(const std::string& path) {
  Close();
  descriptor_.Reset(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
  if (descriptor_.IsValid()) return FileCreateResult::kCreated;
  last_error_ = errno;
  return last_error_ == EEXIST ? FileCreateResult::kExists : FileCreateResult::kFailed;
}

bool File::OpenForWriting(const std::string& path) {
  Close();
  descriptor_.Reset(open(path.c_str(), O_WRONLY | O_CLOEXEC));
  if (!descriptor_.IsValid()) last_error_ = errno;
  return descriptor_.IsValid();
}

bool File::WriteAll(const void* data, size_t size, size_t* written) {
  const auto* bytes = static_cast<const char*>(data);
  size_t done = 0;
  bool ok = descriptor_.IsValid();
  if (!ok) last_error_ = EBADF;
  while (ok && done < size) {
    const ssize_t now = write(descriptor_.get(), bytes + done, size - done);
    if (now > 0) {
      done += static_cast<size_t>(now);
    } else if (now < 0 && errno == EINTR) {
      continue;  // a signal arrived before anything was written: just go on
    } else {
      // A write of 0 bytes for a non-empty request would repeat for ever.
      last_error_ = now == 0 ? EIO : errno;
      ok = false;
    }
  }
  if (written != nullptr) *written = done;
  return ok;
}

bool File::DataSync() {
  if (!descriptor_.IsValid()) return false;
  if (fdatasync(descriptor_.get()) == 0) return true;
  last_error_ = errno;
  return false;
}

bool File::Truncate(long long length) {
  if (!descriptor_.IsValid()) return false;
  while (ftruncate(descriptor_.get(), static_cast<off_t>(length)) != 0) {
    if (errno == EINTR) continue;
    last_error_ = errno;
    return false;
  }
  // Further writes continue at the new end, not behind a hole.
  if (lseek(descriptor_.get(), static_cast<off_t>(length), SEEK_SET) < 0) {
    last_error_ = errno;
    return false;
  }
  return true;
}

void File::Close() {
  // close() releases the descriptor even when it reports an error, and
  // retrying after EINTR could close a descriptor another thread just got.
  descriptor_.Reset();
}

std::string File::GetLastErrorText() const { return SystemErrorText(last_error_); }

bool RemoveFile(const std::string& path) { return unlink(path.c_str()) == 0; }

}  // namespace vyn::platform
