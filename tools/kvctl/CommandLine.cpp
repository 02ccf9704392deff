#include "tools/kvctl/CommandLine.h"

#include <fmt/format.h>
#include <sys/ioctl.h>
#include <time.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <optional>

#include "app/StartupError.h"
#include "platform/linux/PosixFiles.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/UserPaths.h"
#include "tools/kvctl/CheckCommand.h"
#include "tools/kvctl/Context.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/ForecastCommand.h"
#include "tools/kvctl/ListCommand.h"
#include "tools/kvctl/RecordCommand.h"
#include "tools/kvctl/ReplayCommand.h"
#include "tools/kvctl/StatusCommand.h"
#include "tools/kvctl/TraceCommand.h"
#include "tools/kvctl/WhyCommand.h"

namespace kv::kvctl {
namespace {

/// What was typed for the options that all commands share.
struct CommonOptions {
  std::optional<std::string> home;
  std::optional<std::string> at;
  std::optional<std::string> zone;
  std::optional<std::string> locale;
  std::optional<std::string> bundle;
  std::string colour = "auto";
  bool asJson = false;
};

/// The parser, and what it has read.
struct CommandLine {
  CommonOptions options;
  Selection selection;
  CLI::App app{"Tells what the backup scheduler does, and why. It changes nothing.", "kvctl"};
};

void addCommonOptions(CommandLine& line) {
  CommonOptions& options = line.options;
  CLI::App& app = line.app;
  app.fallthrough();  // the options may stand behind the command too
  app.add_flag("--json", options.asJson, "As JSON, for programs");
  app.add_option("--home", options.home, "The home folder to look at, instead of the own one")
      ->type_name("DIR");
  app.add_option("--at", options.at,
                 "As if it were this time: \"2026-11-21 09:30\", \"09:30\", an instant with Z")
      ->type_name("TIME");
  app.add_option("--zone", options.zone, "The time zone, like Europe/Berlin")->type_name("ZONE");
  app.add_option("--locale", options.locale, "The locale, like de_DE: where the week starts")
      ->type_name("LOCALE");
  app.add_option("--bundle", options.bundle, "The folder with the host's scripts")
      ->type_name("DIR");
  app.add_option("--color", options.colour, "Colours: auto, always or never")
      ->check(CLI::IsMember({"auto", "always", "never"}));
}

/// Whether the system knows the zone by this name. A name that it does not know would silently mean
/// UTC.
bool isKnownZone(const std::string& zone) {
  const bool isName = !zone.empty() && zone.front() != '/' && zone.find("..") == std::string::npos;
  std::error_code error;
  return isName && std::filesystem::is_regular_file("/usr/share/zoneinfo/" + zone, error);
}

void applyToEnvironment(const CommonOptions& options) {
  if (options.home) {
    std::error_code error;
    const auto path = std::filesystem::absolute(*options.home, error);
    if (error || !std::filesystem::is_directory(path, error)) {
      throw Refusal(ExitStatus::kUsage, fmt::format("{}: there is no such folder", *options.home));
    }
    setenv("HOME", path.c_str(), 1);
    unsetenv("XDG_STATE_HOME");
    unsetenv("XDG_CONFIG_HOME");
  }
  if (options.zone) {
    if (!isKnownZone(*options.zone)) {
      throw Refusal(ExitStatus::kUsage,
                    fmt::format("{}: no such time zone (try Europe/Berlin or UTC)", *options.zone));
    }
    setenv("TZ", (":" + *options.zone).c_str(), 1);
  }
  if (options.locale) setenv("LC_ALL", options.locale->c_str(), 1);
  tzset();
}

Style styleFor(const std::string& colour) {
  constexpr std::size_t kWidest = 120;
  Style style;
  const char* const refusal = std::getenv("NO_COLOR");
  const char* const terminal = std::getenv("TERM");
  const bool isTerminal = isatty(STDOUT_FILENO) == 1;
  const bool isCapable = terminal != nullptr && std::string_view(terminal) != "dumb";
  const bool isRefused = refusal != nullptr && *refusal != '\0';
  style.hasColours =
      colour == "always" || (colour == "auto" && isTerminal && isCapable && !isRefused);
  winsize size{};
  if (isTerminal && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
    style.width = std::min<std::size_t>(size.ws_col, kWidest);
  }
  return style;
}

Context contextFor(const CommonOptions& options) {
  applyToEnvironment(options);
  Context context;
  context.clock = std::make_shared<SystemClock>();
  context.files = std::make_shared<PosixFiles>();
  context.locale = DateLocale::fromEnvironment();
  context.homeFolder = homeFolder();
  context.stateFolder = stateFolder();
  context.settingsFolder = settingsFolder();
  context.historyFile = historyFile();
  context.programFolder = programFolder();
  context.bundle = options.bundle.value_or(context.programFolder + "/../share/KVScheduler");
  context.isInstalledBundle = !options.bundle;
  context.isOwnHome = !options.home;
  context.asJson = options.asJson;
  context.style = styleFor(options.colour);
  if (options.at) {
    const auto date = parseTime(*options.at, context.clock->now());
    if (!date) {
      throw Refusal(ExitStatus::kUsage,
                    fmt::format("{}: no such time here (try \"2026-11-21 09:30\")", *options.at));
    }
    context.clock = std::make_shared<StandingClock>(*date);
    context.isAboutNow = false;
  }
  return context;
}

void addCommands(CommandLine& line) {
  addCheckCommand(line.app, line.selection);
  addStatusCommand(line.app, line.selection);
  addListCommand(line.app, line.selection);
  addForecastCommand(line.app, line.selection);
  addTraceCommand(line.app, line.selection);
  addRecordCommand(line.app, line.selection);
  addReplayCommand(line.app, line.selection);
  addWhyCommand(line.app, line.selection);
}

/// False when all is done (--help, --version).
bool parse(CommandLine& line, std::vector<std::string> arguments) {
  line.app.set_version_flag("--version", "kvctl " KV_VERSION);
  addCommonOptions(line);
  addCommands(line);
  line.app.footer("\n" + exitStatusHelp());
  for (CLI::App* command : line.app.get_subcommands({})) command->footer("");
  line.app.require_subcommand(1);
  std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
  try {
    line.app.parse(std::move(arguments));
  } catch (const CLI::Success& success) {
    line.app.exit(success);
    return false;
  } catch (const CLI::ParseError& error) {
    throw Refusal(ExitStatus::kUsage, fmt::format("{} (try --help)", error.what()));
  }
  return true;
}

int complain(ExitStatus status, const std::string& reason) {
  fmt::print(stderr, "kvctl: {}\n", shown(reason));
  return static_cast<int>(status);
}

}  // namespace

int runCommandLine(const std::vector<std::string>& arguments) {
  try {
    CommandLine line;
    if (!parse(line, arguments)) return static_cast<int>(ExitStatus::kDone);
    return line.selection.run(contextFor(line.options));
  } catch (const Refusal& refusal) {
    return complain(refusal.status(), refusal.what());
  } catch (const StartupError& error) {  // of the host's scripts
    return complain(ExitStatus::kUnreadable, error.what());
  } catch (const std::exception& error) {
    return complain(ExitStatus::kUnexpected, error.what());
  }
}

}  // namespace kv::kvctl
