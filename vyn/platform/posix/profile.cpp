#include "vyn/platform/profile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "vyn/base/mutex.h"
#include "vyn/platform/internal/profile_testing.h"
#include "vyn/platform/profile_text.h"
#include "vyn/platform/scoped_descriptor.h"

namespace vyn::platform {
namespace {

constexpr int64_t kNanosecondsPerSecond = 1000000000;
constexpr size_t kCachedFiles = 4;
static_assert(kMaxProfileFileSize == 16777216, "DescribeProfileStatus states the limit");

int64_t Nanoseconds(const timespec& time) {
  return static_cast<int64_t>(time.tv_sec) * kNanosecondsPerSecond + time.tv_nsec;
}

int64_t RealTimeNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return Nanoseconds(now);
}

// What tells one state of a file from another.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  int64_t modified = 0;  // ns
  int64_t changed = 0;   // ns; moves on every write, even when a tool resets the modification time

  explicit FileIdentity(const struct stat& status)
      : device(status.st_dev),
        inode(status.st_ino),
        size(status.st_size),
        modified(Nanoseconds(status.st_mtim)),
        changed(Nanoseconds(status.st_ctim)) {}
  bool operator==(const FileIdentity&) const = default;
};

ProfileStatus Classify(const struct stat& status) {
  if (!S_ISREG(status.st_mode)) return ProfileStatus::kNotRegularFile;
  if (static_cast<uint64_t>(status.st_size) > kMaxProfileFileSize) return ProfileStatus::kTooLarge;
  return ProfileStatus::kOk;
}

struct Loaded {
  ProfileStatus status = ProfileStatus::kIoError;
  int error = 0;
  std::string content;
  struct stat file_status {};
  int64_t started = 0;  // when the read began
};

// Reads a regular file of at most kMaxProfileFileSize bytes. O_NONBLOCK
// keeps the open from waiting should the path have become a FIFO since it
// was checked; fstat then refuses it before anything is read.
Loaded LoadFile(const std::string& path) {
  Loaded loaded;
  loaded.started = RealTimeNow();
  ScopedDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (file.get() < 0) {
    loaded.error = errno;
    if (loaded.error == ENOENT || loaded.error == ENOTDIR) loaded.status = ProfileStatus::kMissing;
    return loaded;
  }
  if (fstat(file.get(), &loaded.file_status) != 0) {
    loaded.error = errno;
    return loaded;
  }
  loaded.status = Classify(loaded.file_status);
  if (loaded.status != ProfileStatus::kOk) return loaded;
  // The size may have changed since fstat: read up to one byte past the
  // limit, which tells a file that has grown beyond it.
  loaded.content.resize(static_cast<size_t>(loaded.file_status.st_size) + 1);
  size_t have = 0;
  for (;;) {
    if (have == loaded.content.size()) {
      if (have > kMaxProfileFileSize) {
        loaded.status = ProfileStatus::kTooLarge;
        loaded.content.clear();
        return loaded;
      }
      loaded.content.resize(std::min(have * 2, kMaxProfileFileSize + 1));
    }
    const ssize_t got =
        read(file.get(), loaded.content.data() + have, loaded.content.size() - have);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) {
      loaded.status = ProfileStatus::kIoError;
      loaded.error = errno;
      loaded.content.clear();
      return loaded;
    }
    if (got == 0) break;
    have += static_cast<size_t>(got);
  }
  loaded.content.resize(have);
  return loaded;
}

// Replaces the content of a regular file, creating it if need be.
ProfileOutcome StoreFile(const std::string& path, std::string_view content) {
  ProfileOutcome outcome;
  ScopedDescriptor file(
      open(path.c_str(), O_WRONLY | O_CREAT | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0666));
  struct stat status {};
  if (file.get() < 0 || fstat(file.get(), &status) != 0) {
    outcome.status = ProfileStatus::kIoError;
    outcome.error = errno;
    return outcome;
  }
  if (!S_ISREG(status.st_mode)) {
    outcome.status = ProfileStatus::kNotRegularFile;
    return outcome;
  }
  if (ftruncate(file.get(), 0) != 0) {
    outcome.status = ProfileStatus::kIoError;
    outcome.error = errno;
    return outcome;
  }
  size_t done = 0;
  while (done < content.size()) {
    const ssize_t put = write(file.get(), content.data() + done, content.size() - done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      outcome.status = ProfileStatus::kIoError;
      outcome.error = put < 0 ? errno : EIO;
      return outcome;
    }
    done += static_cast<size_t>(put);
  }
  if (!file.Close()) {
    outcome.status = ProfileStatus::kIoError;
    outcome.error = errno;
  }
  return outcome;
}

