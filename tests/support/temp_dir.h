// A fresh directory below the system's temporary directory, removed with
// everything in it when the object goes away.
#pragma once

#include <string>

namespace vyn::test {

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// Makes a directory the current one for its lifetime.
class ScopedCurrentDirectory {
 public:
  explicit ScopedCurrentDirectory(const std::string& directory);
  ~ScopedCurrentDirectory();
  ScopedCurrentDirectory(const ScopedCurrentDirectory&) = delete;
  ScopedCurrentDirectory& operator=(const ScopedCurrentDirectory&) = delete;

 private:
  std::string previous_;
};

std::string ReadFile(const std::string& path);
void WriteFile(const std::string& path, const std::string& content);

}  // namespace vyn::test
