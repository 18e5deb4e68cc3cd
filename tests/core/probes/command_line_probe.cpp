// Prints every argument as the library's command-line service sees it, one
// per line between brackets, then the status of the first index past the end.
#include <cstdio>
#include <string>

#include "vyn/core/command_line.h"
#include "vyn/core/status.h"

int main() {
  CVYNCommandLine& command_line = GetVYNCommandLine();
  std::string argument;
  int32_t index = 0;
  int32_t status = VYN_STATUS_SUCCESS;
  while ((status = command_line.GetArgument(index, argument)) == VYN_STATUS_SUCCESS) {
    std::printf("[%s]\n", argument.c_str());
    ++index;
  }
  std::printf("%s\n", GetVYNStatusAsString(status).c_str());
  argument = "untouched";
  command_line.GetArgument(-1, argument);
  std::printf("%s %s\n", argument.c_str(), GetVYNStatusAsString(command_line.Initialize()).c_str());
  return 0;
}
