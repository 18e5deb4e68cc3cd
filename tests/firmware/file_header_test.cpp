// Firmware files on disk: the CRC against a bit-by-bit reference, scrambling,
// files made, checked, updated and unpacked, and damaged or impossible files.
#include "vyn/firmware/file_header.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "tests/support/temp_dir.h"
#include "vyn/core/status.h"
#include "vyn/firmware/internal/crc32.h"

namespace vyn::test {
namespace {

class FileHeaderProbe : public CVYNFileHeader {
 public:
  using CVYNFileHeader::CRC32Calculate;
  using CVYNFileHeader::EncryptFileA;
};

uint32_t ReferenceCrc(uint32_t reg, const unsigned char* data, size_t size) {
  for (size_t i = 0; i < size; ++i) {
    reg ^= data[i];
    for (int bit = 0; bit < 8; ++bit) reg = (reg >> 1) ^ (0xEDB88320U & (0U - (reg & 1)));
  }
  return reg;
}

std::string RandomBytes(size_t size, uint32_t seed) {
  std::mt19937 generator(seed);
  std::string bytes(size, '\0');
  for (char& c : bytes) c = static_cast<char>(generator());
  return bytes;
}

unsigned char* Bytes(std::string& s) { return reinterpret_cast<unsigned char*>(s.data()); }

uint32_t Field(const std::string& file, size_t offset) {
  uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<unsigned char>(file[offset + i]);
  return value;
}

_FILE_HEADER NewHeader(uint32_t type) {
  _FILE_HEADER header{};
  header.dwFileType = type;
  std::memcpy(header.abApplicationData, "V 01.02.03 build 7", 18);
  return header;
}

TEST(Crc32, MatchesTheReferenceInBothForms) {
  FileHeaderProbe probe;
  std::string digits = "123456789";
  EXPECT_EQ(probe.CRC32Calculate(Bytes(digits), 9, 0xFFFFFFFF), 0x340BC6D9U);
  EXPECT_EQ(probe.CRC32Calculate(Bytes(digits), 0, 0x12345678), 0x12345678U);

  // Every length around the folding's block sizes, at every alignment, from
  // start values other than the usual one.
  std::string data = RandomBytes(4096 + 64, 1);
  std::mt19937 generator(2);
  for (size_t offset = 0; offset < 16; offset += 3) {
    for (size_t size = 0; size < 1200; size += size < 300 ? 1 : 37) {
      const uint32_t start = generator();
      const unsigned char* at = Bytes(data) + offset;
      SCOPED_TRACE("offset " + std::to_string(offset) + " size " + std::to_string(size));
      const uint32_t expected = ReferenceCrc(start, at, size);
      ASSERT_EQ(firmware::Crc32UpdatePortable(start, at, size), expected);
      if (firmware::Crc32FoldingAvailable()) {
        ASSERT_EQ(firmware::Crc32UpdateFolded(start, at, size), expected);
      }
      ASSERT_EQ(firmware::Crc32Update(start, at, size), expected);
    }
  }
}

TEST(Scrambling, KeysOneToSixFollowTheKeyStreamOthersChangeNothing) {
  FileHeaderProbe probe;
  std::string streams[8];
  for (int key = 0; key <= 7; ++key) {
    std::string& zeros = streams[key];
    zeros.assign(40000, '\0');
    EXPECT_EQ(probe.EncryptFileA(static_cast<unsigned char>(key), Bytes(zeros), 40000),
              VYN_STATUS_SUCCESS);
    EXPECT_EQ(zeros == std::string(40000, '\0'), key == 0 || key == 7) << "key " << key;
    // The key stream starts over after 32,768 bytes.
    EXPECT_EQ(zeros.substr(32768), zeros.substr(0, 40000 - 32768)) << "key " << key;
  }
  std::string ignored(10, '\0');
  EXPECT_EQ(probe.EncryptFileA(255, Bytes(ignored), 10), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ignored, std::string(10, '\0'));
  EXPECT_EQ(streams[1], streams[2]);
  for (int a = 2; a <= 6; ++a) {
    for (int b = a + 1; b <= 6; ++b) EXPECT_NE(streams[a], streams[b]) << a << " " << b;
  }
}

class FirmwareFileTest : public ::testing::Test {
 protected:
  std::string Path(const std::string& name) const { return directory_.File(name); }

