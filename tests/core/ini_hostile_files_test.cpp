// CVYNIniManager against files that are not what an INI file should be, and
// against files that change under it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <string>

#include "tests/support/temp_dir.h"
#include "vyn/core/ini_manager.h"
#include "vyn/core/status.h"
#include "vyn/platform/internal/profile_testing.h"

namespace {

using vyn::test::ReadFile;
using vyn::test::TempDir;
using vyn::test::WriteFile;

constexpr off_t kLimit = off_t{16} << 20;

class IniHostileFilesTest : public ::testing::Test {
 protected:
  ~IniHostileFilesTest() override { vyn::testing::SetProfileSettleTime(2000); }

  int32_t Get(const std::string& section, const std::string& key, const std::string& path,
              std::string* value) {
    return ini_.GetEntry(section, key, value, path);
  }

  // A file of `size` bytes that starts with `head` and ends in zero bytes
  // (sparse, so it costs no disk space).
  static void WriteSparse(const std::string& path, const std::string& head, off_t size) {
    WriteFile(path, head);
    ASSERT_EQ(truncate(path.c_str(), size), 0);
  }

  TempDir dir_;
  CVYNIniManager ini_;
};

TEST_F(IniHostileFilesTest, RefusesWhatIsNoRegularFileWithoutWaiting) {
  const std::string fifo = dir_.File("fifo.ini");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string zero = dir_.File("zero.ini");
  ASSERT_EQ(symlink("/dev/zero", zero.c_str()), 0);

  testing::internal::CaptureStderr();
  auto reads = std::async(std::launch::async, [&] {
    std::string value = "<untouched>";
    int32_t statuses[] = {Get("S", "k", fifo, &value), Get("S", "k", zero, &value),
                          Get("S", "k", dir_.path(), &value)};
    for (const int32_t status : statuses) EXPECT_EQ(status, VYN_STATUS_NOT_FOUND);
    EXPECT_EQ(value, "<untouched>");
    for (const std::string& path : {fifo, zero, dir_.path()}) {
      EXPECT_EQ(ini_.SetEntry("S", "k", "v", path), VYN_STATUS_UNSPECIFIC_ERROR) << path;
    }
  });
  if (reads.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
    ADD_FAILURE() << "a read or write of a FIFO blocks";
    // A writer that comes and goes ends a blocked read, so the test can end.
    for (int i = 0;
         i < 100 && reads.wait_for(std::chrono::milliseconds(100)) != std::future_status::ready;
         ++i) {
      const int writer = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
      if (writer >= 0) close(writer);
    }
  }
  reads.get();
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_NE(told.find("The INI file " + fifo + " is not read: not a regular file"),
            std::string::npos)
      << told;
  EXPECT_NE(told.find("The INI file " + zero + " is not read"), std::string::npos) << told;
  EXPECT_NE(told.find("The INI file " + fifo + " is not written: not a regular file"),
            std::string::npos)
      << told;
  struct stat status {};
  ASSERT_EQ(stat(fifo.c_str(), &status), 0);
  EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST_F(IniHostileFilesTest, KeepsFilesWithinSixteenMebibytes) {
  const std::string path = dir_.File("large.ini");
  std::string value;
  WriteSparse(path, "[S]\nk=v\n", kLimit);  // just at the limit: read
  ASSERT_EQ(Get("S", "k", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, "v");
  // A write that would take it past the limit is refused and changes nothing.
  testing::internal::CaptureStderr();
  EXPECT_EQ(ini_.SetEntry("S", "other", "x", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_NE(testing::internal::GetCapturedStderr().find("16 MiB"), std::string::npos);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_size, kLimit);

  WriteSparse(path, "[S]\nk=v\n", kLimit + 1);  // one byte more: refused
  value = "<untouched>";
  testing::internal::CaptureStderr();
  EXPECT_EQ(Get("S", "k", path, &value), VYN_STATUS_NOT_FOUND);
  EXPECT_EQ(ini_.SetEntry("S", "k", "w", path), VYN_STATUS_UNSPECIFIC_ERROR);
  const std::string told = testing::internal::GetCapturedStderr();
  EXPECT_EQ(value, "<untouched>");
  EXPECT_NE(told.find("The INI file " + path + " is not read: larger than the limit of 16 MiB"),
            std::string::npos)
      << told;
  EXPECT_NE(told.find("is not written: larger than the limit"), std::string::npos) << told;
}

TEST_F(IniHostileFilesTest, SkipsAByteOrderMarkAndKeepsItOnWriting) {
  const std::string path = dir_.File("bom.ini");
  WriteFile(path, "\xEF\xBB\xBF[First]\r\nk=1\r\n");
  std::string value;
  ASSERT_EQ(Get("first", "K", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, "1");
  ASSERT_EQ(ini_.SetEntry("First", "k2", "2", path), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(path), "\xEF\xBB\xBF[First]\r\nk=1\r\nk2=2\r\n");

  // A file holding nothing but the mark gets its first section right after it.
  WriteFile(path, "\xEF\xBB\xBF");
  ASSERT_EQ(ini_.SetEntry("S", "k", "v", path), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(path), "\xEF\xBB\xBF[S]\nk=v\n");
  ASSERT_EQ(Get("S", "k", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, "v");
}

TEST_F(IniHostileFilesTest, SaysSoWhenAValueIsCut) {
  const std::string path = dir_.File("long.ini");
  WriteFile(path,
            "[S]\nlong=" + std::string(20000, 'x') + "\nfits=" + std::string(10239, 'y') + "\n");
  std::string value;
  testing::internal::CaptureStderr();
  ASSERT_EQ(Get("S", "fits", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value.size(), 10239u);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");  // nothing cut, nothing said

  testing::internal::CaptureStderr();
  ASSERT_EQ(Get("S", "long", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, std::string(10239, 'x'));
  EXPECT_NE(testing::internal::GetCapturedStderr().find(
                "The value of long in section S of " + path +
                " has 20000 characters; only the first 10239 are returned."),
            std::string::npos);
}

TEST_F(IniHostileFilesTest, SeesChangesByThisAndOtherWriters) {
  const std::string path = dir_.File("changing.ini");
  std::string value;
  // Just changed and rewritten at once with the same size: the copy of a
  // file this fresh is never trusted, so the new value is seen.
  WriteFile(path, "[S]\nk=1\n");
  ASSERT_EQ(Get("S", "k", path, &value), VYN_STATUS_SUCCESS);
  WriteFile(path, "[S]\nk=2\n");
  ASSERT_EQ(Get("S", "k", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, "2");

  // Copies trusted at once: what tells a change is the file's identity.
  vyn::testing::SetProfileSettleTime(0);
  ASSERT_EQ(ini_.SetEntry("S", "k", "3", path), VYN_STATUS_SUCCESS);  // this process
  ASSERT_EQ(Get("S", "k", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, "3");
  WriteFile(path, "[S]\nk=four\n");  // another writer, another size
  ASSERT_EQ(Get("S", "k", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, "four");
  const std::string replacement = dir_.File("replacement.ini");
  WriteFile(replacement, "[S]\nk=five\n");  // same size, another inode
  ASSERT_EQ(rename(replacement.c_str(), path.c_str()), 0);
  ASSERT_EQ(Get("S", "k", path, &value), VYN_STATUS_SUCCESS);
  EXPECT_EQ(value, "five");
  ASSERT_EQ(unlink(path.c_str()), 0);
  value = "<untouched>";
  EXPECT_EQ(Get("S", "k", path, &value), VYN_STATUS_NOT_FOUND);
  EXPECT_EQ(value, "<untouched>");
}

TEST_F(IniHostileFilesTest, ReadsAnUnchangedFileOnceForManyLookups) {
  vyn::testing::SetProfileSettleTime(0);
  const std::string path = dir_.File("many.ini");
  std::string content;
  for (int section = 0; section < 100; ++section) {
    content += "[Section" + std::to_string(section) + "]\n";
    for (int key = 0; key < 300; ++key) {
      content += "Key" + std::to_string(key) + "=" + std::to_string(section * 1000 + key) + "\n";
    }
  }
  WriteFile(path, content);
  const size_t before = vyn::testing::ProfileFileLoads();
  std::string value;
  for (int i = 0; i < 2000; ++i) {
    const int section = i % 100;
    const int key = (i * 7) % 300;
    ASSERT_EQ(Get("section" + std::to_string(section), "KEY" + std::to_string(key), path, &value),
              VYN_STATUS_SUCCESS);
    ASSERT_EQ(value, std::to_string(section * 1000 + key));
  }
  EXPECT_EQ(vyn::testing::ProfileFileLoads() - before, 1u);
}

}  // namespace
