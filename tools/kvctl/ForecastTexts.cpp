#include "tools/kvctl/ForecastTexts.h"

#include <fmt/format.h>

#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/Output.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

std::string windowText(const DailyWindow& window) {
  return fmt::format("from {:02}:{:02} to {:02}:{:02}", window.from / 60, window.from % 60,
                     window.until / 60, window.until % 60);
}

std::string pauseText(const ForecastPlan& plan) {
  if (!plan.pause) return " and nothing is paused";
  const auto until = plan.pause->until;
  return until ? fmt::format("; the schedule is paused until {}", dayStamp(*until))
               : "; the schedule is paused, and nobody resumes it";
}

}  // namespace

std::string clockText(Date date) {
  return localStamp(date).substr(sizeof("2026-11-21"));
}

std::vector<std::string> namesIn(const TaskList& sets) {
  std::vector<std::string> names;
  for (std::size_t index = 0; index < sets.size(); ++index) {
    names.push_back(SetEntry{.index = index,
                             .document = 0,
                             .record = &sets[index],
                             .name = BackupSet(sets[index]).name().value_or("")}
                        .shownName());
  }
  return names;
}

std::string joinedNames(const std::vector<std::string>& names,
                        const std::vector<std::size_t>& which) {
  constexpr std::size_t kMost = 3;
  std::string text;
  for (std::size_t position = 0; position < which.size() && position < kMost; ++position) {
    text += (text.empty() ? "" : ", ") + names[which[position]];
  }
  if (which.size() > kMost) text += fmt::format(" and {} more", which.size() - kMost);
  return text;
}

std::string ruleText(const PropertyList& record) {
  const std::string text = BackupSet(record).scheduleText();
  return BackupSet(record).isInterval() ? text.substr(0, text.find(", due")) : text;
}

std::string delayText(const ForecastRun& run, const std::vector<std::string>& names) {
  if (!run.isLate()) return "";
  std::vector<std::string> causes;
  if (run.sleptUntil) {
    causes.push_back(fmt::format("the computer slept until {}", clockText(*run.sleptUntil)));
  }
  if (run.pausedUntil) {
    causes.push_back(fmt::format("paused until {}", clockText(*run.pausedUntil)));
  }
  if (run.missedVolume) causes.push_back("its destination was away");
  if (run.heldUpBy) {
    causes.push_back(
        fmt::format("held up by {}, which comes before it and whose destination was away",
                    names[*run.heldUpBy]));
  }
  if (!run.behind.empty()) {
    causes.push_back(fmt::format("waited behind {}", joinedNames(names, run.behind)));
  }
  std::string text;
  for (const std::string& cause : causes) text += (text.empty() ? "" : ", ") + cause;
  return text;
}

std::string reasonText(SkipReason reason) {
  switch (reason) {
    case SkipReason::kNoDestination:
      return "it has no destination";
    case SkipReason::kNoVolume:
      return "its destination is away whenever it is due";
    case SkipReason::kBusy:
      return "other backups run whenever it is due";
    case SkipReason::kPaused:
      return "the schedule is paused when it is due";
    case SkipReason::kStoredDay:
      return "it last ran on a day of the same number, so it counts as done";
    case SkipReason::kAsleep:
      return "the computer sleeps from when it is due until the day is over";
  }
  return "";
}

std::string skipText(const ForecastSkip& skip, const std::vector<std::string>& names) {
  std::string text = reasonText(skip.reason);
  if (skip.reason == SkipReason::kBusy && !skip.behind.empty()) {
    text += fmt::format(" ({})", joinedNames(names, skip.behind));
  }
  return text;
}

std::string assumptionText(const ForecastPlan& plan) {
  std::string text = fmt::format(
      "Supposed: the agent runs; at the beginning no backup runs{}; each backup takes {}, succeeds "
      "and is recorded; ",
      pauseText(plan), spanText(plan.duration));
  if (plan.absences.empty()) text += "all destinations are there, also what is not at present; ";
  for (const auto& absence : plan.absences) {
    text += fmt::format("{} is away {}; ", shown(absence.destination), windowText(absence.window));
  }
  text += plan.asleep ? fmt::format("the computer sleeps {}.", windowText(*plan.asleep))
                      : "the computer is awake.";
  return text;
}

}  // namespace kv::kvctl