  TempDir directory_;
  CVYNFileHeader& files_ = GetVYNFileHeader();
};

TEST_F(FirmwareFileTest, MadeCheckedAndUnpacked) {
  const std::string plain = RandomBytes(1000, 4);
  WriteFile(Path("image.bin"), plain);
  _FILE_HEADER header = NewHeader(VYN_FILE_TYPE_MCPU);
  ASSERT_EQ(files_.CreateNewFile(Path("image.bin"), Path("image.vfw"), &header),
            VYN_STATUS_SUCCESS);
  EXPECT_EQ(header.dwMagic, 0x19860322U);
  EXPECT_EQ(header.dwDataLength, 1000U);

  std::string file = ReadFile(Path("image.vfw"));
  ASSERT_EQ(file.size(), 1080U);
  EXPECT_EQ(file.substr(0, 4), std::string("\x22\x03\x86\x19"));
  EXPECT_EQ(Field(file, 4), header.dwCRC);
  EXPECT_EQ(Field(file, 8), 1000U);
  EXPECT_EQ(Field(file, 12), 5U);
  EXPECT_EQ(file.substr(16, 18), "V 01.02.03 build 7");
  EXPECT_NE(file.substr(80), plain) << "the data are stored scrambled";
  EXPECT_EQ(header.dwCRC, ReferenceCrc(0xFFFFFFFF, Bytes(file) + 80, 1000))
      << "the CRC covers the data as stored";

  // Bytes behind the data are ignored.
  WriteFile(Path("image.vfw"), file + "trailing");
  _FILE_HEADER read{};
  EXPECT_EQ(files_.ReadFileHeader(Path("image.vfw"), &read), VYN_STATUS_SUCCESS);
  EXPECT_EQ(std::memcmp(&read, &header, sizeof header), 0);
  ASSERT_EQ(files_.DecryptFileA(Path("image.vfw"), Path("plain.bin")), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(Path("plain.bin")), plain);

  // The open-file form leaves the position behind the data.
  CFile open;
  ASSERT_TRUE(open.Open(Path("image.vfw"), CFile::modeRead));
  EXPECT_EQ(files_.ReadFileHeader(&open, &read), VYN_STATUS_SUCCESS);
  EXPECT_EQ(open.GetPosition(), 1080);

  // Packing a firmware file of the same key again undoes the scrambling.
  _FILE_HEADER again = NewHeader(VYN_FILE_TYPE_MCPU);
  ASSERT_EQ(files_.CreateNewFile(Path("image.vfw"), Path("twice.vfw"), &again), VYN_STATUS_SUCCESS);
  EXPECT_EQ(again.dwDataLength, 1008U) << "the old header goes, trailing bytes count as data";
  EXPECT_EQ(ReadFile(Path("twice.vfw")).substr(80, 1000), plain);
}

TEST_F(FirmwareFileTest, UpdatedInPlace) {
  const std::string plain = RandomBytes(300, 5);
  WriteFile(Path("image.bin"), plain);
  _FILE_HEADER header = NewHeader(VYN_FILE_TYPE_KCPU);
  ASSERT_EQ(files_.UpdateExistingFile(Path("image.bin"), &header), VYN_STATUS_SUCCESS);
  std::string file = ReadFile(Path("image.bin"));
  ASSERT_EQ(file.size(), 380U);
  EXPECT_EQ(file.substr(80), plain) << "nothing is scrambled";
  EXPECT_EQ(header.dwCRC, ReferenceCrc(0xFFFFFFFF, Bytes(file) + 80, 300));

  _FILE_HEADER other = NewHeader(VYN_FILE_TYPE_LCPU);
  ASSERT_EQ(files_.UpdateExistingFile(Path("image.bin"), &other), VYN_STATUS_SUCCESS);
  const std::string updated = ReadFile(Path("image.bin"));
  ASSERT_EQ(updated.size(), 380U);
  EXPECT_EQ(Field(updated, 12), 4U);
  EXPECT_EQ(updated.substr(80), file.substr(80));
  EXPECT_EQ(files_.ReadFileHeader(Path("image.bin"), &other), VYN_STATUS_SUCCESS);
}

TEST_F(FirmwareFileTest, DamagedFilesGiveTheirStatus) {
  const std::string plain = RandomBytes(2000, 6);
  WriteFile(Path("image.bin"), plain);
  _FILE_HEADER header = NewHeader(VYN_FILE_TYPE_CCPU_HEAD);
  ASSERT_EQ(files_.CreateNewFile(Path("image.bin"), Path("good.vfw"), &header), VYN_STATUS_SUCCESS);
  const std::string good = ReadFile(Path("good.vfw"));
  // An empty image: a header alone, CRC 0xFFFFFFFF; its image is empty.
  WriteFile(Path("empty.bin"), "");
  _FILE_HEADER empty_header = NewHeader(VYN_FILE_TYPE_ECPU);
  ASSERT_EQ(files_.CreateNewFile(Path("empty.bin"), Path("empty.vfw"), &empty_header),
            VYN_STATUS_SUCCESS);
  EXPECT_EQ(empty_header.dwCRC, 0xFFFFFFFFU);
  const std::string empty = ReadFile(Path("empty.vfw"));
  EXPECT_EQ(empty.size(), 80U);
  WriteFile(Path("out.bin"), "old content");
  EXPECT_EQ(files_.DecryptFileA(Path("empty.vfw"), Path("out.bin")), VYN_STATUS_SUCCESS);
  EXPECT_EQ(ReadFile(Path("out.bin")), "");
  std::filesystem::remove(Path("out.bin"));

  std::string one_byte_off = good;
  one_byte_off[1500] ^= 0x01;
  std::string wrong_magic = good;
  wrong_magic[3] = 0x18;
  std::string huge_length = good;
  huge_length.replace(8, 4, "\xFF\xFF\xFF\xFF");
  const struct {
    const char* name;
    std::string content;
    int32_t status;
  } cases[] = {
      {"empty", "", VYN_STATUS_NOT_FOUND},
      {"three bytes of magic", good.substr(0, 3), VYN_STATUS_NOT_FOUND},
      {"79 bytes", good.substr(0, 79), VYN_STATUS_OPERATION_BROKEN},
      {"79 bytes of plain data", plain.substr(0, 79), VYN_STATUS_NOT_FOUND},
      {"wrong magic", wrong_magic, VYN_STATUS_NOT_FOUND},
      {"one data byte changed", one_byte_off, VYN_STATUS_INVALID_CRC},
      {"cut in the data", good.substr(0, 1000), VYN_STATUS_OPERATION_BROKEN},
      {"header only", good.substr(0, 80), VYN_STATUS_OPERATION_BROKEN},
      {"empty image's header cut short", empty.substr(0, 79), VYN_STATUS_OPERATION_BROKEN},
      {"4 GB of data announced", huge_length, VYN_STATUS_OPERATION_BROKEN},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    WriteFile(Path("bad.vfw"), c.content);
    _FILE_HEADER read{};
    EXPECT_EQ(files_.ReadFileHeader(Path("bad.vfw"), &read), c.status);
    EXPECT_EQ(files_.DecryptFileA(Path("bad.vfw"), Path("out.bin")), c.status);
  }
  EXPECT_FALSE(std::filesystem::exists(Path("out.bin"))) << "no image from a bad file";

  // A source that announces a header it does not have in full.
  WriteFile(Path("cut.bin"), good.substr(0, 40));
  EXPECT_EQ(files_.CreateNewFile(Path("cut.bin"), Path("new.vfw"), &header),
            VYN_STATUS_OPERATION_BROKEN);
  EXPECT_EQ(files_.UpdateExistingFile(Path("cut.bin"), &header), VYN_STATUS_OPERATION_BROKEN);
  EXPECT_EQ(ReadFile(Path("cut.bin")), good.substr(0, 40)) << "left as it was";
}

TEST_F(FirmwareFileTest, PathsThatAreNoFiles) {
  WriteFile(Path("image.bin"), "0123456789");
  _FILE_HEADER header = NewHeader(VYN_FILE_TYPE_MCPU);
  ASSERT_EQ(files_.CreateNewFile(Path("image.bin"), Path("good.vfw"), &header), VYN_STATUS_SUCCESS);
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);

