#include "tools/kvctl/ScheduleProblems.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <utility>

#include "platform/LocalTime.h"
#include "scheduler/FieldReaders.h"
#include "scheduler/NextRun.h"
#include "scheduler/NoTrace.h"
#include "scheduler/Rules.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/RunRecorder.h"
#include "tools/kvbackup/Schedule.h"
#include "tools/kvctl/ScheduleArguments.h"

namespace kv::kvctl {
namespace {

using Severity = Problem::Severity;

constexpr Seconds kDay{24.0 * 3600};
/// A next-due date may be rounded up to the whole minute.
constexpr Seconds kRounding{60};
PropertyList weeklyOn(std::size_t day) {
  PropertyList::Dictionary options;
  options.set("dayWeekOrHour", std::int64_t{kWeekly});
  options.set("afterSleep", 1);
  options.set(weekdayKey(day), 1);
  PropertyList::Dictionary record;
  record.set("schopts", std::move(options));
  return record;
}

std::string namesOf(const Weekdays& days) {
  std::string names;
  for (std::size_t day = 0; day < days.size(); ++day) {
    if (days[day]) names += (names.empty() ? "" : ", ") + std::string(weekdayWord(day));
  }
  return names;
}

bool isNone(const Weekdays& days) {
  return std::find(days.begin(), days.end(), true) == days.end();
}

std::string localDay(Date date) {
  return localStamp(date).substr(0, sizeof("2026-11-21") - 1);
}

class ScheduleCheck {
 public:
  ScheduleCheck(const CheckSubject& subject, const WeekdayRule& weekdays, const SetEntry& set,
                Problems& problems)
      : subject_(subject),
        weekdays_(weekdays),
        set_(set),
        name_(set.shownName()),
        task_(*set.record),
        problems_(problems) {}

  void run() {
    if (!isTakingPart(*set_.record)) {
      checkType();
    } else if (task_.isInterval()) {
      checkHold();
      checkInterval();
      checkNextDue();
    } else {
      if (task_.type() == kWeekly) checkWeekdays();
      checkTimeOfDay();
      checkStoredDay();
    }
  }

 private:
  void add(const char* code, Severity severity, std::string what, std::string meaning,
           const std::string& change, const char* verb, const std::string& arguments) {
    Problem problem = subject_.problem(code, severity, set_);
    subject_.setRemedy(problem, change, verb, arguments);
    problem.what = std::move(what);
    problem.meaning = std::move(meaning);
    problems_.push_back(std::move(problem));
  }

  void checkType() {
    if (!passesMainGate(task_) || hasRule(task_) || task_.isInterval()) return;
    add("unknown-type", Severity::kError,
        fmt::format("{} has a schedule of type {}, which the scheduler does not know.", name_,
                    task_.type()),
        "It is never started. Known are 0 (daily), 1 (weekly), 2 (hours) and 3 (minutes).",
        "Give the set its schedule anew", "edit", "--daily 09:30");
  }

  // ---- Weekly and daily sets -------------------------------------------------------------------

  void checkWeekdays() {
    const Weekdays chosen = chosenWeekdays(*set_.record);
    if (isNone(chosen)) {
      add("no-weekday", Severity::kError,
          fmt::format("{} is a weekly set, and no weekday is chosen for it.", name_),
          "It is never due.", "Choose its weekdays", "edit", scheduleArguments(*set_.record));
      return;
    }
    const Weekdays runs = weekdays_.runsOn(chosen);
    Weekdays never{};
    Weekdays others{};  // chosen ones that have a number, and run on another day
    for (std::size_t day = 0; day < chosen.size(); ++day) {
      const bool isMissed = chosen[day] && !runs[day];
      never[day] = isMissed && isNone(weekdays_.runsOn(day));
      others[day] = isMissed && !never[day];
    }
    if (!isNone(never)) addNever(chosen, never);
    if (!isNone(others)) addShifted(chosen, runs);
  }