// The parsed copies of the last few files used, each with the identity of
// the file it was read from.
class ProfileCache {
 public:
  struct View {
    ProfileStatus status = ProfileStatus::kIoError;
    int error = 0;
    std::shared_ptr<const ProfileIndex> index;  // set when status is kOk
  };

  // The file's parsed content, read again only when the file has changed.
  View Get(const std::string& path) VYN_EXCLUDES(mutex_);
  void Forget(const std::string& path) VYN_EXCLUDES(mutex_);

  // Held across a whole write (read, edit, store), so that two writes by
  // this process never lose one another's entry.
  Mutex writing;

  std::atomic<size_t> loads{0};
  std::atomic<int64_t> settle_time{2 * kNanosecondsPerSecond};

 private:
  struct Slot {
    std::string path;
    FileIdentity identity;
    std::shared_ptr<const ProfileIndex> index;
    uint64_t last_use;
  };
  void Keep(const std::string& path, const FileIdentity& identity,
            std::shared_ptr<const ProfileIndex> index) VYN_EXCLUDES(mutex_);

  Mutex mutex_ VYN_ACQUIRED_AFTER(writing);
  std::vector<Slot> slots_ VYN_GUARDED_BY(mutex_);
  uint64_t uses_ VYN_GUARDED_BY(mutex_) = 0;
};

ProfileCache::View ProfileCache::Get(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) {
    const int error = errno;
    Forget(path);
    const bool missing = error == ENOENT || error == ENOTDIR;
    return {missing ? ProfileStatus::kMissing : ProfileStatus::kIoError, error, nullptr};
  }
  // Refused on what stat says, before anything is opened: opening a device
  // may have effects of its own (a serial port raises its control lines).
  if (const ProfileStatus refused = Classify(status); refused != ProfileStatus::kOk) {
    Forget(path);
    return {refused, 0, nullptr};
  }
  const FileIdentity identity(status);
  {
    MutexLock lock(&mutex_);
    for (Slot& slot : slots_) {
      if (slot.path == path && slot.identity == identity) {
        slot.last_use = ++uses_;
        return {ProfileStatus::kOk, 0, slot.index};
      }
    }
  }
  Loaded loaded = LoadFile(path);
  loads.fetch_add(1, std::memory_order_relaxed);
  if (loaded.status != ProfileStatus::kOk) {
    Forget(path);
    return {loaded.status, loaded.error, nullptr};
  }
  auto index = std::make_shared<const ProfileIndex>(std::move(loaded.content));
  // A copy is kept only when the file's last change lies well before the
  // read began: a later change within the same tick of the file system's
  // clock would leave every time unchanged, and perhaps the size as well.
  const FileIdentity read(loaded.file_status);
  const int64_t last_change = std::max(read.modified, read.changed);
  if (last_change + settle_time.load(std::memory_order_relaxed) < loaded.started) {
    Keep(path, read, index);
  } else {
    Forget(path);
  }
  return {ProfileStatus::kOk, 0, std::move(index)};
}

void ProfileCache::Keep(const std::string& path, const FileIdentity& identity,
                        std::shared_ptr<const ProfileIndex> index) {
  std::shared_ptr<const ProfileIndex> dropped;  // released after the lock
  MutexLock lock(&mutex_);
  auto slot = std::find_if(slots_.begin(), slots_.end(),
                           [&](const Slot& each) { return each.path == path; });
  if (slot == slots_.end()) {
    if (slots_.size() < kCachedFiles) {
      slots_.push_back({path, identity, nullptr, 0});
      slot = slots_.end() - 1;
    } else {
      slot = std::min_element(slots_.begin(), slots_.end(),
                              [](const Slot& a, const Slot& b) { return a.last_use < b.last_use; });
      slot->path = path;
    }
  }
  slot->identity = identity;
  dropped = std::exchange(slot->index, std::move(index));
  slot->last_use = ++uses_;
}

