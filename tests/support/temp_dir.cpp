#include "tests/support/temp_dir.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace vyn::test {

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "vyn-test-XXXXXX").string();
  if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = pattern;
}

TempDir::~TempDir() {
  std::error_code ignored;
  // Read-only leftovers of a test must not keep the directory alive.
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(path_, ignored);
}

ScopedCurrentDirectory::ScopedCurrentDirectory(const std::string& directory)
    : previous_(std::filesystem::current_path().string()) {
  std::filesystem::current_path(directory);
}

ScopedCurrentDirectory::~ScopedCurrentDirectory() {
  std::error_code ignored;
  std::filesystem::current_path(previous_, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void WriteFile(const std::string& path, const std::string& content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << content;
}

}  // namespace vyn::test