  // Missing, a directory and a FIFO without writer: refused, nothing waits.
  for (const char* name : {"missing", "", "fifo"}) {
    SCOPED_TRACE(name);
    EXPECT_EQ(files_.ReadFileHeader(Path(name), &header), VYN_STATUS_FILE_ERROR);
    EXPECT_EQ(files_.DecryptFileA(Path(name), Path("out.bin")), VYN_STATUS_FILE_ERROR);
    EXPECT_EQ(files_.CreateNewFile(Path(name), Path("out.vfw"), &header), VYN_STATUS_FILE_ERROR);
    EXPECT_EQ(files_.UpdateExistingFile(Path(name), &header), VYN_STATUS_FILE_ERROR);
  }
  // As destinations: no file can be made below them, nor in their place.
  EXPECT_EQ(files_.DecryptFileA(Path("good.vfw"), Path("missing/x")), VYN_STATUS_FILE_ERROR);
  EXPECT_EQ(files_.DecryptFileA(Path("good.vfw"), Path("fifo/x")), VYN_STATUS_FILE_ERROR);
  EXPECT_EQ(files_.DecryptFileA(Path("good.vfw"), Path("fifo")), VYN_STATUS_FILE_ERROR);
  EXPECT_EQ(files_.DecryptFileA(Path("good.vfw"), directory_.path()), VYN_STATUS_FILE_ERROR);
  EXPECT_EQ(files_.CreateNewFile(Path("image.bin"), directory_.path(), &header),
            VYN_STATUS_FILE_ERROR);
  EXPECT_EQ(files_.ReadFileHeader(static_cast<CFile*>(nullptr), &header), VYN_STATUS_FILE_ERROR);
  CFile open;
  ASSERT_TRUE(open.Open(Path("good.vfw"), CFile::modeRead));
  EXPECT_EQ(files_.ReadFileHeader(&open, nullptr), VYN_STATUS_INVALID_PARAMETER);

