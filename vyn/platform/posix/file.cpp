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
    : descriptor_(std::exchange(other.descriptor_, -1)), last_error_(other.last_error_) {}

File& File::operator=(File&& other) noexcept {
  if (this != &other) {
    Close();
    descriptor_ = std::exchange(other.descriptor_, -1);
    last_error_ = other.last_error_;
  }
  return *this;
}

FileCreateResult File::CreateNew(const std::string& path) {
  Close();
  descriptor_ = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (descriptor_ >= 0) return FileCreateResult::kCreated;
  last_error_ = errno;
  return last_error_ == EEXIST ? FileCreateResult::kExists : FileCreateResult::kFailed;
}

bool File::OpenForWriting(const std::string& path) {
  Close();
  descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (descriptor_ < 0) last_error_ = errno;
  return descriptor_ >= 0;
}

bool File::WriteAll(const void* data, size_t size, size_t* written) {
  const auto* bytes = static_cast<const char*>(data);
  size_t done = 0;
  bool ok = descriptor_ >= 0;
  if (!ok) last_error_ = EBADF;
  while (ok && done < size) {
    const ssize_t now = write(descriptor_, bytes + done, size - done);
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
  if (descriptor_ < 0) return false;
  if (fdatasync(descriptor_) == 0) return true;
  last_error_ = errno;
  return false;
}

bool File::Truncate(long long length) {
  if (descriptor_ < 0) return false;
  while (ftruncate(descriptor_, static_cast<off_t>(length)) != 0) {
    if (errno == EINTR) continue;
    last_error_ = errno;
    return false;
  }
  // Further writes continue at the new end, not behind a hole.
  if (lseek(descriptor_, static_cast<off_t>(length), SEEK_SET) < 0) {
    last_error_ = errno;
    return false;
  }
  return true;
}

void File::Close() {
  if (descriptor_ < 0) return;
  // close() releases the descriptor even when it reports an error, and
  // retrying after EINTR could close a descriptor another thread just got.
  close(descriptor_);
  descriptor_ = -1;
}

std::string File::GetLastErrorText() const { return SystemErrorText(last_error_); }

bool RemoveFile(const std::string& path) { return unlink(path.c_str()) == 0; }

}  // namespace vyn::platform
