#include "tools/vyn/demo_firmware.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "sim/boot_loader_simulator.h"
#include "support/file_system.h"
#include "tools/vyn/flash_progress.h"
#include "tools/vyn/output.h"
#include "vyn/vyn.h"

namespace vyn::tool {
namespace {

constexpr uint32_t kImageSize = 16 * 1024;  // about two seconds at 115,200 baud

}  // namespace

bool RunFirmwareDemo(support::InterruptWatch& interrupts) {
  bool interrupted = false;
  PrintOutput("\n== Firmware update (a simulated STM32 bootloader at 115,200 baud)\n");
  const std::string directory = support::CreateUniqueDirectory("/tmp/vyn-demo-");
  if (directory.empty()) {
    PrintOutput("no directory for the image\n");
    return false;
  }
  const std::string image_path = directory + "/image.bin";
  const std::string file_path = directory + "/firmware.vfw";
  std::vector<unsigned char> image(kImageSize);
  for (size_t i = 0; i < image.size(); ++i) image[i] = static_cast<unsigned char>(i * 31 + i / 256);
  std::ofstream(image_path, std::ios::binary)
      .write(reinterpret_cast<const char*>(image.data()),
             static_cast<std::streamsize>(image.size()));

  _FILE_HEADER header{};
  header.dwFileType = VYN_FILE_TYPE_MCPU;
  const char version[] = "V 01.00.00";
  std::copy(version, version + sizeof version, header.abApplicationData);
  CVYNFileHeader& files = GetVYNFileHeader();
  const int32_t packed = files.CreateNewFile(image_path, file_path, &header);
  PrintOutput("firmware file: %s, %u bytes, CRC 0x%08X: %s\n",
              files.GetFileTypeAsString(header.dwFileType).c_str(), header.dwDataLength,
              header.dwCRC, GetVYNStatusAsString(packed).c_str());

  sim::BootLoaderSimulatorOptions options;
  options.baud_rate = 115200;
  sim::BootLoaderSimulator chip(options);
  if (packed == VYN_STATUS_SUCCESS && chip.Start()) {
    PrintOutput("bootloader on %s\n", chip.port_path().c_str());
    FlashConsole console(false, header.dwDataLength);
    CVYNMessageQueue& library_queue = GetVYNMessageQueue();
    library_queue.Initialize(false);
    auto* receiver = new ProgressReceiver(&console);  // owned by the library's queue
    receiver->Initialize(true);
    library_queue.Register(receiver);
    std::atomic<int32_t> status{VYN_STATUS_UNSPECIFIC_ERROR};
    std::atomic<bool> done{false};
    std::thread transmission([&] {
      status = GetVYNSTM32BootLoader().TransmitFirmware(chip.port_path(), file_path);
      done = true;
      interrupts.Wake();
    });
    while (!done) {
      const support::InterruptWatch::Event event = interrupts.Wait();
      if (event == support::InterruptWatch::Event::kInterrupted ||
          event == support::InterruptWatch::Event::kOutputClosed) {
        interrupted = true;
        GetVYNSTM32BootLoader().CancelTransmission();
        break;
      }
    }
    // Not under any lock; the transmission ends soon after a cancel.
    transmission.join();
    for (int i = 0; i < 100 && receiver->GetMessagesCount() > 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    receiver->Terminate();
    library_queue.Terminate();
    const std::vector<uint8_t> flash = chip.FlashContents();
    const bool arrived = std::equal(image.begin(), image.end(), flash.begin());
    PrintOutput("TransmitFirmware: %s; the chip holds the image: %s; started: %s\n",
                GetVYNStatusAsString(status.load()).c_str(), arrived ? "yes" : "no",
                chip.counters().go_commands > 0 ? "yes" : "no");
    chip.Stop();
  } else {
    PrintOutput("the simulated bootloader could not start\n");
  }
  support::RemoveFile(image_path);
  support::RemoveFile(file_path);
  support::RemoveEmptyDirectory(directory);
  return interrupted;
}

}  // namespace vyn::tool
