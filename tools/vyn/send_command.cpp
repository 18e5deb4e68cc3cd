// vyn send PORT REQUEST [ARGS]: sends one request and shows the traffic
// until the reply has come or the wait is over.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "support/interrupt_watch.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/link_session.h"
#include "tools/vyn/number_grammar.h"
#include "tools/vyn/request_table.h"
#include "vyn/core/status.h"
#include "vyn/device/command_set.h"
#include "vyn/device/frame_format.h"
#include "vyn/serial/serial_port.h"

namespace vyn::tool {
namespace {

struct SendOptions {
  std::string port;
  std::string request;
  std::vector<std::string> args;
  int baud_id = 6;
  int wait_ms = 1000;
};

void RunSend(const SendOptions& options) {
  unsigned char frame[SERIAL_FRAME_BUFFER_SIZE] = {};
  const uint16_t length =
      BuildRequestFrame(options.request, options.args, GetVYNCommandSet(), frame);
  const bool mcpu = frame[0] == MCPU_START_DELIMITER;
  // Before any thread starts, so that Ctrl-C ends the wait.
  vyn::support::InterruptWatch watch;
  watch.WatchOutputClosed(STDOUT_FILENO);
  LinkSession session(options.port, options.baud_id, mcpu, true);
  // Notifications and stray frames are shown as they pass; only the reply
  // to this request ends the wait.
  session.printer().ExpectReply(frame, [&watch] { watch.Wake(); });
  const int32_t status = GetVYNSerialPort().SendCommand(frame, length);
  if (status != VYN_STATUS_SUCCESS) {
    std::fprintf(stderr, "not sent: %s\n", GetVYNStatusAsString(status).c_str());
    throw CLI::RuntimeError(1);
  }
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(options.wait_ms);
  while (!session.printer().ReplyReceived()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    const vyn::support::InterruptWatch::Event event = watch.Wait(static_cast<int>(left.count()));
    if (event == vyn::support::InterruptWatch::Event::kInterrupted) {
      std::fprintf(stderr, "interrupted before the reply came\n");
      throw CLI::RuntimeError(130);
    }
    if (event == vyn::support::InterruptWatch::Event::kOutputClosed) {
      throw CLI::RuntimeError(1);  // nobody would see the reply
    }
  }
  if (!session.printer().ReplyReceived()) {
    std::fprintf(stderr, "no reply within %d ms (a damaged reply is not shown)\n", options.wait_ms);
    throw CLI::RuntimeError(1);
  }
}

}  // namespace

void AddSendCommand(CLI::App& app) {
  CLI::App* send = app.add_subcommand("send", "Send one request to a device and show the reply");
  static SendOptions options;
  send->add_option("PORT", options.port, "Port name or path (COM1, ttyUSB0, /dev/pts/3)")
      ->required()
      ->check(NonEmptyPath());
  send->add_option("REQUEST", options.request, "Request name (see the list below)")->required();
  send->add_option("ARGS", options.args, "Arguments of the request");
  send->add_option("-b,--baud", options.baud_id, "Baud id 0-10 (6 = 57600)")
      ->transform(NumberIn(0, 10))
      ->capture_default_str();
  send->add_option("-w,--wait", options.wait_ms, "Milliseconds to wait for the reply")
      ->transform(NumberIn(1, 600000))
      ->capture_default_str();
  send->footer(RequestHelp());
  send->callback([] { RunSend(options); });
}

}  // namespace vyn::tool
