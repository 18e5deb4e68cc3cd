// The entry point of the message-box host process (vyn-rundll).
#include <string>

#include "vyn/core/command_line.h"
#include "vyn/diagnostics/internal/decimal_value.h"
#include "vyn/diagnostics/memory_dump.h"
#include "vyn/platform/message_box.h"

void ShowMessageBox(void* /*window*/, void* /*instance*/, const char* /*command_line*/,
                    int /*show*/) {
  CVYNCommandLine& command_line = GetVYNCommandLine();
  std::string text;
  std::string caption;
  std::string type;
  command_line.GetArgument(2, text);
  command_line.GetArgument(3, caption);
  command_line.GetArgument(4, type);
  if (text.empty()) text = "Unspecified text.";
  if (caption.empty()) caption = "Unspecified caption.";
  vyn::platform::PrepareMessageBoxDisplay();
  vyn::platform::ShowMessageBoxHere(text.c_str(), caption.c_str(),
                                    static_cast<uint32_t>(vyn::diagnostics::DecimalValue(type)));
}
