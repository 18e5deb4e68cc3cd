// CVYNIniManager: the reading and writing rules, and files that are not what an
// INI file should be or that change under it.
#include "vyn/core/ini_manager.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>

#include "tests/support/temp_dir.h"
#include "vyn/core/status.h"
#include "vyn/platform/internal/profile_testing.h"

namespace {

using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;
using vyn::test::ReadFile;
using vyn::test::TempDir;
using vyn::test::WriteFile;

constexpr off_t kLimit = off_t{16} << 20;

class IniManagerTest : public ::testing::Test {
 protected:
  ~IniManagerTest() override { vyn::seams::SetProfileSettleTime(2000); }

  // The value, or "<untouched>" when the manager left it alone.
  std::string Get(const std::string& section, const std::string& key, const std::string& path,
                  int32_t* status = nullptr) {
    std::string value = "<untouched>";
    const int32_t result = ini_.GetEntry(section, key, &value, path);
    if (status != nullptr) *status = result;
    return value;
  }
  bool Refused(const std::string& path, const std::string& value = "v") {
    return ini_.SetEntry("S", "k", value, path) == VYN_STATUS_UNSPECIFIC_ERROR;
  }

  TempDir dir_;
  CVYNIniManager ini_;
};

TEST_F(IniManagerTest, ReadsValuesWithThePlatformRules) {
  const std::string path = dir_.File("a.ini");
  WriteFile(path,
            "; comment\r\n[Dump]\r\nDumpType=5\r\n  Spaced Key  =   padded value   \r\n"
            "Quoted=\"  inner  \"\r\nSingle='x'\r\nUnbalanced=\"x\r\nno equals sign here\r\n"
            "Empty=\r\nTwice=first\r\nTwice=second\r\n"
            "[dump]\r\nLater=from repeated section\r\nTwice=third\r\n");
  EXPECT_EQ(Get("DUMP", "dumptype", path), "5");
  EXPECT_EQ(Get("Dump", "Spaced Key", path), "padded value");
  EXPECT_EQ(Get("Dump", "Quoted", path), "  inner  ");
  EXPECT_EQ(Get("Dump", "Single", path), "x");
  EXPECT_EQ(Get("Dump", "Unbalanced", path), "\"x");
  EXPECT_EQ(Get("Dump", "Twice", path), "first");
  EXPECT_EQ(Get("Dump", "Later", path), "from repeated section");
  int32_t status = 0;
  for (const char* missing : {"Empty", "Missing", "no equals sign here"}) {
    EXPECT_EQ(Get("Dump", missing, path, &status), "<untouched>") << missing;
    EXPECT_EQ(status, VYN_STATUS_NOT_FOUND) << missing;
  }
  for (const auto& [section, file] : {std::pair<std::string, std::string>{"Other", path},
                                      {"Dump", dir_.File("absent.ini")},
                                      {"", path}}) {
    EXPECT_EQ(Get(section, section.empty() ? "" : "DumpType", file, &status), "<untouched>");
    EXPECT_EQ(status, VYN_STATUS_NOT_FOUND);
  }
  EXPECT_EQ(ini_.GetEntry("Dump", "DumpType", nullptr, path), VYN_STATUS_INVALID_PARAMETER);
}

TEST_F(IniManagerTest, WritesCreateReplaceAndKeepTheRest) {
  const std::string path = dir_.File("new.ini");
  ASSERT_EQ(ini_.SetEntry("S", "k", "1", path), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(path), "[S]\nk=1\n");
  ASSERT_EQ(ini_.SetEntry("s", "K", "2", path), VYN_STATUS_SUCCESS);  // same key, other case
  ASSERT_EQ(ini_.SetEntry("S", "other", "x y", path), VYN_STATUS_SUCCESS);
  ASSERT_EQ(ini_.SetEntry("T", "k", "3", path), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(path), "[S]\nk=2\nother=x y\n[T]\nk=3\n");

  // A CR LF file keeps its line ends, its comments and its blank lines.
  const std::string crlf = dir_.File("crlf.ini");
  WriteFile(crlf, "; keep me\r\n[A]\r\nx=1\r\n\r\n[B]\r\ny=2");
  ASSERT_EQ(ini_.SetEntry("A", "z", "9", crlf), VYN_STATUS_SUCCESS);
  ASSERT_EQ(ini_.SetEntry("B", "y", "3", crlf), VYN_STATUS_SUCCESS);
  ASSERT_EQ(ini_.SetEntry("B", "w", "4", crlf), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(crlf), "; keep me\r\n[A]\r\nx=1\r\nz=9\r\n\r\n[B]\r\ny=3\r\nw=4\r\n");
  // A carriage return alone at the end of the file: new keys and sections
  // follow on lines of their own, and the last line still reads the same.
  for (const char* section : {"A", "B"}) {
    WriteFile(crlf, "[A]\r\nx=1\r");
    ASSERT_EQ(ini_.SetEntry(section, "z", "9", crlf), VYN_STATUS_SUCCESS);
    EXPECT_EQ(Get(section, "z", crlf), "9");
    EXPECT_EQ(Get("A", "x", crlf), "1");
  }

  // A byte order mark is skipped and kept; a file of nothing but the mark
  // gets its first section right after it.
  WriteFile(path, "\xEF\xBB\xBF[First]\r\nk=1\r\n");
  EXPECT_EQ(Get("first", "K", path), "1");
  ASSERT_EQ(ini_.SetEntry("First", "k2", "2", path), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(path), "\xEF\xBB\xBF[First]\r\nk=1\r\nk2=2\r\n");
  WriteFile(path, "\xEF\xBB\xBF");
  ASSERT_EQ(ini_.SetEntry("S", "k", "v", path), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(path), "\xEF\xBB\xBF[S]\nk=v\n");
  EXPECT_EQ(Get("S", "k", path), "v");
}

TEST_F(IniManagerTest, CutsLongValuesSaysSoAndRefusesWhatWouldBreakTheFile) {
  const std::string path = dir_.File("big.ini");
  ASSERT_EQ(ini_.SetEntry("Big", "value", std::string(20000, 'x'), path), VYN_STATUS_SUCCESS);
  ASSERT_EQ(ini_.SetEntry("Big", "fits", std::string(10239, 'y'), path), VYN_STATUS_SUCCESS);
  CaptureStderr();
  EXPECT_EQ(Get("Big", "fits", path), std::string(10239, 'y'));
  EXPECT_EQ(GetCapturedStderr(), "");  // nothing cut, nothing said
  CaptureStderr();
  EXPECT_EQ(Get("Big", "value", path), std::string(10239, 'x'));
  EXPECT_NE(GetCapturedStderr().find("The value of value in section Big of " + path +
                                     " has 20000 characters; only the first 10239 are returned."),
            std::string::npos);

  EXPECT_TRUE(Refused(path, "line\nbreak"));
  EXPECT_EQ(ini_.SetEntry("S]", "k", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("S", "a=b", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("", "k", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("S", "", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_TRUE(Refused(dir_.File("no/such/dir/x.ini")));
  if (geteuid() != 0) {  // root writes anywhere, so this only holds for users
    const std::string locked = dir_.File("locked");
    ASSERT_EQ(mkdir(locked.c_str(), 0500), 0);
    EXPECT_TRUE(Refused(locked + "/x.ini"));
  }
}

TEST_F(IniManagerTest, DefaultFileIsFixedWhenTheManagerIsBuilt) {
  std::string path;
  {
    vyn::test::ScopedCurrentDirectory in(dir_.path());
    CVYNIniManager fixed_here;
    path = fixed_here.GetDefaultFilePath();
    EXPECT_EQ(path, dir_.File("VYN.ini"));
    ASSERT_EQ(fixed_here.SetEntry("VYNMemoryDump", "DumpType", "2", ""), VYN_STATUS_SUCCESS);
    TempDir elsewhere;
    vyn::test::ScopedCurrentDirectory moved(elsewhere.path());
    std::string value;
    ASSERT_EQ(fixed_here.GetEntry("VYNMemoryDump", "DumpType", &value, ""), VYN_STATUS_SUCCESS);
    EXPECT_EQ(value, "2");
  }
  EXPECT_EQ(ReadFile(path), "[VYNMemoryDump]\nDumpType=2\n");
}

TEST_F(IniManagerTest, RefusesWhatIsNoRegularFileWithoutWaiting) {
  const std::string fifo = dir_.File("fifo.ini");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const std::string zero = dir_.File("zero.ini");
  ASSERT_EQ(symlink("/dev/zero", zero.c_str()), 0);
  CaptureStderr();
  auto reads = std::async(std::launch::async, [&] {
    for (const std::string& path : {fifo, zero, dir_.path()}) {
      int32_t status = 0;
      EXPECT_EQ(Get("S", "k", path, &status), "<untouched>") << path;
      EXPECT_EQ(status, VYN_STATUS_NOT_FOUND) << path;
      EXPECT_TRUE(Refused(path)) << path;
    }
  });
  if (reads.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
    std::fprintf(stderr, "a read or write of a FIFO blocks\n");
    std::abort();  // the blocked thread would keep the test from ending
  }
  const std::string told = GetCapturedStderr();
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

TEST_F(IniManagerTest, KeepsFilesWithinSixteenMebibytes) {
  const std::string path = dir_.File("large.ini");
  WriteFile(path, "[S]\nk=v\n");
  ASSERT_EQ(truncate(path.c_str(), kLimit), 0);  // sparse: costs no disk space
  EXPECT_EQ(Get("S", "k", path), "v");           // just at the limit: read
  // A write that would take it past the limit is refused and changes nothing.
  CaptureStderr();
  EXPECT_EQ(ini_.SetEntry("S", "other", "x", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_NE(GetCapturedStderr().find("16 MiB"), std::string::npos);
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_size, kLimit);

  ASSERT_EQ(truncate(path.c_str(), kLimit + 1), 0);  // one byte more: refused
  CaptureStderr();
  EXPECT_EQ(Get("S", "k", path), "<untouched>");
  EXPECT_TRUE(Refused(path, "w"));
  const std::string told = GetCapturedStderr();
  EXPECT_NE(told.find("The INI file " + path + " is not read: larger than the limit of 16 MiB"),
            std::string::npos)
      << told;
  EXPECT_NE(told.find("is not written: larger than the limit"), std::string::npos) << told;
}

TEST_F(IniManagerTest, SeesChangesByThisAndOtherWritersAndReadsAnUnchangedFileOnce) {
  const std::string path = dir_.File("changing.ini");
  // Just changed and rewritten at once with the same size: the copy of a
  // file this fresh is never trusted, so the new value is seen.
  WriteFile(path, "[S]\nk=1\n");
  EXPECT_EQ(Get("S", "k", path), "1");
  WriteFile(path, "[S]\nk=2\n");
  EXPECT_EQ(Get("S", "k", path), "2");

  // Copies trusted at once: what tells a change is the file's identity.
  vyn::seams::SetProfileSettleTime(0);
  ASSERT_EQ(ini_.SetEntry("S", "k", "3", path), VYN_STATUS_SUCCESS);  // this process
  EXPECT_EQ(Get("S", "k", path), "3");
  WriteFile(path, "[S]\nk=four\n");  // another writer, another size
  EXPECT_EQ(Get("S", "k", path), "four");
  const std::string replacement = dir_.File("replacement.ini");
  WriteFile(replacement, "[S]\nk=five\n");  // same size, another inode
  ASSERT_EQ(rename(replacement.c_str(), path.c_str()), 0);
  EXPECT_EQ(Get("S", "k", path), "five");
  ASSERT_EQ(unlink(path.c_str()), 0);
  EXPECT_EQ(Get("S", "k", path), "<untouched>");

  std::string content;
  for (int section = 0; section < 20; ++section) {
    content += "[Section" + std::to_string(section) + "]\n";
    for (int key = 0; key < 100; ++key) {
      content += "Key" + std::to_string(key) + "=" + std::to_string(section * 1000 + key) + "\n";
    }
  }
  WriteFile(path, content);
  const size_t before = vyn::seams::ProfileFileLoads();
  for (int i = 0; i < 500; ++i) {
    const int section = i % 20;
    const int key = (i * 7) % 100;
    ASSERT_EQ(Get("section" + std::to_string(section), "KEY" + std::to_string(key), path),
              std::to_string(section * 1000 + key));
  }
  EXPECT_EQ(vyn::seams::ProfileFileLoads() - before, 1u);
}

}  // namespace