  void addNever(const Weekdays& chosen, const Weekdays& never) {
    Weekdays better = chosen;
    for (std::size_t day = 0; day < never.size(); ++day) {
      if (!never[day]) continue;
      better[day] = false;
      better[(day + 1) % better.size()] = true;
    }
    add("weekday-never-matches", Severity::kError,
        fmt::format("{} is set for {}, which never matches in the locale's week.", name_,
                    namesOf(never)),
        fmt::format("Where the week starts on Monday, as in {}, the scheduler knows no such day: "
                    "the set is not started on a {}.",
                    localeName(), namesOf(never)),
        localeRemedy("choose a neighbouring day"), "edit", weeklyArguments(*set_.record, better));
  }

  void addShifted(const Weekdays& chosen, const Weekdays& runs) {
    Weekdays better{};
    for (std::size_t day = 0; day < better.size(); ++day) {
      const Weekdays& its = weekdays_.runsOn(day);
      for (std::size_t wanted = 0; wanted < chosen.size(); ++wanted) {
        better[day] = better[day] || (chosen[wanted] && its[wanted]);
      }
    }
    add("weekday-shifted", Severity::kWarning,
        fmt::format("{} is set for {}, and runs on {}.", name_, namesOf(chosen), namesOf(runs)),
        fmt::format("The scheduler counts weekdays by the locale's week, which starts on neither "
                    "Sunday nor Monday in {}.",
                    localeName()),
        localeRemedy("choose the days that lead to the ones you want"), "edit",
        weeklyArguments(*set_.record, better));
  }

  /// "de_DE", without what the program adds.
  std::string localeName() const {
    const std::string& identifier = subject_.context().locale.identifier;
    return identifier.substr(0, identifier.find('@'));
  }

  static std::string localeRemedy(const char* change) {
    return fmt::format(
        "Give the agent a locale whose week starts on Sunday (LC_TIME=en_US.UTF-8 in its "
        "environment, and no LC_ALL), or {}",
        change);
  }

  void checkTimeOfDay() {
    if (task_.isOnceADay()) return;
    const auto picked = dateValue(task_.option("datePick"));
    if (picked && localTimeNumber(*picked)) return;
    add("missing-time", Severity::kWarning,
        fmt::format("{} has no time of day{}.", name_,
                    task_.option("datePick") == nullptr ? "" : " that is a date (\"datePick\")"),
        "It is due from 00:00 on: it is started in the first round after midnight.",
        "Choose a time", "edit", scheduleArguments(*set_.record));
  }

  /// Days are told apart by their numbers only: the next day on which the set would be due counts
  /// as done when it bears the number of the last run's day.
  void checkStoredDay() {
    const std::string stored = storedDay(task_.option("dayOfMonth"));
    const std::string today = std::to_string(localDayOfMonth(subject_.now()));
    if (stored == today ? !ranOnAnotherDay(stored) : !comesWithinDays(stored)) return;
    PropertyList::Dictionary record = *set_.record->as<PropertyList::Dictionary>();
    record.find("schopts")->as<PropertyList::Dictionary>()->erase("dayOfMonth");
    const auto chance = nextDue(record, subject_.now(), subject_.patterns());
    if (!chance || std::to_string(localDayOfMonth(*chance)) != stored) return;
    const auto next = nextDue(*set_.record, subject_.now(), subject_.patterns());
    if (next && localDay(*next) == localDay(*chance)) return;
    add("stored-day", Severity::kWarning,
        fmt::format("{} is skipped on {}: its last run was on the {}. of an earlier month.", name_,
                    dayStamp(*chance).substr(0, sizeof("Mon 2026-11-23") - 1), stored),
        fmt::format("The scheduler compares days by their number alone, so that day counts as "
                    "done. {}",
                    next ? fmt::format("The set runs on {}.", dayStamp(*next))
                         : std::string("The set does not run in the three weeks to come.")),
        "Run it once by hand", "run", "");
  }

  /// Whether the stored day is certainly not today, though it has today's number. Without a history
  /// it is taken for today.
  bool ranOnAnotherDay(const std::string& stored) const {
    const History::LastRun* const run = subject_.lastRun(set_);
    return run != nullptr && run->result == "ok" && run->end <= subject_.now() &&
           std::to_string(localDayOfMonth(run->start)) == stored &&
           localDay(run->start) != localDay(subject_.now());
  }

