#include "tools/kvctl/RecordProblems.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <string_view>

#include "scheduler/FieldReaders.h"
#include "scheduler/NextRun.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Text.h"
#include "tools/kvctl/ScheduleArguments.h"

namespace kv::kvctl {
namespace {

using Severity = Problem::Severity;

/// Blanks, a sign, digits: what is read as the number that it looks like.
bool isWholeNumber(std::string_view text) {
  const auto begin = text.find_first_not_of(" \t\n\v\f\r");
  if (begin == std::string_view::npos) return true;  // as if it were missing
  text.remove_prefix(begin);
  if (text.front() == '-' || text.front() == '+') text.remove_prefix(1);
  text = text.substr(0, text.find_last_not_of(" \t\n\v\f\r") + 1);
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool isReadAsMeant(const PropertyList& value) {
  if (const auto* text = value.as<PropertyList::String>()) return isWholeNumber(*text);
  if (const auto* real = value.as<double>()) return std::isfinite(*real);
  return value.as<std::int64_t>() != nullptr || value.as<std::uint64_t>() != nullptr ||
         value.as<bool>() != nullptr;
}

/// "no", "false" and "" are read as they are meant; "on" and a date are not.
bool isTruthReadAsMeant(const PropertyList& value) {
  const auto* const text = value.as<PropertyList::String>();
  if (text == nullptr) return isReadAsMeant(value);
  return truthValue(&value) || isWholeNumber(*text) || text->find_first_of("NnFf") == 0;
}

std::string quoted(const PropertyList& value) {
  constexpr std::size_t kLongest = 40;
  return fmt::format("\"{}\"", firstCharacters(shown(value.description()), kLongest));
}

struct NumberField {
  const char* key;
  bool isForDays;
  bool isForWeeks;
};
constexpr std::array<NumberField, 10> kNumberFields = {{{"dayWeekOrHour", false, false},
                                                        {"afterSleep", true, false},
                                                        {"dayOfMonth", true, false},
                                                        {"day1", true, true},
                                                        {"day2", true, true},
                                                        {"day3", true, true},
                                                        {"day4", true, true},
                                                        {"day5", true, true},
                                                        {"day6", true, true},
                                                        {"day7", true, true}}};

class RecordCheck {
 public:
  RecordCheck(const CheckSubject& subject, const SetEntry& set, Problems& problems)
      : subject_(subject),
        set_(set),
        name_(set.shownName()),
        task_(*set.record),
        backup_(*set.record),
        problems_(problems) {}

  void run() {
    const auto* const fields = set_.record->as<PropertyList::Dictionary>();
    if (fields == nullptr) {
      addNoDictionary();
      return;
    }
    const PropertyList* const options = fields->find("schopts");
    if (options != nullptr && options->as<PropertyList::Dictionary>() == nullptr) {
      addBadOptions();
      return;
    }
    checkTypes();
    checkDuplicate();
    if (!isTakingPart(*set_.record)) return;
    checkName();
    checkDestination();
    checkSources();
    checkRecording();
  }

 private:
  void add(Problem problem, std::string what, std::string meaning) {
    problem.what = std::move(what);
    problem.meaning = std::move(meaning);
    problems_.push_back(std::move(problem));
  }

  void addNoDictionary() {
    Problem problem = subject_.problem("no-record", Severity::kWarning, set_);
    problem.remedy = "Put an earlier copy of the document in its place, or take the entry out.";
    add(problem,
        fmt::format("Entry {} is no backup set, but {}.", set_.index + 1, quoted(*set_.record)),
        "The scheduler passes over it: if it was a set, that is not backed up.");
  }

  void addBadOptions() {
    Problem problem = subject_.problem("bad-options", Severity::kError, set_);
    problem.remedy = "Put an earlier copy of the document in its place, or make the set anew.";
    add(problem, fmt::format("The schedule options of {} (\"schopts\") are no dictionary.", name_),
        "To the scheduler the set has no schedule: it is never started.");
  }

  void checkTypes() {
    const PropertyList* const scheduled = task_.option("scheduleIt");
    if (scheduled != nullptr && !isReadAsMeant(*scheduled)) {
      addWrongType("scheduleIt", *scheduled,
                   task_.isScheduled() ? "as on" : "as off: the set is never started");
    }
    if (!task_.isScheduled()) return;
    const PropertyList* const runState = task_.option("runState");
    if (runState != nullptr && !isTruthReadAsMeant(*runState)) {
      addWrongType("runState", *runState, task_.mayRun() ? "as released" : "as held");
    }
    for (const NumberField& field : kNumberFields) {
      if (field.isForDays && task_.isInterval()) continue;
      if (field.isForWeeks && task_.type() != kWeekly) continue;
      const PropertyList* const value = task_.option(field.key);
      if (value == nullptr || isReadAsMeant(*value)) continue;
      addWrongType(field.key, *value, fmt::format("as {}", integerValue(value)));
    }
  }

  void addWrongType(const char* key, const PropertyList& value, const std::string& readAs) {
    Problem problem = subject_.problem("wrong-type", Severity::kWarning, set_);
    subject_.setRemedy(problem, "Give the set its schedule anew", "edit",
                       scheduleArguments(*set_.record));
    add(problem, fmt::format("{} has {} in the field \"{}\".", name_, quoted(value), key),
        fmt::format("That is no number, and the scheduler reads it {}.", readAs));
  }

  void checkDuplicate() {
    const SetEntry* const first = subject_.startedInsteadOf(set_);
    if (first == nullptr || first->index == set_.index) return;
    const bool isStarted = isTakingPart(*set_.record);
    Problem problem =
        subject_.problem("duplicate-name", isStarted ? Severity::kError : Severity::kWarning, set_);
    problem.by = {first->name};
    problem.remedy = fmt::format(
        "Rename one of the two in Kelvara+. kvbackup cannot rename: \"kvbackup remove\" forgets "
        "the first (its copies stay), and then \"kvbackup add\" makes it anew under another name.");
    add(problem,
        fmt::format("Two sets are called {}: set {} ({}) and set {} ({}).", name_, first->index + 1,
                    shown(fileName(*first)), set_.index + 1, shown(fileName(set_))),
        isStarted ? "A backup is started by name, so the first is backed up when the second is "
                    "due. The second's record never moves: while it is due it is started again "
                    "and again, and what stands behind it waits."
                  : "A backup is started by name, so whoever asks for the second gets the first.");
  }

  std::string fileName(const SetEntry& set) const {
    const std::string& path = subject_.documentOf(set);
    return path.substr(path.rfind('/') + 1);
  }

  void checkName() {
    if (!set_.name.empty()) return;
    Problem problem = subject_.problem("missing-name", Severity::kError, set_);
    subject_.setRemedy(problem, "Give the set a name", "", "");
    add(problem,
        fmt::format("Set {} has no name{}.", set_.index + 1,
                    task_.set() == nullptr ? "" : " that is a text"),
        "A backup is started by name, so this set is not backed up. While it is due, rounds start "
        "nothing else behind it.");
  }

  void checkDestination() {
    if (!backup_.destination().value_or("").empty()) return;
    Problem problem = subject_.problem("missing-destination", Severity::kError, set_);
    subject_.setRemedy(problem, "Choose a destination", "edit", "--dest DIR");
    add(problem,
        fmt::format("{} has no destination{}.", name_,
                    task_.destinationPath() == nullptr ? "" : " that is a path"),
        "It is never started: no volume counts as there.");
  }

  void checkSources() {
    if (!subject_.isRunByKvbackup() || backup_.sources()) return;
    Problem problem = subject_.problem("missing-sources", Severity::kError, set_);
    subject_.setRemedy(problem, "Say which folders it backs up", "edit", "--source DIR");
    add(problem, fmt::format("{} has no sources (\"sourcePaths\").", name_),
        "kvbackup, which runs the backups here, refuses it each time: nothing is copied.");
  }

  void checkRecording() {
    const bool isUnrecorded = subject_.hasUnrecordedRun(set_);
    const auto starts = subject_.futileStarts(set_);
    if (!isUnrecorded && starts == 0) return;
    Problem problem = subject_.problem("run-not-recorded", Severity::kError, set_);
    subject_.setRemedy(problem,
                       "See to it that you may write the document and its folder, and that no "
                       "other program puts old copies in its place; then run the set once",
                       "run", "");
    add(problem,
        isUnrecorded
            ? fmt::format("{} was backed up at {}, but its record in {} does not know of it.",
                          name_, localStamp(subject_.lastRun(set_)->end), shown(fileName(set_)))
            : fmt::format("The agent has started {} {} times, and its record in {} has not moved.",
                          name_, starts, shown(fileName(set_))),
        "Only the record ends a set's being due: the set is started again and again, and what "
        "stands behind it waits.");
  }

  const CheckSubject& subject_;
  const SetEntry& set_;
  const std::string name_;
  const TaskRecord task_;
  const BackupSet backup_;
  Problems& problems_;
};

}  // namespace

void addRecordProblems(const CheckSubject& subject, const SetEntry& set, Problems& problems) {
  RecordCheck(subject, set, problems).run();
}

}  // namespace kv::kvctl
