#include "app/CommandLine.h"

#include <CLI/CLI.hpp>

namespace kv {

std::optional<CommandLine> CommandLine::parse(int argc, const char* const* argv, int& exitStatus) {
  CommandLine commandLine;
  CLI::App app("Starts the backups that are due, as its host script tells it to.", "KVScheduler");
  app.add_option("--bundle", commandLine.bundle, "The folder with Info.plist and Scripts/*.js")
      ->type_name("DIR");
  app.set_version_flag("--version", "KVScheduler " KV_VERSION);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& reason) {
    exitStatus = app.exit(reason);
    return std::nullopt;
  }
  return commandLine;
}

}  // namespace kv