  /// A set is due once a week or more often; two more days are for zones that skip one. It only
  /// saves asking the rules.
  bool comesWithinDays(const std::string& stored) const {
    const Date noon = dateWithTimeOfDay(subject_.now(), 12 * 60);
    for (int day = 0; day <= 9; ++day) {
      if (std::to_string(localDayOfMonth(noon + kDay * day)) == stored) return true;
    }
    return false;
  }

  // ---- Interval sets ---------------------------------------------------------------------------

  void checkHold() {
    if (task_.mayRun()) return;
    add("hold-without-effect", Severity::kWarning,
        fmt::format("{} is marked as held (\"runState\"), and runs all the same.", name_),
        "The scheduler does not look at that mark in sets with an interval.",
        "Switch its schedule off if it is to be held", "hold", "");
  }

  void checkInterval() {
    const bool isHourly = task_.type() == kHourly;
    const char* const key = isHourly ? "sethours" : "setmins";
    const PropertyList* const value = task_.option(key);
    const std::int64_t count = integerValue(value);
    constexpr std::int64_t kHoursOfYear = 366 * 24;
    if (count >= 1 && count <= (isHourly ? kHoursOfYear : kHoursOfYear * 60)) return;
    add("bad-interval", Severity::kWarning,
        fmt::format("{} has an interval of {} {}{}.", name_, count, isHourly ? "hours" : "minutes",
                    value == nullptr ? fmt::format(" (no \"{}\")", key) : ""),
        fmt::format("The interval is for whoever records the run: kvbackup takes this one for {}; "
                    "another application may never let the set rest, or never let it run.",
                    spanText(intervalOf(*set_.record))),
        "Choose an interval", "edit", scheduleArguments(*set_.record));
  }

  void checkNextDue() {
    const auto due = task_.nextDue();
    if (!due) {
      add("missing-next-due", Severity::kError,
          fmt::format("{} has no next-due date{}.", name_,
                      task_.option("minhourdate") == nullptr ? "" : " that is a date"),
          "It is never due: only a run writes that date (\"minhourdate\"), and no run begins "
          "without it.",
          "Make it due now", "release", "");
      return;
    }
    const Seconds interval = intervalOf(*set_.record);
    const Seconds wait = *due - subject_.now();
    if (!(wait > interval + kRounding)) return;
    add("next-due-far-off", Severity::kError,
        fmt::format("{} is next due at {}, in {}; its interval is {}.", name_, dayStamp(*due),
                    spanText(wait), spanText(interval)),
        "It is not started before that. The clock may have been wrong when the date was written.",
        "Begin its interval anew, due now", "edit", scheduleArguments(*set_.record));
  }

  const CheckSubject& subject_;
  const WeekdayRule& weekdays_;
  const SetEntry& set_;
  const std::string name_;
  const TaskRecord task_;
  Problems& problems_;
};

}  // namespace

WeekdayRule::WeekdayRule(const CheckSubject& subject) {
  const Date noon = dateWithTimeOfDay(subject.now(), 12 * 60);
  NoTrace noTrace;
  for (std::size_t chosen = 0; chosen < runsOn_.size(); ++chosen) {
    const PropertyList record = weeklyOn(chosen);
    for (int day = 0; day < 7; ++day) {
      LocalMoment moment(noon + kDay * day, subject.patterns());
      const bool isDue = judgeByType(TaskRecord(record), moment, noTrace).has_value();
      runsOn_[chosen][weekdayOf(moment.now())] = isDue;
    }
  }
}

Weekdays WeekdayRule::runsOn(const Weekdays& chosen) const {
  Weekdays days{};
  for (std::size_t one = 0; one < chosen.size(); ++one) {
    for (std::size_t day = 0; chosen[one] && day < days.size(); ++day) {
      days[day] = days[day] || runsOn_[one][day];
    }
  }
  return days;
}

void addScheduleProblems(const CheckSubject& subject, const WeekdayRule& weekdays,
                         const SetEntry& set, Problems& problems) {
  ScheduleCheck(subject, weekdays, set, problems).run();
}

}  // namespace kv::kvctl
