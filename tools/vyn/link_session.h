// What `vyn monitor`, `vyn send` and `vyn demo` share: the library's queue
// started as a distributor with a traffic printer registered, and the serial
// port opened with its receiving thread. The destructor stops all of it and
// gives the terminal behind the port its settings back.
#pragma once

#include <string>

#include "tools/vyn/terminal_guard.h"
#include "tools/vyn/traffic_printer.h"

namespace vyn::tool {

class LinkSession {
 public:
  // Throws CLI::RuntimeError (with a message on standard error) when the
  // port cannot be opened.
  LinkSession(const std::string& port, int baud_id, bool mcpu, bool show_sent);
  ~LinkSession();
  LinkSession(const LinkSession&) = delete;
  LinkSession& operator=(const LinkSession&) = delete;

  TrafficPrinter& printer() { return *printer_; }

 private:
  TerminalGuard terminal_;   // restored after the port is closed
  TrafficPrinter* printer_;  // owned by the library's queue once registered
};

}  // namespace vyn::tool