void ProfileCache::Forget(const std::string& path) {
  std::shared_ptr<const ProfileIndex> dropped;  // released after the lock
  MutexLock lock(&mutex_);
  const auto slot = std::find_if(slots_.begin(), slots_.end(),
                                 [&](const Slot& each) { return each.path == path; });
  if (slot == slots_.end()) return;
  dropped = std::move(slot->index);
  slots_.erase(slot);
}

ProfileCache& Cache() {
  static ProfileCache cache;
  return cache;
}

bool BreaksStructure(std::string_view text) {
  return text.find_first_of("\r\n") != std::string_view::npos ||
         text.find('\0') != std::string_view::npos;
}

ProfileCache::View GetOrReportNoMemory(const std::string& path) {
  try {
    return Cache().Get(path);
  } catch (const std::bad_alloc&) {
    return {ProfileStatus::kIoError, ENOMEM, nullptr};
  }
}

}  // namespace

size_t ReadProfileString(const std::string& section, const std::string& key,
                         const std::string& fallback, char* buffer, size_t size,
                         const std::string& path, ProfileOutcome* outcome) {
  ProfileOutcome local;
  ProfileOutcome& result = outcome != nullptr ? *outcome : local;
  result = {};
  if (buffer == nullptr || size == 0) return 0;
  const ProfileCache::View file = GetOrReportNoMemory(path);
  result.status = file.status;
  result.error = file.error;
  std::string_view value = fallback;
  if (file.index) {
    if (const auto found = file.index->Find(TrimName(section), TrimName(key))) {
      value = *found;
      result.found = true;
    }
  }
  const size_t copied = std::min(value.size(), size - 1);
  if (copied > 0) std::memcpy(buffer, value.data(), copied);  // an empty value may have no data
  buffer[copied] = '\0';
  result.value_length = value.size();
  result.truncated = copied < value.size();
  return copied;
}

bool WriteProfileString(const std::string& section, const std::string& key,
                        const std::string& value, const std::string& path,
                        ProfileOutcome* outcome) {
  ProfileOutcome local;
  ProfileOutcome& result = outcome != nullptr ? *outcome : local;
  result = {};
  const std::string_view name = TrimName(section);
  const std::string_view key_name = TrimName(key);
  if (name.empty() || key_name.empty() || BreaksStructure(section) || BreaksStructure(key) ||
      BreaksStructure(value) || name.find(']') != std::string_view::npos ||
      key_name.find('=') != std::string_view::npos || key_name.front() == '[' ||
      key_name.front() == ';') {
    result.status = ProfileStatus::kRefusedText;
    return false;
  }
  ProfileCache& cache = Cache();
  MutexLock writing(&cache.writing);
  try {
    const ProfileCache::View file = cache.Get(path);
    if (file.status != ProfileStatus::kOk && file.status != ProfileStatus::kMissing) {
      result.status = file.status;
      result.error = file.error;
      return false;
    }
    const std::string updated =
        WithEntry(file.index ? std::string_view(file.index->content()) : std::string_view(), name,
                  key_name, value);
    if (updated.size() > kMaxProfileFileSize) {
      result.status = ProfileStatus::kTooLarge;
      return false;
    }
    result = StoreFile(path, updated);
  } catch (const std::bad_alloc&) {
    result.status = ProfileStatus::kIoError;
    result.error = ENOMEM;
  }
  // The next read takes the file as it is now, whatever became of the write.
  cache.Forget(path);
  return result.status == ProfileStatus::kOk;
}

const char* DescribeProfileStatus(ProfileStatus status) {
  switch (status) {
    case ProfileStatus::kOk:
      return "done";
    case ProfileStatus::kMissing:
      return "the file does not exist";
    case ProfileStatus::kNotRegularFile:
      return "not a regular file (a FIFO, device, directory or socket)";
    case ProfileStatus::kTooLarge:
      return "larger than the limit of 16 MiB (16777216 bytes) for INI files";
    case ProfileStatus::kRefusedText:
      return "a name or the value would break the file's structure";
    case ProfileStatus::kIoError:
      return "input/output error";
  }
  return "unknown";
}

}  // namespace vyn::platform

namespace vyn::seams {

size_t ProfileFileLoads() { return platform::Cache().loads.load(std::memory_order_relaxed); }

void SetProfileSettleTime(uint32_t milliseconds) {
  platform::Cache().settle_time.store(int64_t{milliseconds} * 1000000, std::memory_order_relaxed);
}

}  // namespace vyn::seams
