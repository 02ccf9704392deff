#include "tools/kvctl/ForecastCommand.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kvbackup/BackupSet.h"
#include "tools/kvctl/ExitStatus.h"
#include "tools/kvctl/Forecast.h"
#include "tools/kvctl/ForecastCalendar.h"
#include "tools/kvctl/ForecastChart.h"
#include "tools/kvctl/ForecastJson.h"
#include "tools/kvctl/ForecastListing.h"
#include "tools/kvctl/ForecastTexts.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

constexpr int kMostDays = 3660;

/// What was typed.
struct ForecastOptions {
  int days = 7;
  std::string duration = "20m";
  std::vector<std::string> absences;
  std::optional<std::string> asleep;
  std::optional<std::string> set;
  bool asChart = false;
  bool asCalendar = false;
};

[[noreturn]] void refuse(const std::string& reason) {
  throw Refusal(ExitStatus::kUsage, reason);
}

/// "90s", "20m", "2h", from a second to a day.
Seconds parseDuration(const std::string& text) {
  constexpr double kDay = 86400;
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  const std::string_view unit(result.ptr, static_cast<std::size_t>(end - result.ptr));
  const double scale = unit == "s" ? 1 : unit == "m" ? 60 : unit == "h" ? 3600 : 0;
  const double seconds = number * scale;
  if (result.ec != std::errc() || seconds < 1 || seconds > kDay) {
    refuse(fmt::format("--duration {}: no duration of a backup (try 20m, 90s or 2h; at most 24h)",
                       text));
  }
  return Seconds(seconds);
}

DailyWindow parseWindow(const char* option, const std::string& whole, std::string_view text) {
  const auto window = DailyWindow::parse(text);
  if (!window) {
    refuse(fmt::format("{} {}: no part of a day (try 22:00-07:00)", option, whole));
  }
  return *window;
}

/// "DEST:22:00-07:00"; the destination may hold colons and dashes.
SimulatedApplication::Absence parseAbsence(const std::string& text, const TaskList& sets) {
  // From the right: the dash, the colon within the time before it, the colon before that time.
  const auto dash = text.rfind('-');
  const auto minute = dash == std::string::npos ? dash : text.rfind(':', dash);
  const auto colon =
      minute == std::string::npos || minute == 0 ? std::string::npos : text.rfind(':', minute - 1);
  if (colon == std::string::npos || colon == 0) {
    refuse(
        fmt::format("--absent {}: a destination and a part of the day are wanted (try "
                    "/media/disk:22:00-07:00)",
                    text));
  }
  SimulatedApplication::Absence absence{
      text.substr(0, colon),
      parseWindow("--absent", text, std::string_view(text).substr(colon + 1))};
  while (absence.destination.size() > 1 && absence.destination.back() == '/') {
    absence.destination.pop_back();
  }
  const bool isKnown = std::any_of(sets.begin(), sets.end(), [&](const PropertyList& record) {
    const auto destination = BackupSet(record).destination();
    return destination && isWithin(*destination, absence.destination);
  });
  if (!isKnown) {
    refuse(
        fmt::format("--absent {}: no backup set has its destination in {} (kvctl list shows "
                    "them)",
                    text, absence.destination));
  }
  return absence;
}

bool showsUtf8() {
  for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value == nullptr || *value == '\0') continue;
    const std::string_view name(value);
    return name.find("UTF-8") != name.npos || name.find("utf8") != name.npos;
  }
  return false;
}

ForecastSubject subjectFor(const Context& context, const ForecastOptions& options,
                           const Sets& sets) {
  if (options.days < 1 || options.days > kMostDays) {
    refuse(fmt::format("--days {}: from 1 to {}", options.days, kMostDays));
  }
  if (int{context.asJson} + int{options.asChart} + int{options.asCalendar} > 1) {
    refuse("--json, --chart and --ical: one of them at a time");
  }
  ForecastSubject subject{.sets = sets.list(),
                          .names = namesIn(sets.list()),
                          .isShown = std::vector<bool>(sets.list().size()),
                          .plan = {.begin = context.clock->now(),
                                   .days = options.days,
                                   .locale = context.locale,
                                   .duration = parseDuration(options.duration),
                                   .pause = readPause(context)},
                          .style = context.style,
                          .hasBlocks = showsUtf8(),
                          .write = print};
  for (const SetEntry& entry : sets.find(options.set)) subject.isShown[entry.index] = true;
  for (const std::string& absence : options.absences) {
    subject.plan.absences.push_back(parseAbsence(absence, sets.list()));
  }
  if (options.asleep) {
    subject.plan.asleep = parseWindow("--asleep", *options.asleep, *options.asleep);
  }
  return subject;
}

std::unique_ptr<ForecastView> viewFor(const Context& context, const ForecastOptions& options,
                                      const ForecastSubject& subject) {
  if (context.asJson) return std::make_unique<ForecastJson>(subject);
  if (options.asCalendar) return std::make_unique<ForecastCalendar>(subject);
  if (options.asChart) return std::make_unique<ForecastChart>(subject);
  return std::make_unique<ForecastListing>(subject);
}

int runForecast(const Context& context, const ForecastOptions& options) {
  settleZone();
  const Sets sets(context);
  const ForecastSubject subject = subjectFor(context, options, sets);
  const auto view = viewFor(context, options, subject);
  view->begin();
  view->end(forecast(subject.sets, subject.plan, *view));
  sets.refuseUnreadable();
  return static_cast<int>(ExitStatus::kDone);
}

}  // namespace

void addForecastCommand(CLI::App& app, Selection& selection) {
  const auto options = std::make_shared<ForecastOptions>();
  CLI::App* const command =
      app.add_subcommand("forecast", "What will be backed up and when, if nothing else changes");
  command->add_option("SET", options->set, "Only this set; the others still stand in its way");
  command->add_option("--days", options->days, "How far to look: 1 to 3660 days")->type_name("N");
  command->add_option("--duration", options->duration, "How long a backup takes: 90s, 20m, 2h")
      ->type_name("TIME");
  command
      ->add_option("--absent", options->absences,
                   "A destination, or a folder of some, is away daily: DEST:22:00-07:00")
      ->type_name("DEST:FROM-UNTIL")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command->add_option("--asleep", options->asleep, "The computer sleeps daily: 23:00-07:00")
      ->type_name("FROM-UNTIL");
  command->add_flag("--chart", options->asChart, "As charts of a week each");
  command->add_flag("--ical", options->asCalendar, "As a calendar to import (iCalendar)");
  command->callback([&selection, options] {
    selection.run = [options](const Context& context) { return runForecast(context, *options); };
  });
}

}  // namespace kv::kvctl
