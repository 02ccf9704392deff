#include "tools/kvbackup/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <optional>

#include "tools/kvbackup/BackupRunner.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/CopyPlan.h"
#include "tools/kvbackup/DocumentStore.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/History.h"
#include "tools/kvbackup/Schedule.h"
#include "tools/kvbackup/SetList.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

/// The commands behind the parser.
class Commands {
 public:
  explicit Commands(const CommandLineEnvironment& environment)
      : environment_(environment), store_(environment.files, environment.homeFolder) {}

  /// What was typed for the command that was chosen.
  struct Input {
    std::string name;
    std::vector<std::string> sources;
    std::string destination;
    ScheduleRequest schedule;
    bool asJson = false;
  };

  int add(const Input& input) {
    BackupSet::checkName(input.name);
    const auto schedule = Schedule::from(input.schedule);
    if (!schedule) {
      throw Refusal(ExitStatus::kUsage,
                    "one of --daily, --weekly, --every and --once-a-day is required");
    }
    const auto sources = absolutePaths(input.sources);
    const std::string destination = CopyPlan::absolutePath(input.destination);
    CopyPlan::checkApart(sources, destination);
    store_.add(input.name, BackupSet::fresh(input.name, sources, destination, *schedule,
                                            environment_.clock.now()));
    return done("Added", input.name);
  }

  int edit(const Input& input) {
    const auto schedule = Schedule::from(input.schedule);
    if (!schedule && input.sources.empty() && input.destination.empty()) {
      throw Refusal(ExitStatus::kUsage, "nothing to change was given");
    }
    const auto sources = absolutePaths(input.sources);
    const std::string destination =
        input.destination.empty() ? "" : CopyPlan::absolutePath(input.destination);
    store_.edit(input.name, [&](PropertyList::Dictionary& record) {
      if (!sources.empty()) BackupSet::setSources(record, sources);
      if (!destination.empty()) record.set("destinationPath", destination);
      if (schedule) writeSchedule(*schedule, input.schedule, record);
      checkApart(record);
    });
    return done("Changed", input.name);
  }

  int remove(const Input& input) {
    store_.remove(input.name);
    return done("Removed", input.name);
  }

  int setRunState(const Input& input, bool mayRun) {
    store_.edit(input.name, [&](PropertyList::Dictionary& record) {
      if (mayRun) {
        BackupSet::release(record, environment_.clock.now());
      } else {
        BackupSet::hold(record);
      }
    });
    return done(mayRun ? "Released" : "Holding", input.name);
  }

  int list(const Input& input) const {
    const auto documents = store_.read();
    const auto lastRuns = History(environment_.historyFile).lastRuns();
    fmt::print("{}", input.asJson ? SetList::json(documents, lastRuns)
                                  : SetList::table(documents, lastRuns));
    const auto unreadable =
        std::find_if(documents.begin(), documents.end(), [](const ScheduleDocument& document) {
          return document.state == ScheduleDocument::State::kUnreadable;
        });
    if (unreadable == documents.end()) return 0;
    throw Refusal(ExitStatus::kDocumentUnreadable,
                  fmt::format("{} cannot be read as a list of backup sets", unreadable->path));
  }

  int run(const std::string& name) {
    return BackupRunner({.clock = environment_.clock,
                         .store = store_,
                         .stateFolder = environment_.stateFolder,
                         .historyFile = environment_.historyFile})
        .run(name);
  }

 private:
  static int done(const char* what, const std::string& name) {
    fmt::print("{} {}\n", what, shown(name));
    return static_cast<int>(ExitStatus::kDone);
  }

  static std::vector<std::string> absolutePaths(const std::vector<std::string>& paths) {
    std::vector<std::string> absolute;
    absolute.reserve(paths.size());
    for (const std::string& path : paths) absolute.push_back(CopyPlan::absolutePath(path));
    return absolute;
  }

  void writeSchedule(const Schedule& schedule, const ScheduleRequest& request,
                     PropertyList::Dictionary& record) const {
    PropertyList::Dictionary& options = BackupSet::options(record);
    const PropertyList before(record);
    const std::int64_t type = TaskRecord(before).type();
    const bool isHeld = BackupSet(before).isHeld();
    // On its own it changes how a daily or weekly set is judged, and leaves its days alone.
    if (request.isOnceADayAlone() && (type == kDaily || type == kWeekly)) {
      options.set("scheduleIt", 1);
      options.set("afterSleep", 1);
    } else {
      schedule.writeTo(options, environment_.clock.now());
    }
    if (isHeld) BackupSet::hold(record);
  }

  static void checkApart(const PropertyList::Dictionary& record) {
    const PropertyList whole(record);
    const BackupSet set(whole);
    const auto sources = set.sources();
    const auto destination = set.destination();
    if (sources && destination) CopyPlan::checkApart(*sources, *destination);
  }

