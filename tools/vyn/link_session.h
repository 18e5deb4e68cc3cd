// What `vyn monitor`, `vyn send` and `vyn demo` share: the library's queue
// started as a distributor with a traffic printer registered, and the serial
// port opened with its receiving thread. The destructor stops all of it;
// closing the port gives the terminal behind it its settings back (the
// serial device does that), so a terminal session opened as a port by
// mistake is not left raw.
#pragma once

#include <string>

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
  TrafficPrinter* printer_;  // owned by the library's queue once registered
};

}  // namespace vyn::tool
