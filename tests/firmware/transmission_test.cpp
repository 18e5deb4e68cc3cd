// Firmware transmissions into the simulated bootloader: the image arrives,
// every step is logged, progress is posted, and every fault ends with its
// text, its result and the port given back.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <future>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "sim/boot_loader_simulator.h"
#include "tests/log/log_test_support.h"
#include "tests/support/wait_until.h"
#include "vyn/core/language.h"
#include "vyn/core/message_types.h"
#include "vyn/core/status.h"
#include "vyn/firmware/file_header.h"
#include "vyn/firmware/stm32_boot_loader.h"
#include "vyn/platform/serial_device.h"
#include "vyn/queue/message_queue.h"

namespace vyn::test {
namespace {

using sim::BootLoaderSimulator;
using sim::BootLoaderSimulatorOptions;
namespace cmd = sim::boot_command;

class ProgressRecorder : public CVYNMessageQueue {
 public:
  std::vector<int> percentages() {
    std::lock_guard<std::mutex> lock(mutex_);
    return percentages_;
  }

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    std::lock_guard<std::mutex> lock(mutex_);
    if (message.GetMessageType() == MSG_FIRMWARE_TRANSMISSION_PROGRESS &&
        message.GetBufferSize() == 1) {
      percentages_.push_back(message.GetBuffer()[0]);
    }
    return 0;
  }

 private:
  std::mutex mutex_;
  std::vector<int> percentages_;
};

class TransmissionTest : public ::testing::Test {
 protected:
  void SetUp() override {
    log_.SetFileFilter(0xFFFFFFFF);
    ASSERT_EQ(log_.Initialize(nullptr, "firmware", "V 1"), VYN_STATUS_SUCCESS);
    recorder_ = new ProgressRecorder;  // owned by the library's queue once registered
    recorder_->Initialize(true);
    GetVYNMessageQueue().Initialize(false);
    GetVYNMessageQueue().Register(recorder_);
  }
  void TearDown() override {
    recorder_->Terminate();
    GetVYNMessageQueue().Terminate();
    log_.Terminate();
    GetVYNLanguage().SetLanguage(1);
  }

  // A chip made as options_ says.
  void StartChip() {
    chip_ = std::make_unique<BootLoaderSimulator>(options_);
    ASSERT_TRUE(chip_->Start());
  }

  // A firmware file of `size` random bytes for the MCPU; returns the image.
  std::vector<uint8_t> MakeFile(size_t size, const std::string& name = "update.vfw") {
    std::vector<uint8_t> image(size);
    std::mt19937 random(static_cast<uint32_t>(size));
    for (uint8_t& byte : image) byte = static_cast<uint8_t>(random());
    WriteFile("image.bin", std::string(image.begin(), image.end()));
    _FILE_HEADER header{};
    header.dwFileType = VYN_FILE_TYPE_MCPU;
    EXPECT_EQ(GetVYNFileHeader().CreateNewFile("image.bin", name, &header), VYN_STATUS_SUCCESS);
    return image;
  }

  int32_t Transmit(const std::string& file = "update.vfw") {
    return GetVYNSTM32BootLoader().TransmitFirmware(chip_->port_path(), file);
  }

  // The texts the bootloader logged, each with "E " for errors and "I " for
  // information in front.
  std::vector<std::string> LoggedTexts() {
    log_.Terminate();
    std::vector<std::string> texts;
    for (const std::string& file : LogFiles()) {
      for (const Record& entry : ReadEntries(file)) {
        if (entry.at(kCaller) != "CVYNSTM32BootLoader") continue;
        EXPECT_EQ(entry.at(kReference), "");
        const char* kind = entry.at(kEvent) == "error" ? "E " : "I ";
        texts.push_back(kind + entry.at(kText));
      }
    }
    return texts;
  }

  std::vector<int> Progress() {
    WaitUntil([&] { return recorder_->GetMessagesCount() == 0; });
    return recorder_->percentages();
  }

  // The port is free again: the library's serial driver can open it.
  bool PortGivenBack() {
    platform::SerialDevice driver;
    return driver.Open(chip_->port_path(), 115200, nullptr, nullptr);
  }