  const CommandLineEnvironment& environment_;
  DocumentStore store_;
};

void addName(CLI::App& command, Commands::Input& input) {
  command.add_option("NAME", input.name, "Name of the backup set")->required();
}

void addSetOptions(CLI::App& command, Commands::Input& input, bool areRequired) {
  addName(command, input);
  command.add_option("--source", input.sources, "Folder to back up; several may be given")
      ->type_name("DIR")
      ->required(areRequired);
  command.add_option("--dest", input.destination, "Folder that receives the copies, in DIR/NAME")
      ->type_name("DIR")
      ->required(areRequired);
  command.add_option("--daily", input.schedule.daily, "Every day at this time")->type_name("HH:MM");
  command.add_option("--weekly", input.schedule.weekly, "On these weekdays at this time")
      ->type_name("DAYS HH:MM")
      ->expected(2);
  command.add_option("--every", input.schedule.every, "At this interval: 15m, 2h")
      ->type_name("INTERVAL");
  command.add_flag("--once-a-day", input.schedule.onceADay,
                   "As soon as a day (of --weekly, or any) begins, whatever the time");
}

/// The parser, whose commands are found again by their names.
class Parser {
 public:
  explicit Parser(Commands::Input& input) : app_("Backup sets: edit them, run them.", "kvbackup") {
    app_.set_version_flag("--version", "kvbackup " KV_VERSION);
    app_.require_subcommand(1);
    addSetOptions(*app_.add_subcommand("add", "Add a backup set"), input, true);
    addSetOptions(*app_.add_subcommand("edit", "Change a backup set"), input, false);
    addName(*app_.add_subcommand("remove", "Forget a backup set; its copies stay"), input);
    addName(*app_.add_subcommand("hold", "Keep a backup set from being started"), input);
    addName(*app_.add_subcommand("release", "Let a held backup set be started again"), input);
    addName(*app_.add_subcommand("run", "Run a backup set now"), input);
    app_.add_subcommand("list", "Show all backup sets")
        ->add_flag("--json", input.asJson, "As JSON, for programs");
    app_.footer("\n" + exitStatusHelp());  // last, so that the commands' own helps stay short
  }

  /// The name of the command; nothing when all is done (--help, --version).
  std::optional<std::string> parse(std::vector<std::string> arguments) {
    if (arguments.empty() || !isKnown(arguments.front())) {
      throw Refusal(ExitStatus::kUsage, arguments.empty()
                                            ? "a command is expected (try --help)"
                                            : fmt::format("there is no command \"{}\" (try --help)",
                                                          arguments.front()));
    }
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
    try {
      app_.parse(std::move(arguments));
    } catch (const CLI::Success& success) {
      app_.exit(success);
      return std::nullopt;
    } catch (const CLI::ParseError& error) {
      throw Refusal(ExitStatus::kUsage, fmt::format("{} (try --help)", error.what()));
    }
    return app_.get_subcommands().front()->get_name();
  }

 private:
  bool isKnown(const std::string& argument) const {
    const auto commands = app_.get_subcommands([](const CLI::App*) { return true; });
    return argument.starts_with('-') ||
           std::any_of(commands.begin(), commands.end(), [&argument](const CLI::App* command) {
             return command->get_name() == argument;
           });
  }

  CLI::App app_;
};

int runParsed(const std::vector<std::string>& arguments, Commands& commands) {
  Commands::Input input;
  const auto command = Parser(input).parse(arguments);
  if (!command) return static_cast<int>(ExitStatus::kDone);
  if (*command == "add") return commands.add(input);
  if (*command == "edit") return commands.edit(input);
  if (*command == "remove") return commands.remove(input);
  if (*command == "hold") return commands.setRunState(input, false);
  if (*command == "release") return commands.setRunState(input, true);
  if (*command == "run") return commands.run(input.name);
  return commands.list(input);
}

bool isLaunchToken(const std::string& argument) {
  return argument == "Qm3x7P" || argument == "4R82T6";
}

int complain(ExitStatus status, const std::string& reason) {
  fmt::print(stderr, "kvbackup: {}\n", shown(reason));
  return static_cast<int>(status);
}

}  // namespace

int runCommandLine(const std::vector<std::string>& arguments,
                   const CommandLineEnvironment& environment) {
  try {
    Commands commands(environment);
    if (arguments.empty() || !isLaunchToken(arguments.front())) {
      return runParsed(arguments, commands);
    }
    if (arguments.size() != 2) return complain(ExitStatus::kUsage, "one set's name is expected");
    return commands.run(arguments.back());
  } catch (const Refusal& refusal) {
    return complain(refusal.status(), refusal.what());
  } catch (const std::exception& error) {
    return complain(ExitStatus::kUnexpected, error.what());
  }
}

}  // namespace kv
