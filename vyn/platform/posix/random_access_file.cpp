#include "vyn/platform/random_access_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <utility>

namespace vyn::platform {
namespace {

int FlagsOf(FileOpenMode mode) {
  switch (mode) {
    case FileOpenMode::kRead:
      return O_RDONLY;
    case FileOpenMode::kWrite:
      return O_WRONLY;
    case FileOpenMode::kReadWrite:
      return O_RDWR;
    case FileOpenMode::kCreate:
      return O_WRONLY | O_CREAT | O_TRUNC;
    case FileOpenMode::kCreateKeep:
      return O_WRONLY | O_CREAT;
    case FileOpenMode::kCreateReadWrite:
      return O_RDWR | O_CREAT | O_TRUNC;
  }
  return O_RDONLY;
}

// One transfer of at most this size: read() and write() move no more at once.
constexpr size_t kLargestTransfer = 0x7FFFF000;

}  // namespace

RandomAccessFile::~RandomAccessFile() { Close(); }

bool RandomAccessFile::Open(const std::string& path, FileOpenMode mode) {
  Close();
  // O_NONBLOCK only for the open itself: a FIFO would wait for its other end.
  ScopedDescriptor opened(open(path.c_str(), FlagsOf(mode) | O_CLOEXEC | O_NONBLOCK, 0666));
  const int descriptor = opened.get();
  if (descriptor < 0) {
    last_error_ = errno;
    return false;
  }
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
    last_error_ = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags < 0 || fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) != 0) {
    last_error_ = errno;
    return false;
  }
  descriptor_ = std::move(opened);
  last_error_ = 0;
  return true;
}

void RandomAccessFile::Close() { descriptor_.Reset(); }

int64_t RandomAccessFile::Read(void* buffer, size_t size) {
  auto* at = static_cast<unsigned char*>(buffer);
  size_t done = 0;
  while (done < size) {
    const ssize_t got = read(descriptor_.get(), at + done, std::min(size - done, kLargestTransfer));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      last_error_ = errno;
      return -1;
    }
    if (got == 0) break;
    done += static_cast<size_t>(got);
  }
  return static_cast<int64_t>(done);
}

bool RandomAccessFile::WriteAll(const void* data, size_t size) {
  const auto* at = static_cast<const unsigned char*>(data);
  size_t done = 0;
  while (done < size) {
    const ssize_t put =
        write(descriptor_.get(), at + done, std::min(size - done, kLargestTransfer));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      last_error_ = put < 0 ? errno : EIO;
      return false;
    }
    done += static_cast<size_t>(put);
  }
  return true;
}

int64_t RandomAccessFile::Seek(int64_t offset, SeekOrigin origin) {
  const int whence = origin == SeekOrigin::kBegin     ? SEEK_SET
                     : origin == SeekOrigin::kCurrent ? SEEK_CUR
                                                      : SEEK_END;
  const off_t position = lseek(descriptor_.get(), static_cast<off_t>(offset), whence);
  if (position < 0) last_error_ = errno;
  return position;
}

int64_t RandomAccessFile::Position() const {
  const off_t position = lseek(descriptor_.get(), 0, SEEK_CUR);
  if (position < 0) last_error_ = errno;
  return position;
}

int64_t RandomAccessFile::Length() const {
  struct stat status {};
  if (fstat(descriptor_.get(), &status) != 0) {
    last_error_ = errno;
    return -1;
  }
  return status.st_size;
}

}  // namespace vyn::platform
