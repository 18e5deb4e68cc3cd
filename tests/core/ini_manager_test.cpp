#include "vyn/core/ini_manager.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/temp_dir.h"
#include "vyn/core/status.h"

namespace {

using vyn::test::ReadFile;
using vyn::test::TempDir;
using vyn::test::WriteFile;

class IniManagerTest : public ::testing::Test {
 protected:
  std::string Get(const std::string& section, const std::string& key, const std::string& path,
                  int32_t* status = nullptr) {
    std::string value = "<untouched>";
    const int32_t result = ini_.GetEntry(section, key, &value, path);
    if (status != nullptr) *status = result;
    return value;
  }

  TempDir dir_;
  CVYNIniManager ini_;
};

TEST_F(IniManagerTest, ReadsValuesWithThePlatformRules) {
  const std::string path = dir_.File("a.ini");
  WriteFile(path,
            "; comment\r\n"
            "[Dump]\r\n"
            "DumpType=5\r\n"
            "  Spaced Key  =   padded value   \r\n"
            "Quoted=\"  inner  \"\r\n"
            "Single='x'\r\n"
            "Unbalanced=\"x\r\n"
            "no equals sign here\r\n"
            "Empty=\r\n"
            "Twice=first\r\n"
            "Twice=second\r\n"
            "[dump]\r\n"
            "Later=from repeated section\r\n"
            "Twice=third\r\n");
  EXPECT_EQ(Get("Dump", "DumpType", path), "5");
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
  EXPECT_EQ(Get("Other", "DumpType", path, &status), "<untouched>");
  EXPECT_EQ(status, VYN_STATUS_NOT_FOUND);
  EXPECT_EQ(Get("Dump", "DumpType", dir_.File("absent.ini"), &status), "<untouched>");
  EXPECT_EQ(status, VYN_STATUS_NOT_FOUND);
  EXPECT_EQ(Get("", "", path, &status), "<untouched>");
  EXPECT_EQ(status, VYN_STATUS_NOT_FOUND);
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
  EXPECT_EQ(Get("A", "z", crlf), "9");
  // A carriage return alone at the end of the file: new keys and sections
  // follow on lines of their own, and the last line still reads the same.
  WriteFile(crlf, "[A]\r\nx=1\r");
  ASSERT_EQ(ini_.SetEntry("A", "z", "9", crlf), VYN_STATUS_SUCCESS);
  EXPECT_EQ(Get("A", "z", crlf), "9");
  EXPECT_EQ(Get("A", "x", crlf), "1");
  WriteFile(crlf, "[A]\r\nx=1\r");
  ASSERT_EQ(ini_.SetEntry("B", "y", "2", crlf), VYN_STATUS_SUCCESS);
  EXPECT_EQ(Get("B", "y", crlf), "2");
  EXPECT_EQ(Get("A", "x", crlf), "1");
}

TEST_F(IniManagerTest, HandlesLongValuesAndRefusesWhatWouldBreakTheFile) {
  const std::string path = dir_.File("big.ini");
  const std::string megabyte(1 << 20, 'v');
  ASSERT_EQ(ini_.SetEntry("Big", "value", megabyte, path), VYN_STATUS_SUCCESS);
  EXPECT_EQ(Get("Big", "value", path), std::string(10239, 'v'));

  EXPECT_EQ(ini_.SetEntry("S", "k", "line\nbreak", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("S]", "k", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("S", "a=b", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("", "k", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("S", "", "v", path), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(ini_.SetEntry("S", "k", "v", dir_.File("no/such/dir/x.ini")),
            VYN_STATUS_UNSPECIFIC_ERROR);

  if (geteuid() != 0) {  // root writes anywhere, so this only holds for users
    const std::string locked = dir_.File("locked");
    ASSERT_EQ(mkdir(locked.c_str(), 0500), 0);
    EXPECT_EQ(ini_.SetEntry("S", "k", "v", locked + "/x.ini"), VYN_STATUS_UNSPECIFIC_ERROR);
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

}  // namespace
