// TransmitFirmware and its process-wide state: the prepared image, the
// progress threshold and the one-transmission-at-a-time rule.
#include <atomic>
#include <cstdio>
#include <memory>

#include "vyn/base/mutex.h"
#include "vyn/core/framework_file.h"
#include "vyn/core/internal/log_output.h"
#include "vyn/core/language.h"
#include "vyn/core/message_types.h"
#include "vyn/core/status.h"
#include "vyn/firmware/file_header.h"
#include "vyn/firmware/internal/boot_loader_line.h"
#include "vyn/firmware/stm32_boot_loader.h"
#include "vyn/queue/message.h"
#include "vyn/queue/message_queue.h"

namespace {

constexpr const char* kImageFileName = "temp.bin";
constexpr uint32_t kBaudRate = 115200;
// Bootloaders below 2.1 do not know the commands used here.
constexpr int kOldestVersion = 0x201;

// The prepared image, open while it is written to the chip; read by
// ReadUpdateFileBlock on the transmitting thread only.
std::unique_ptr<CFile> g_image_file;
uint32_t g_image_size = 0;
// The smallest percentage that posts the next progress message. It goes
// back to 1 only after a successful programming.
std::atomic<uint8_t> g_progress_threshold{1};

// Guards g_transmitting against a second transmission and against a cancel
// that would outlive the transmission it was meant for.
// Taken before the port's cancel lock, never while logging or posting.
vyn::Mutex g_state_lock;
bool g_transmitting VYN_GUARDED_BY(g_state_lock) = false;

// A log text made with its printf format, as long as it needs to be (a
// firmware file name has no length limit).
template <typename... Arguments>
std::string Format(const char* format, Arguments... arguments) {
  const int length = std::snprintf(nullptr, 0, format, arguments...);
  if (length <= 0) return std::string();
  std::string text(static_cast<size_t>(length), '\0');
  std::snprintf(text.data(), text.size() + 1, format, arguments...);
  return text;
}

const char* Text(int32_t number) {
  return GetVYNLanguage().GetString(VYN_MODULE_STM32_BOOT_LOADER, number);
}

// Ends the transmission's claim on the process-wide state on every path.
class TransmissionClaim {
 public:
  TransmissionClaim() {
    vyn::MutexLock lock(&g_state_lock);
    claimed_ = !g_transmitting;
    g_transmitting = true;
  }
  ~TransmissionClaim() {
    if (!claimed_) return;
    g_image_file.reset();
    vyn::MutexLock lock(&g_state_lock);
    vyn::firmware::BootLoaderLine().ResetCancel();
    g_transmitting = false;
  }
  TransmissionClaim(const TransmissionClaim&) = delete;
  TransmissionClaim& operator=(const TransmissionClaim&) = delete;

  bool claimed() const { return claimed_; }

 private:
  bool claimed_ = false;
};

}  // namespace

CVYNSTM32BootLoader::CVYNSTM32BootLoader() = default;

CVYNSTM32BootLoader::~CVYNSTM32BootLoader() = default;

int32_t CVYNSTM32BootLoader::AddOutput(std::string text, _VYNSystemLogExEventType type) {
  return vyn::LogAddOutput(text, type, "", "CVYNSTM32BootLoader", "");
}

uint32_t CVYNSTM32BootLoader::ReadUpdateFileBlock(unsigned char* buffer, uint32_t size) {
  if (g_image_file == nullptr || buffer == nullptr) return 0;
  return g_image_file->Read(buffer, size);
}

void CVYNSTM32BootLoader::ReportProgress(uint32_t written) {
  if (g_image_size == 0) return;
  const uint32_t percentage = written * 100 / g_image_size;
  uint8_t threshold = g_progress_threshold.load(std::memory_order_relaxed);
  if (percentage < threshold) return;
  g_progress_threshold.store(static_cast<uint8_t>(threshold + 1), std::memory_order_relaxed);
  unsigned char byte = static_cast<unsigned char>(percentage);
  CVYNMessage message(MSG_FIRMWARE_TRANSMISSION_PROGRESS, &byte, 1);
  GetVYNMessageQueue().Notify(message);
}

