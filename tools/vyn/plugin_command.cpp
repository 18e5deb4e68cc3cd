// vyn plugin: loads plug-ins into this process and drives them by hand.
// Every vyn run is one process, and plug-ins live only as long as it does,
// so the command either runs a whole sequence from its arguments (load) or
// reads commands from standard input until it ends (shell).
#include <cstdio>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "support/console_input.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/number_grammar.h"
#include "tools/vyn/output.h"
#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"
#include "vyn/log/system_log.h"
#include "vyn/plugins/plugin_manager.h"

namespace vyn::tool {
namespace {

constexpr const char* kShellHelp =
    "Commands, one a line:\n"
    "  load PATH            load a plug-in (PATH with '/' is a path, else searched)\n"
    "  list                 the plug-ins in load order, with what they offer\n"
    "  event N [TEXT]       event N to every plug-in that takes events\n"
    "  send NAME N [TEXT]   event N to one plug-in\n"
    "  dialog NAME          show a plug-in's dialog\n"
    "  unload NAME | all    unload one plug-in, or every one\n"
    "  help, quit\n";

constexpr const char* kEventHelp =
    "Events: the data of an event is TEXT as a zero-terminated string, or none\n"
    "without TEXT; N may be decimal or 0x-hexadecimal. A result that names a\n"
    "status is shown with its name; other numbers are the plug-in's own (the\n"
    "example event counter answers event 1000 with its count).\n";

// The result of an entry point: a number, with the status's name when it
// is one.
std::string Result(int32_t status) {
  const std::string name = GetVYNStatusAsString(status);
  return name == "???" ? std::to_string(status) : std::to_string(status) + " (" + name + ")";
}

// An event number: any 32-bit signed number; `refusal` says why not.
bool ParseEvent(const std::string& text, int32_t* event, std::string* refusal) {
  const std::optional<int64_t> value = ParseNumber(text, INT32_MIN, INT32_MAX, refusal);
  if (value) *event = static_cast<int32_t>(*value);
  return value.has_value();
}

// The plug-in manager of this process, with the library's log shown on
// standard error when asked. Whatever is still loaded at the end is unloaded.
class PluginSession {
 public:
  explicit PluginSession(bool show_log) : show_log_(show_log) {
    if (show_log_) {
      view_.SetLimitText(0);
      view_.SetInsertObserver([](const std::string& line) {
        std::string shown = line;
        while (!shown.empty() && (shown.back() == '\n' || shown.back() == '\r')) shown.pop_back();
        std::fprintf(stderr, "log | %s\n", shown.c_str());
      });
      GetVYNSystemLogEx().SetEnableOutput(true);
      GetVYNSystemLogEx().Initialize(&view_, "vyn plugin", "");
    }
    GetVYNPluginManager().Initialize();
  }

  ~PluginSession() {
    for (const std::string& name : Names()) Unload(name);
    GetVYNPluginManager().Terminate();
    if (show_log_) GetVYNSystemLogEx().Terminate();
  }

  PluginSession(const PluginSession&) = delete;
  PluginSession& operator=(const PluginSession&) = delete;

  bool Load(const std::string& path) {
    const int32_t status = GetVYNPluginManager().LoadPlugin(path);
    Print("load " + path + ": " + Result(status));
    return status == VYN_STATUS_SUCCESS;
  }

  void List() {
    CVYNPluginManager& manager = GetVYNPluginManager();
    const std::vector<std::string> names = Names();
    if (names.empty()) Print("no plug-ins loaded");
    for (size_t i = 0; i < names.size(); ++i) {
      const bool dialog = manager.CallPluginShowDialog(names[i], true) == VYN_STATUS_SUCCESS;
      const bool events =
          manager.CallPluginProcessEvent(names[i], 0, nullptr, true) == VYN_STATUS_SUCCESS;
      Print(std::to_string(i) + " " + names[i] + (dialog ? " [dialog]" : "") +
            (events ? " [events]" : ""));
    }
  }

  // To each plug-in by name rather than through the manager's event to all,
  // so that every plug-in's answer can be shown.
  void Event(int32_t event, const std::string* text) {
    bool sent = false;
    for (const std::string& name : Names()) {
      if (GetVYNPluginManager().CallPluginProcessEvent(name, event, nullptr, true) ==
          VYN_STATUS_SUCCESS) {
        Send(name, event, text);
        sent = true;
      }
    }
    if (!sent) Print("event " + std::to_string(event) + ": no plug-in takes events");
  }

  void Send(const std::string& name, int32_t event, const std::string* text) {
    // A copy the plug-in may even write to, zero-terminated.
    std::vector<char> data;
    if (text != nullptr) data.assign(text->c_str(), text->c_str() + text->size() + 1);
    const int32_t status = GetVYNPluginManager().CallPluginProcessEvent(
        name, event, data.empty() ? nullptr : data.data(), false);
    Print("event " + std::to_string(event) + " to " + name + ": " + Result(status));
  }

  void Dialog(const std::string& name) {
    const int32_t status = GetVYNPluginManager().CallPluginShowDialog(name, false);
    Print("dialog " + name + ": " + Result(status));
  }

  void Unload(const std::string& name) {
    CVYNPluginManager& manager = GetVYNPluginManager();
    if (name == "all" && manager.GetPlugin(name) == nullptr) {
      for (const std::string& each : Names()) Unload(each);
      return;
    }
    const int32_t status = manager.UnloadPlugin(manager.GetPlugin(name));
    Print("unload " + name + ": " + Result(status));
  }

