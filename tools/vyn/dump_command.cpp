// vyn dump info: what a minidump holds (threads, modules, the exception).
#include <cstdio>
#include <string>

#include "tools/minidump/minidump_reader.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/number_grammar.h"

namespace vyn::tool {

void AddDumpCommand(CLI::App& app) {
  CLI::App* dump = app.add_subcommand("dump", "Inspect minidumps written by the crash handlers");
  dump->require_subcommand(1);
  CLI::App* info = dump->add_subcommand(
      "info", "Print the threads, modules, exception and memory of a minidump");
  static std::string path;
  info->add_option("FILE", path, "The dump file")->required()->check(NonEmptyPath());
  info->callback([] {
    minidump::DumpSummary summary;
    std::string error;
    if (!minidump::ReadMinidump(path, &summary, &error)) {
      std::fprintf(stderr, "%s\n", error.c_str());
      throw CLI::RuntimeError(1);
    }
    std::printf("%s", minidump::FormatSummary(summary).c_str());
  });
}

}  // namespace vyn::tool
