#include "tools/vyn/link_session.h"

#include <CLI/CLI.hpp>
#include <cstdio>

#include "vyn/core/status.h"
#include "vyn/device/frame_format.h"
#include "vyn/serial/serial_port.h"

namespace vyn::tool {

LinkSession::LinkSession(const std::string& port, int baud_id, bool mcpu, bool show_sent)
    : printer_(new TrafficPrinter(show_sent)) {
  printer_->Initialize(true);
  CVYNMessageQueue& library_queue = GetVYNMessageQueue();
  library_queue.Initialize(false);
  library_queue.Register(printer_);
  CVYNSerialPort& serial = GetVYNSerialPort();
  if (serial.SetSerialPortSettings(port, baud_id) != VYN_STATUS_SUCCESS) {
    std::fprintf(stderr, "baud id %d is not one of 0 to 10\n", baud_id);
    printer_->Terminate();
    library_queue.Terminate();
    throw CLI::RuntimeError(2);
  }
  serial.SetProtocol(mcpu ? PROTOCOL_MCPU : PROTOCOL_CCPU);
  const int32_t status = serial.InitializeReceivingThread();
  if (status != VYN_STATUS_SUCCESS) {
    std::fprintf(stderr, "cannot open %s: %s\n", port.c_str(),
                 GetVYNStatusAsString(status).c_str());
    printer_->Terminate();
    library_queue.Terminate();
    throw CLI::RuntimeError(1);
  }
}

LinkSession::~LinkSession() {
  GetVYNSerialPort().TerminateReceivingThread();
  // Stop the printer's thread before the library's queue deletes it.
  printer_->Terminate();
  GetVYNMessageQueue().Terminate();
}

}  // namespace vyn::tool
