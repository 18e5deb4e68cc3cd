// vyn sim bootloader: a simulated STM32 system bootloader on a
// pseudo-terminal, steered from standard input so that a person or a script
// can inject faults while a firmware update runs against it.

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "sim/boot_loader_simulator.h"
#include "support/console_input.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/number_grammar.h"
#include "tools/vyn/output.h"
#include "tools/vyn/simulator_console.h"

namespace vyn::tool {
namespace {

namespace cmd = sim::boot_command;

constexpr const char* kCommandHelp =
    "Commands on standard input, one per line; each answers with one line, help with this list:\n"
    "  nack CMD [always] [after N] [result]\n"
    "                      answer NACK to command CMD (a code such as 0x31, or get, version,\n"
    "                      id, read, go, write, erase, xerase, protect, unprotect, rprotect,\n"
    "                      runprotect): once, or always; after N more of them pass; at its\n"
    "                      last answer instead of its first, so that its work is refused\n"
    "  nack off            no more injected NACKs\n"
    "  loseack [N]         the ACK after N more is not sent (default 0: the next)\n"
    "  loseack off         no ACK is lost\n"
    "  silent on|off       drop everything received and answer nothing\n"
    "  chipid ID|default   report another chip id (e.g. 0x0410)\n"
    "  version V|default   report another bootloader version (e.g. 0x20 for 2.0)\n"
    "  wp on|off           write-protect every page, or none\n"
    "  rdp on|off          readout protection\n"
    "  clear               undo nack, loseack, silent, chipid and version\n"
    "  reset               the chip restarts and waits for the connect byte\n"
    "  unplug              close the terminal: the port hangs up, the path goes away\n"
    "  replug              a new terminal under the same path, the chip restarted\n"
    "  baud N              pace the line at N baud (0: unpaced)\n"
    "  flash ADDR [N]      print N bytes of flash from ADDR in hex (default 16, at most 256)\n"
    "  stats               print the counters\n"
    "  help                print this list\n"
    "  quit                stop, as the end of input or Ctrl-C do\n";

struct BootSimOptions {
  sim::BootLoaderSimulatorOptions settings;
  unsigned chip_id = 0;
  unsigned version = 0;
  uint32_t page_size = 0;  // 0: the sector layout of the defaults
  uint32_t erase_ms = 0;
};

// The fastest pace the simulated line takes, on the command line and on input.
constexpr int64_t kMaxBaud = 100'000'000;

// A number from 0 to `limit` by the program's rule; `refusal` says why not.
bool ParseNumber(std::string_view text, int64_t limit, unsigned long* value, std::string* refusal) {
  const std::optional<int64_t> number = vyn::tool::ParseNumber(text, 0, limit, refusal);
  if (number) *value = static_cast<unsigned long>(*number);
  return number.has_value();
}

bool ParseCommandCode(std::string_view text, uint8_t* code, std::string* refusal) {
  static constexpr std::pair<std::string_view, uint8_t> kNames[] = {
      {"get", cmd::kGet},
      {"version", cmd::kGetVersion},
      {"id", cmd::kGetId},
      {"read", cmd::kReadMemory},
      {"go", cmd::kGo},
      {"write", cmd::kWriteMemory},
      {"erase", cmd::kErase},
      {"xerase", cmd::kExtendedErase},
      {"protect", cmd::kWriteProtect},
      {"unprotect", cmd::kWriteUnprotect},
      {"rprotect", cmd::kReadoutProtect},
      {"runprotect", cmd::kReadoutUnprotect},
  };
  for (const auto& [name, value] : kNames) {
    if (text == name) {
      *code = value;
      return true;
    }
  }
  unsigned long number = 0;
  if (!ParseNumber(text, 0xFF, &number, refusal)) return false;
  *code = static_cast<uint8_t>(number);
  return true;
}

bool ParseSwitch(std::string_view text, bool* on) {
  if (text != "on" && text != "off") return false;
  *on = text == "on";
  return true;
}

// "nack CMD [always] [after N] [result]" into a fault.
bool ParseNack(const std::vector<std::string_view>& words, sim::NackFault* fault,
               std::string* refusal) {
  if (words.size() < 2 || !ParseCommandCode(words[1], &fault->command, refusal)) return false;
  for (size_t i = 2; i < words.size(); ++i) {
    unsigned long skip = 0;
    if (words[i] == "always") {
      fault->repeat = sim::FaultRepeat::kAlways;
    } else if (words[i] == "once") {
      fault->repeat = sim::FaultRepeat::kOnce;
    } else if (words[i] == "result") {
      fault->point = sim::NackPoint::kResult;
    } else if (words[i] == "after" && i + 1 < words.size() &&
               ParseNumber(words[i + 1], 0xFFFFFFFF, &skip, refusal)) {
      fault->skip = static_cast<uint32_t>(skip);
      ++i;
    } else {
      return false;
    }
  }
  return true;
}

void PrintCounters(const sim::BootLoaderSimulator& chip) {
  const sim::BootLoaderSimulatorCounters c = chip.counters();
  const auto n = [](uint64_t value) { return static_cast<unsigned long long>(value); };
  PrintOutput(
      "stats: bytes received %llu; sent %llu; ignored %llu; discarded %llu; connects %llu; "
      "commands %llu; acks %llu; nacks %llu (injected %llu); lost acks %llu; checksum errors "
      "%llu; blocks written %llu; bytes written %llu; bytes read %llu; pages erased %llu; mass "
      "erases %llu; go %llu; resets %llu; %s; %s\n",
      n(c.bytes_received), n(c.bytes_sent), n(c.ignored_bytes), n(c.discarded_bytes), n(c.connects),
      n(c.commands), n(c.acks), n(c.nacks), n(c.injected_nacks), n(c.lost_acks),
      n(c.checksum_errors), n(c.blocks_written), n(c.bytes_written), n(c.bytes_read),
      n(c.pages_erased), n(c.mass_erases), n(c.go_commands), n(c.resets),
      chip.IsConnected() ? "connected" : "waiting for connect",
      chip.IsPlugged() ? "plugged" : "unplugged");
}

void PrintFlash(const sim::BootLoaderSimulator& chip, unsigned long address, unsigned long count) {
  const std::vector<uint8_t> flash = chip.FlashContents();
  const unsigned long base = chip.flash_base();
  if (address < base || address - base >= flash.size()) {
    PrintOutput("error: 0x%08lX is not in the flash (0x%08lX, %zu bytes)\n", address, base,
                flash.size());
    return;
  }
  const unsigned long offset = address - base;
  count = std::min<unsigned long>(count, flash.size() - offset);
  PrintOutput("flash 0x%08lX:", address);
  for (unsigned long i = 0; i < count; ++i) PrintOutput(" %02X", flash[offset + i]);
  PrintOutput("\n");
}

// Carries out one command line; false for "quit".
bool RunCommand(sim::BootLoaderSimulator& chip, const std::vector<std::string_view>& words) {
  const std::string_view command = words[0];
  const std::string_view argument = words.size() > 1 ? words[1] : std::string_view();
  const bool one_argument = words.size() == 2;
  unsigned long number = 0;
  bool on = false;
  std::string answer;
  std::string refusal;  // why a number was not taken
  sim::NackFault fault;
  if (command == "nack" && one_argument && argument == "off") {
    chip.ClearNack();
    answer = "ok: no NACK injected";
  } else if (command == "nack" && ParseNack(words, &fault, &refusal)) {
    chip.InjectNack(fault);
    char text[128];
    std::snprintf(text, sizeof text, "ok: NACK for command 0x%02X %s%s", fault.command,
                  fault.repeat == sim::FaultRepeat::kAlways ? "always" : "once",
                  fault.point == sim::NackPoint::kResult ? " at its result" : "");
    answer = text;
  } else if (command == "loseack" && one_argument && argument == "off") {
    chip.ClearLostAck();
    answer = "ok: no ACK lost";
  } else if (command == "loseack" &&
             (words.size() == 1 ||
              (one_argument && ParseNumber(argument, 0xFFFFFFFF, &number, &refusal)))) {
    chip.LoseAck(static_cast<uint32_t>(number));
    answer = "ok: an ACK will be lost";
  } else if (command == "silent" && one_argument && ParseSwitch(argument, &on)) {
    chip.SetSilent(on);
    answer = on ? "ok: silent" : "ok: answering";
  } else if (command == "chipid" && one_argument && argument == "default") {
    chip.SetChipId(chip.options().chip_id);
    answer = "ok: chip id restored";
  } else if (command == "chipid" && one_argument &&
             ParseNumber(argument, 0xFFFF, &number, &refusal)) {
    chip.SetChipId(static_cast<uint16_t>(number));
    answer = "ok: chip id set";
  } else if (command == "version" && one_argument && argument == "default") {
    chip.SetVersion(chip.options().version);
    answer = "ok: version restored";
  } else if (command == "version" && one_argument &&
             ParseNumber(argument, 0xFF, &number, &refusal)) {
    chip.SetVersion(static_cast<uint8_t>(number));
    answer = "ok: version set";
  } else if (command == "wp" && one_argument && ParseSwitch(argument, &on)) {
    chip.SetWriteProtected(on);
    answer = on ? "ok: write-protected" : "ok: not write-protected";
  } else if (command == "rdp" && one_argument && ParseSwitch(argument, &on)) {
    chip.SetReadProtected(on);
    answer = on ? "ok: readout-protected" : "ok: not readout-protected";
  } else if (command == "clear" && words.size() == 1) {
    chip.ClearFaults();
    answer = "ok: faults cleared";
  } else if (command == "reset" && words.size() == 1) {
    chip.Reset();
    answer = "ok: the chip restarted";
  } else if (command == "unplug" && words.size() == 1) {
    answer = chip.Unplug() ? "ok: unplugged" : "error: unplug failed";
  } else if (command == "replug" && words.size() == 1) {
    answer = chip.Replug() ? "ok: plugged in" : "error: replug failed";
  } else if (command == "baud" && one_argument &&
             ParseNumber(argument, kMaxBaud, &number, &refusal)) {
    chip.SetBaudRate(static_cast<uint32_t>(number));
    answer = "ok: baud rate set";
  } else if (command == "flash" && (one_argument || words.size() == 3) &&
             ParseNumber(argument, 0xFFFFFFFF, &number, &refusal)) {
    unsigned long count = 16;
    if (words.size() == 3 && (!ParseNumber(words[2], 256, &count, &refusal) || count == 0)) {
      answer = "error: " + NumberRefusal(words[2], 1, 256);
    } else {
      PrintFlash(chip, number, count);
    }
  } else if (command == "stats" && words.size() == 1) {
    PrintCounters(chip);
  } else if (command == "help") {
    WriteOutputText(kCommandHelp);
  } else if (command == "quit" || command == "exit") {
    return false;
  } else {
    answer =
        refusal.empty() ? "error: unknown command or argument (try help)" : "error: " + refusal;
  }
  if (!answer.empty()) PrintOutput("%s\n", answer.c_str());
  return true;
}

int RunSimBootLoader(BootSimOptions options) {
  // Before the simulator's thread exists, so that Ctrl-C reaches us as input.
  support::ConsoleInput input;
  options.settings.chip_id = static_cast<uint16_t>(options.chip_id);
  options.settings.version = static_cast<uint8_t>(options.version);
  if (options.page_size != 0) options.settings.page_sizes = {options.page_size};
  options.settings.page_erase_time = std::chrono::milliseconds(options.erase_ms);
  sim::BootLoaderSimulator chip(options.settings);
  if (!chip.Start()) {
    return ReportSimulatorStartFailure("vyn sim bootloader", "chip", chip.port_path(),
                                       chip.LinkTaken());
  }
  RunSimulatorConsole(input, chip.port_path(),
                      [&chip](const auto& words) { return RunCommand(chip, words); });
  chip.Stop();
  return 0;
}

}  // namespace

void AddSimBootLoaderCommand(CLI::App& sim) {
  auto options = std::make_shared<BootSimOptions>();
  sim::BootLoaderSimulatorOptions& s = options->settings;
  s.baud_rate = 115200;
  options->chip_id = s.chip_id;
  options->version = s.version;
  CLI::App* boot = sim.add_subcommand(
      "bootloader",
      "Run a simulated STM32 system bootloader; prints the port path to open on its first line "
      "and runs until standard input ends, 'quit' or Ctrl-C");
  boot->add_option("--dir", s.link_directory,
                   "Existing directory for the port link (default: a new one below /tmp)")
      ->check(NonEmptyPath());
  boot->add_option("--name", s.link_name, "Name of the port link")
      ->capture_default_str()
      ->check(NonEmptyPath());
  boot->add_option("--baud", s.baud_rate, "Pace the line at this baud rate, 0 for unpaced")
      ->capture_default_str()
      ->transform(NumberIn(0, kMaxBaud));
  boot->add_option("--chip-id", options->chip_id, "Chip id reported by Get ID (default 0x0413)")
      ->transform(NumberIn(0, 0xFFFF));
  boot->add_option("--version", options->version,
                   "Bootloader version, major and minor in the nibbles of a byte (default 0x31)")
      ->transform(NumberIn(0, 0xFF));
  boot->add_option("--flash-base", s.flash_base, "Address of the flash")
      ->capture_default_str()
      ->transform(NumberIn(0, 0xFFFFFFFF));
  boot->add_option("--flash-size", s.flash_size, "Size of the flash in bytes")
      ->capture_default_str()
      ->transform(NumberIn(1, sim::BootLoaderSimulator::kMaxFlashSize));
  boot->add_option("--page-size", options->page_size,
                   "Uniform page size in bytes (default: sectors of 16, 16, 16, 16, 64 and then "
                   "128 KiB)")
      ->transform(NumberIn(1, sim::BootLoaderSimulator::kMaxFlashSize));
  boot->add_option("--erase-ms", options->erase_ms, "Time to erase one page, in milliseconds")
      ->transform(NumberIn(0, 60000));
  boot->add_flag("--read-protected", s.read_protected, "Start with readout protection");
  boot->add_flag("--write-protected", s.write_protected, "Start with every page write-protected");
  boot->footer(kCommandHelp);
  boot->callback([options] {
    const int result = RunSimBootLoader(*options);
    if (result != 0) throw CLI::RuntimeError(result);
  });
}

}  // namespace vyn::tool