  // Runs one line of the shell; false once it asks to quit.
  bool Execute(const std::string& line) {
    std::istringstream words(line);
    std::string command;
    if (!(words >> command) || command[0] == '#') return true;
    std::string rest;
    std::getline(words >> std::ws, rest);
    if (command == "quit" || command == "exit") return false;
    if (command == "help") {
      WriteOutputText(kShellHelp);
      WriteOutputText(kEventHelp);
    } else if (command == "list") {
      List();
    } else if ((command == "load" || command == "dialog" || command == "unload") && !rest.empty()) {
      if (command == "load") Load(rest);
      if (command == "dialog") Dialog(rest);
      if (command == "unload") Unload(rest);
    } else if (command == "event" || command == "send") {
      std::istringstream arguments(rest);
      std::string name;
      if (command == "send") arguments >> name;
      std::string number;
      std::string text;
      arguments >> number >> std::ws;
      std::getline(arguments, text);
      int32_t event = 0;
      std::string refusal;
      if ((command == "send" && name.empty()) || number.empty()) {
        Print(command == "send" ? "usage: send NAME N [TEXT]" : "usage: event N [TEXT]");
      } else if (!ParseEvent(number, &event, &refusal)) {
        Print("error: " + refusal);
      } else if (command == "send") {
        Send(name, event, text.empty() ? nullptr : &text);
      } else {
        Event(event, text.empty() ? nullptr : &text);
      }
    } else {
      // Only the first word, cut short: the line may be anything at all.
      Print((rest.empty() && (command == "load" || command == "dialog" || command == "unload")
                 ? "missing argument: "
                 : "unknown command: ") +
            command.substr(0, 40) + " (try help)");
    }
    return true;
  }

 private:
  std::vector<std::string> Names() {
    std::vector<std::string> names;
    std::string name;
    while (GetVYNPluginManager().GetPlugin(static_cast<int32_t>(names.size()), name) ==
           VYN_STATUS_SUCCESS) {
      names.push_back(name);
    }
    return names;
  }

  static void Print(const std::string& line) { PrintOutput("%s\n", line.c_str()); }

  bool show_log_;
  CMemoryEdit view_;
};

struct PluginOptions {
  std::vector<std::string> paths;
  std::vector<std::string> events;
  bool dialogs = false;
  bool list = false;
  bool log = false;
};

void RunLoad(const PluginOptions& options) {
  // Every event is checked before anything is loaded.
  std::vector<std::pair<int32_t, std::optional<std::string>>> events;
  for (const std::string& argument : options.events) {
    const size_t colon = argument.find(':');
    int32_t event = 0;
    std::string refusal;
    if (!ParseEvent(argument.substr(0, colon), &event, &refusal)) {
      throw CLI::ValidationError("--event", refusal);
    }
    // A colon gives a text, even an empty one; without it there is no data.
    std::optional<std::string> text;
    if (colon != std::string::npos) text = argument.substr(colon + 1);
    events.emplace_back(event, text);
  }
  bool all_loaded = true;
  {
    PluginSession session(options.log);
    for (const std::string& path : options.paths) all_loaded = session.Load(path) && all_loaded;
    if (options.list) session.List();
    for (const auto& [event, text] : events) {
      session.Event(event, text ? &*text : nullptr);
    }
    if (options.dialogs) {
      for (const std::string& path : options.paths) {
        if (GetVYNPluginManager().CallPluginShowDialog(path, true) == VYN_STATUS_SUCCESS) {
          session.Dialog(path);
        }
      }
    }
  }
  if (!all_loaded) throw CLI::RuntimeError(1);
}

void RunShell(const PluginOptions& options) {
  // Before the log's thread starts, so that Ctrl-C reaches us as input.
  vyn::support::ConsoleInput console;
  PluginSession session(options.log);
  for (const std::string& path : options.paths) session.Load(path);
  std::string line;
  while (console.ReadLine(&line) == vyn::support::ConsoleInput::Result::kLine &&
         session.Execute(line)) {
  }
}

}  // namespace

void AddPluginCommand(CLI::App& app) {
  CLI::App* plugin = app.add_subcommand("plugin", "Load plug-ins and send them events and dialogs");
  plugin->require_subcommand(1);
  plugin->footer(
      "Plug-ins live as long as this process: 'load' runs one sequence from its\n"
      "arguments, 'shell' reads commands from standard input. Whatever is still\n"
      "loaded at the end is unloaded (its PluginTerminate runs).");
  static PluginOptions options;
  const auto add_log = [](CLI::App* command) {
    command->add_flag("--log", options.log,
                      "Show the library's log on standard error (also writes Logs/ here)");
  };

  CLI::App* load = plugin->add_subcommand(
      "load", "Load plug-ins, send events, show dialogs, then unload them all");
  load->add_option("PATH", options.paths, "Plug-in files, in load order")
      ->required()
      ->check(NonEmptyPath());
  load->add_option("-e,--event", options.events,
                   "N or N:TEXT, sent to every plug-in that takes events (repeatable, in order)");
  load->add_flag("-d,--dialog", options.dialogs, "Show the dialog of every plug-in that has one");
  load->add_flag("-l,--list", options.list, "List the plug-ins after loading");
  add_log(load);
  load->footer(std::string(kEventHelp) + "Exit status 1 when a load did not return success.");
  load->callback([] { RunLoad(options); });

  CLI::App* shell = plugin->add_subcommand("shell", "Load plug-ins, then take commands from input");
  shell->add_option("PATH", options.paths, "Plug-in files to load first")->check(NonEmptyPath());
  add_log(shell);
  shell->footer(std::string(kShellHelp) + kEventHelp);
  shell->callback([] { RunShell(options); });
}

}  // namespace vyn::tool