  if (geteuid() != 0) {  // permissions do not stop the superuser
    chmod(Path("good.vfw").c_str(), 0);
    EXPECT_EQ(files_.ReadFileHeader(Path("good.vfw"), &header), VYN_STATUS_FILE_ERROR);
  }
}

TEST(FileHeaderTexts, FileTypesAndVersions) {
  CVYNFileHeader& files = GetVYNFileHeader();
  EXPECT_EQ(files.GetFileTypeAsString(0), "?");
  EXPECT_EQ(files.GetFileTypeAsString(1), "CCPU Remote");
  EXPECT_EQ(files.GetFileTypeAsString(6), "ECPU");
  EXPECT_EQ(files.GetFileTypeAsString(7), "?");

  EXPECT_EQ(files.GetVersionAsInteger("V 01.02.03"), 0x00010203);
  EXPECT_EQ(files.GetVersionAsInteger("V 01.02"), 0x00010200);
  EXPECT_EQ(files.GetVersionAsInteger("V 1.2.3"), 0x00010000);
  EXPECT_EQ(files.GetVersionAsInteger("Version 12.34.56 beta"), (12 << 16) + (34 << 8) + 56);
  EXPECT_EQ(files.GetVersionAsInteger(""), 0);
  EXPECT_EQ(files.GetVersionAsInteger("no digits here"), 0);
  EXPECT_EQ(files.GetVersionAsInteger("V 01.0"), 0);
  EXPECT_EQ(files.GetVersionAsInteger(nullptr), 0);
  // A digit near the end: the fields stop at the text's end.
  EXPECT_EQ(files.GetVersionAsInteger("abcdefghi9"), 9 << 16);
}

}  // namespace
}  // namespace vyn::test
