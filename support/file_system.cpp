#include "support/file_system.h"

#include <stdlib.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <vector>

namespace vyn::support {

std::string CreateUniqueDirectory(const std::string& prefix) {
  std::vector<char> name(prefix.begin(), prefix.end());
  for (int i = 0; i < 6; ++i) name.push_back('X');
  name.push_back('\0');
  if (mkdtemp(name.data()) == nullptr) return {};
  return std::string(name.data());
}

bool RemoveEmptyDirectory(const std::string& path) {
  return rmdir(path.c_str()) == 0 || errno == ENOENT;
}

bool RemoveFile(const std::string& path) { return unlink(path.c_str()) == 0 || errno == ENOENT; }

bool ReplaceSymbolicLink(const std::string& target, const std::string& link) {
  // The temporary name is unique per process and call, so that two threads
  // or two simulators re-pointing links in one directory do not collide.
  static std::atomic<unsigned> serial{0};
  char suffix[48];
  std::snprintf(suffix, sizeof suffix, ".tmp-%ld-%u", static_cast<long>(getpid()), serial++);
  const std::string temporary = link + suffix;
  unlink(temporary.c_str());
  if (symlink(target.c_str(), temporary.c_str()) != 0) return false;
  // rename() replaces the destination atomically, also when it is a link.
  if (rename(temporary.c_str(), link.c_str()) != 0) {
    unlink(temporary.c_str());
    return false;
  }
  return true;
}

}  // namespace vyn::support
