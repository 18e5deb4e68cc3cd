#include "vyn/platform/process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace vyn::platform {

bool GetCurrentDirectory(std::string* directory) {
  if (directory == nullptr) return false;
  // getcwd with a null buffer allocates exactly what the path needs, so there
  // is no length limit to respect.
  std::unique_ptr<char, decltype(&free)> path(getcwd(nullptr, 0), &free);
  if (!path) return false;
  *directory = path.get();
  return true;
}

bool GetProcessArguments(std::vector<std::string>* arguments) {
  if (arguments == nullptr) return false;
  const int fd = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  std::string raw;
  char chunk[4096];
  for (;;) {
    const ssize_t got = read(fd, chunk, sizeof chunk);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    raw.append(chunk, static_cast<size_t>(got));
  }
  close(fd);
  if (raw.empty()) return false;
  // Each argument ends with a NUL byte, the last one included.
  std::vector<std::string> split;
  size_t start = 0;
  while (start < raw.size()) {
    size_t end = raw.find('\0', start);
    if (end == std::string::npos) end = raw.size();
    split.emplace_back(raw, start, end - start);
    start = end + 1;
  }
  *arguments = std::move(split);
  return true;
}

bool CreateDirectory(const std::string& path) {
  if (mkdir(path.c_str(), 0777) == 0) return true;
  struct stat info {};
  return errno == EEXIST && stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

}  // namespace vyn::platform