void CVYNSTM32BootLoader::CancelTransmission() {
  vyn::MutexLock lock(&g_state_lock);
  if (g_transmitting) vyn::firmware::BootLoaderLine().Cancel();
}

int32_t CVYNSTM32BootLoader::TransmitFirmware(std::string port_name, std::string file_name) {
  const TransmissionClaim claim;
  if (!claim.claimed()) return VYN_STATUS_BUSY;

  const int32_t prepared = GetVYNFileHeader().DecryptFileA(file_name, kImageFileName);
  if (prepared != VYN_STATUS_SUCCESS) {
    AddOutput(Format("%s %s", Text(1), file_name.c_str()), VYN_EVENT_ERROR);
    return prepared;
  }
  g_image_file = std::make_unique<CFile>();
  if (!g_image_file->Open(kImageFileName, CFile::modeRead | CFile::typeBinary)) {
    AddOutput(Format("%s %s", Text(1), kImageFileName), VYN_EVENT_ERROR);
    return VYN_STATUS_FILE_ERROR;
  }
  AddOutput(Text(2), VYN_EVENT_INFORMATION);
  const int64_t size = g_image_file->SeekToEnd();
  g_image_file->SeekToBegin();
  g_image_size = size > 0 ? static_cast<uint32_t>(size) : 0;
  AddOutput(Text(3), VYN_EVENT_INFORMATION);

  // Every failure from here on closes the port and the image (the claim
  // closes the image) and returns this.
  const auto fail = [this](int32_t text) {
    AddOutput(Text(text), VYN_EVENT_ERROR);
    stm32h_close_port();
    return VYN_STATUS_UNSPECIFIC_ERROR;
  };
  if (stm32h_open_port(port_name) < 0 || stm32h_configure_port(kBaudRate) != 0 ||
      stm32h_connect_to_bl() != 0) {
    return fail(4);
  }

  unsigned char major = 0;
  unsigned char minor = 0;
  if (stm32_get_version(&major, &minor) != 0) return fail(5);
  AddOutput(Format("%s %i.%i", Text(6), major, minor), VYN_EVENT_INFORMATION);
  if (major * 256 + minor < kOldestVersion) return fail(7);

  uint16_t chip_id = 0;
  if (stm32_get_chip_id(&chip_id) != 0) return fail(8);
  AddOutput(Format("%s 0x%04X", Text(9), static_cast<unsigned int>(chip_id)),
            VYN_EVENT_INFORMATION);

  // Bootloaders of version 3 know only Extended Erase; the others Erase.
  if (major == 3) {
    AddOutput(Text(16), VYN_EVENT_INFORMATION);
    if (stm32_extended_erase_flash() != 0) return fail(17);
    AddOutput(Text(18), VYN_EVENT_INFORMATION);
  } else {
    if (stm32_erase_flash() != 0) return fail(19);
    AddOutput(Text(20), VYN_EVENT_INFORMATION);
  }

  std::setvbuf(stdout, nullptr, _IONBF, 0);
  AddOutput(Text(21), VYN_EVENT_INFORMATION);
  if (stm32_write_flash(&ReadUpdateFileBlock, &ReportProgress) != 0) return fail(22);
  std::fputs("\n", stderr);
  AddOutput(Text(23), VYN_EVENT_INFORMATION);
  g_progress_threshold.store(1, std::memory_order_relaxed);
  g_image_file.reset();

  AddOutput(Text(24), VYN_EVENT_INFORMATION);
  if (stm32_go_command() != 0) return fail(25);
  AddOutput(Text(32), VYN_EVENT_INFORMATION);
  stm32h_close_port();
  return VYN_STATUS_SUCCESS;
}
