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
  if (symlink(target.c_str(), temporary.c_str()) != 0) return false;
  // rename() replaces the destination atomically, also when it is a link.
  if (rename(temporary.c_str(), link.c_str()) != 0) {
    unlink(temporary.c_str());
    return false;
  }
  return true;
}

bool CreateSymbolicLink(const std::string& target, const std::string& link) {
  return symlink(target.c_str(), link.c_str()) == 0;
}

bool IsSymbolicLinkTo(const std::string& link, const std::string& target) {
  std::vector<char> content(target.size() + 2);
  const ssize_t length = readlink(link.c_str(), content.data(), content.size());
  return length >= 0 && static_cast<size_t>(length) == target.size() &&
         target.compare(0, target.size(), content.data(), target.size()) == 0;
}

bool RemoveSymbolicLinkTo(const std::string& link, const std::string& target) {
  // A replacement between the check and unlink() would need someone to
  // swap the link within microseconds in a directory we use; the check
  // keeps the common cases (a file or another simulator's link) safe.
  return IsSymbolicLinkTo(link, target) && unlink(link.c_str()) == 0;
}

bool RepointSymbolicLink(const std::string& link, const std::string& old_target,
                         const std::string& new_target) {
  return IsSymbolicLinkTo(link, old_target) && ReplaceSymbolicLink(new_target, link);
}

}  // namespace vyn::support
