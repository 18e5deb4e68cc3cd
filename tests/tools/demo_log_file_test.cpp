// vyn demo names the CSV file its own run wrote: not another run's newer
// file in the same folder, and none at all (with a failing exit) when its
// log could write nothing.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <thread>

#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

namespace vyn::test {
namespace {

// The path after "CSV file: ", or empty.
std::string NamedFile(const std::string& output) {
  const std::string label = "CSV file: ";
  const size_t at = output.find(label);
  if (at == std::string::npos) return "";
  const size_t begin = at + label.size();
  return output.substr(begin, output.find('\n', begin) - begin);
}

// `vyn demo` in `folder`, where its log writes.
ChildResult DemoIn(const std::string& folder) {
  return RunChild({"/bin/sh", "-c", "cd '" + folder + "' && exec '" VYN_TOOL "' demo --pause 0"},
                  180);
}

TEST(DemoLogFile, EachDemoNamesItsOwnFileAndFailsWithoutOne) {
  TempDir shared;
  TempDir broken;
  // Logs/ taken by a regular file: the reason, no file named, a failure.
  WriteFile(broken.File("Logs"), "not a folder");
  // All three at once: two share a folder, one cannot write.
  ChildResult first;
  ChildResult other;
  ChildResult failed;
  std::thread second([&] { other = DemoIn(shared.path()); });
  std::thread third([&] { failed = DemoIn(broken.path()); });
  first = DemoIn(shared.path());
  second.join();
  third.join();
  ASSERT_EQ(first.exit_code, 0) << first.output;
  ASSERT_EQ(other.exit_code, 0) << other.output;
  const std::string mine = NamedFile(first.output);
  const std::string theirs = NamedFile(other.output);
  EXPECT_NE(mine, theirs);
  for (const std::string& file : {mine, theirs}) {
    EXPECT_EQ(std::filesystem::path(file).parent_path(),
              std::filesystem::canonical(shared.path()) / "Logs");
    EXPECT_GT(std::filesystem::file_size(file), 100u) << file;
  }
  EXPECT_NE(failed.exit_code, 0);
  EXPECT_EQ(NamedFile(failed.output), "");
  EXPECT_NE(failed.output.find("/Logs/VYN System Log "), std::string::npos) << failed.output;
  EXPECT_NE(failed.output.find(": Not a directory"), std::string::npos);
  EXPECT_NE(failed.output.find("the system log wrote no CSV file"), std::string::npos);
}

}  // namespace
}  // namespace vyn::test