  CVYNSystemLogEx& log_ = GetVYNSystemLogEx();
  TempDir directory_;
  ScopedCurrentDirectory current_{directory_.path()};
  ProgressRecorder* recorder_ = nullptr;
  BootLoaderSimulatorOptions options_;
  std::unique_ptr<BootLoaderSimulator> chip_;
};

TEST_F(TransmissionTest, ImageArrivesAndEveryStepIsLogged) {
  StartChip();
  const std::vector<uint8_t> image = MakeFile(1000);
  ASSERT_EQ(Transmit(), VYN_STATUS_SUCCESS);

  const std::vector<uint8_t> flash = chip_->FlashContents();
  EXPECT_TRUE(std::equal(image.begin(), image.end(), flash.begin()));
  EXPECT_EQ(flash[1000], 0xFF) << "erased behind the image";
  EXPECT_EQ(ReadFile("temp.bin"), std::string(image.begin(), image.end()));
  const sim::BootLoaderSimulatorCounters counters = chip_->counters();
  EXPECT_EQ(counters.mass_erases, 1U);
  EXPECT_EQ(counters.go_commands, 1U);
  EXPECT_EQ(counters.last_go_address, 0x08000000U);
  EXPECT_EQ(Progress(), (std::vector<int>{25, 51, 76, 100}));
  EXPECT_TRUE(PortGivenBack());

  // The threshold starts at 1 again: a small image posts each block, one of
  // 100 KB each percentage once.
  MakeFile(522);
  ASSERT_EQ(Transmit(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(Progress(), (std::vector<int>{25, 51, 76, 100, 49, 98, 100}));
  MakeFile(100 * 1024);
  ASSERT_EQ(Transmit(), VYN_STATUS_SUCCESS);
  std::vector<int> percentages = Progress();
  ASSERT_EQ(percentages.size(), 107U);
  for (int i = 1; i <= 100; ++i) EXPECT_EQ(percentages[6 + i], i);

  const std::vector<std::string> run = {"I Preparing update file ...",
                                        "I The update file has been prepared.",
                                        "I Found bootloader version: 3.1",
                                        "I Detected chip ID: 0x0413",
                                        "I The chip is going to be erased ...",
                                        "I The chip has been erased.",
                                        "I The chip is going to be programmed ...",
                                        "I The chip has been programmed.",
                                        "I Sending Go command ...",
                                        "I The Go command has been sent."};
  std::vector<std::string> all;
  for (int i = 0; i < 3; ++i) all.insert(all.end(), run.begin(), run.end());
  EXPECT_EQ(LoggedTexts(), all);
}

TEST_F(TransmissionTest, BootloaderVersionsChooseTheErase) {
  options_.version = 0x20;
  StartChip();
  MakeFile(300);
  EXPECT_EQ(Transmit(), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(chip_->counters().mass_erases, 0U);
  EXPECT_TRUE(PortGivenBack());

  chip_->SetVersion(0x21);
  chip_->Reset();
  EXPECT_EQ(Transmit(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(chip_->counters().commands_by_code[cmd::kErase], 1U);
  EXPECT_EQ(chip_->counters().commands_by_code[cmd::kExtendedErase], 0U);

  // An empty image: nothing written, no progress, still started.
  MakeFile(0);
  chip_->Reset();
  EXPECT_EQ(Transmit(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(chip_->counters().go_commands, 2U);
  EXPECT_EQ(Progress(), (std::vector<int>{85, 100})) << "from the 300-byte image only";

  const std::vector<std::string> texts = LoggedTexts();
  ASSERT_GE(texts.size(), 5U);
  EXPECT_EQ(texts[2], "I Found bootloader version: 2.0");
  EXPECT_EQ(texts[3], "E The version of the bootloader is not supported.");
  EXPECT_EQ(texts[6], "I Found bootloader version: 2.1");
  EXPECT_EQ(texts[8], "I The chip has been erased.") << "Erase, without announcement";
}

TEST_F(TransmissionTest, FilesThatCannotBeSent) {
  StartChip();
  MakeFile(300);
  std::string damaged = ReadFile("update.vfw");
  damaged[200] ^= 0x40;
  WriteFile("damaged.vfw", damaged);
  EXPECT_EQ(Transmit("damaged.vfw"), VYN_STATUS_INVALID_CRC);
  EXPECT_EQ(Transmit("missing.vfw"), VYN_STATUS_FILE_ERROR);
  EXPECT_EQ(chip_->counters().bytes_received, 0U) << "the port is never opened";

  GetVYNLanguage().SetLanguage(0);
  EXPECT_EQ(Transmit("damaged.vfw"), VYN_STATUS_INVALID_CRC);
  // "temp.bin" cannot be written where a directory has its name.
  GetVYNLanguage().SetLanguage(1);
  std::filesystem::create_directory("temp.bin");
  EXPECT_EQ(Transmit(), VYN_STATUS_FILE_ERROR);

  EXPECT_EQ(LoggedTexts(),
            (std::vector<std::string>{"E The file could not be opened:  damaged.vfw",
                                      "E The file could not be opened:  missing.vfw",
                                      "E Die Logdatei konnte nicht erzeugt werden. damaged.vfw",
                                      "E The file could not be opened:  update.vfw"}));
}

TEST_F(TransmissionTest, LineFaultsEndWithTheirText) {
  StartChip();
  MakeFile(3000);
  // A port that does not exist (one held elsewhere fails the same open).
  EXPECT_EQ(GetVYNSTM32BootLoader().TransmitFirmware("/dev/vyn-no-port", "update.vfw"),
            VYN_STATUS_UNSPECIFIC_ERROR);
  // The bootloader refuses Get; then the fourth block of the write.
  chip_->InjectNack({cmd::kGet});
  EXPECT_EQ(Transmit(), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_TRUE(PortGivenBack());
  chip_->Reset();
  chip_->InjectNack({cmd::kWriteMemory, sim::FaultRepeat::kOnce, sim::NackPoint::kResult, 3});
  EXPECT_EQ(Transmit(), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(chip_->counters().blocks_written, 3U);
  EXPECT_EQ(chip_->counters().go_commands, 0U) << "no Go after a failed write";
  EXPECT_TRUE(PortGivenBack());
  // Another chip id is reported, and the update goes on.
  chip_->Reset();
  chip_->SetChipId(0x0999);
  EXPECT_EQ(Transmit(), VYN_STATUS_SUCCESS);

  const std::vector<std::string> texts = LoggedTexts();
  const auto logged = [&](const std::string& text) {
    return std::count(texts.begin(), texts.end(), text);
  };
  EXPECT_EQ(logged("E Unable to connect to bootloader."), 1);
  EXPECT_EQ(logged("E Unable to get bootloader version."), 1);
  EXPECT_EQ(logged("E The chip could not be programmed."), 1);
  EXPECT_EQ(logged("I Detected chip ID: 0x0999"), 1);
}

TEST_F(TransmissionTest, UnplugAndCancelEndTheWaits) {
  options_.baud_rate = 115200;  // 64 KiB take about six seconds
  StartChip();
  MakeFile(64 * 1024);

  auto running = std::async(std::launch::async, [&] { return Transmit(); });
  ASSERT_TRUE(WaitUntil([&] { return chip_->counters().blocks_written >= 5; }));
  EXPECT_EQ(Transmit(), VYN_STATUS_BUSY) << "one transmission at a time";
  ASSERT_TRUE(chip_->Unplug());
  ASSERT_EQ(running.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(running.get(), VYN_STATUS_UNSPECIFIC_ERROR);

  // A silent chip would keep the connect waiting for half an hour.
  ASSERT_TRUE(chip_->Replug());
  chip_->SetSilent(true);
  const uint64_t before = chip_->counters().bytes_received;
  running = std::async(std::launch::async, [&] { return Transmit(); });
  ASSERT_TRUE(WaitUntil([&] { return chip_->counters().bytes_received > before; }));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  GetVYNSTM32BootLoader().CancelTransmission();
  ASSERT_EQ(running.wait_for(std::chrono::seconds(20)), std::future_status::ready);
  EXPECT_EQ(running.get(), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_TRUE(PortGivenBack());

  // A cancel belongs to the transmission it ended.
  chip_->SetSilent(false);
  chip_->SetBaudRate(0);
  chip_->Reset();
  EXPECT_EQ(Transmit(), VYN_STATUS_SUCCESS);

  const std::vector<std::string> texts = LoggedTexts();
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "E The chip could not be programmed."), 1);
  EXPECT_EQ(std::count(texts.begin(), texts.end(), "E Unable to connect to bootloader."), 1);
}

}  // namespace
}  // namespace vyn::test
