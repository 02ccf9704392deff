#include "tools/kvctl/Explanation.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <cstdint>

#include "scheduler/FieldReaders.h"
#include "scheduler/IntervalOrder.h"
#include "scheduler/NextRun.h"
#include "scheduler/NoTrace.h"
#include "scheduler/Rules.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"

namespace kv::kvctl {
namespace {

/// Keeps what a rule says that it compares.
class ValueTrace final : public Trace {
 public:
  void logString(OptionalText text) override { lines.emplace_back(text.value_or("")); }
  void logString_varstr(OptionalText text, OptionalText value) override {
    lines.push_back(fmt::format("{}{}", text.value_or(""), value.value_or("(null)")));
  }
  bool isTracing() const override { return true; }

  std::vector<std::string> lines;
};

std::string localDay(Date date) {
  return localStamp(date).substr(0, sizeof("2026-11-21") - 1);
}

std::string localTime(Date date) {
  return localStamp(date).substr(sizeof("2026-11-21"));
}

std::string gateText(const TaskRecord& task) {
  if (!task.isScheduled()) return "off: the set is not scheduled (\"scheduleIt\" is not 1)";
  if (task.isInterval()) return "on: the set is scheduled";
  if (!task.mayRun()) return "held: the set waits to be released (\"runState\" is off)";
  if (!hasRule(task)) return "on, but no rule exists for the set's type";
  return "on: the set is scheduled and not held";
}

const PropertyList* member(const PropertyList& value, const char* key) {
  const auto* fields = value.as<PropertyList::Dictionary>();
  return fields == nullptr ? nullptr : fields->find(key);
}

std::optional<std::string> textOf(const std::optional<PropertyList>& value) {
  const auto* text = value ? value->as<PropertyList::String>() : nullptr;
  return text == nullptr ? std::nullopt : std::optional(*text);
}

}  // namespace

/// One set while it is being explained.
struct Explainer::Case {
  Explanation explanation;
  TaskRecord task;
  BackupSet backup;
  std::string name;

  void conclude(Explanation::Verdict verdict, std::string sentence) {
    explanation.verdict = verdict;
    explanation.sentence = std::move(sentence);
  }
};

Rehearsal::Environment rehearsalEnvironment(const Context& context) {
  return {.clock = context.clock,
          .files = context.files,
          .locale = context.locale,
          .homeFolder = context.homeFolder,
          .programFolder = context.programFolder,
          .stateFolder = context.stateFolder,
          .historyFile = context.historyFile,
          .settingsFolder = context.settingsFolder,
          .bundle = context.bundle,
          .isInstalledBundle = context.isInstalledBundle};
}

std::string momentText(Date date, Date now, DayWord word) {
  constexpr Seconds kDay{24.0 * 3600};
  const std::string day = localDay(date);
  const std::string time = localTime(date);
  if (day == localDay(now)) return fmt::format("today at {}", time);
  // A day is 23 to 25 hours long: noon to noon is always the next one.
  const Date noon = dateWithTimeOfDay(now, 12 * 60);
  if (day == localDay(noon + kDay)) return fmt::format("tomorrow at {}", time);
  if (day == localDay(noon + -kDay)) return fmt::format("yesterday at {}", time);
  return fmt::format("{}{} at {}", word == DayWord::kOn ? "on " : "",
                     dayStamp(date).substr(0, sizeof("Mon 2026-11-23") - 1), time);
}

Explainer::Explainer(const Context& context)
    : now_(context.clock->now()),
      localeName_(context.locale.identifier.substr(0, context.locale.identifier.find('@'))),
      patterns_(context.locale),
      moment_(now_, patterns_) {
  Context standing = context;  // everything is about one moment
  standing.clock = std::make_shared<StandingClock>(now_);
  sets_ = std::make_unique<Sets>(standing);
  auto environment = rehearsalEnvironment(standing);
  environment.list = std::make_shared<const TaskList>(sets_->list());
  rehearsal_ = Rehearsal::run(environment);
  if (rehearsal_.hasScheduler) noteOrder();
}

/// In which order the scheduler takes the sets that are due now.
void Explainer::noteOrder() {
  NoTrace unused;
  for (const SetEntry& set : sets_->all()) {
    const TaskRecord task(*set.record);
    const bool isDue = isTakingPart(*set.record) && !task.isInterval() &&
                       judgeByType(task, moment_, unused).has_value();
    if (isDue && mayStart(set.index)) startableDaySets_.push_back(set.index);
  }
  for (const PropertyList* entry : overdueIntervalTasks(rehearsal_.list, now_, patterns_, unused)) {
    intervalOrder_.push_back(static_cast<std::size_t>(entry - rehearsal_.list.data()));
  }
}

bool Explainer::mayStart(std::size_t index) const {
  return index < rehearsal_.mayStart.size() && rehearsal_.mayStart[index];
}

/// The sets that are started before this one, which is due. An interval set that the order leaves
/// out waits for all that are in it, also for those that cannot start.
std::vector<std::string> Explainer::setsBefore(const SetEntry& set) const {
  std::vector<std::string> names;
  const auto add = [&](std::size_t index) { names.push_back(sets_->all()[index].shownName()); };
  const bool isInterval = TaskRecord(*set.record).isInterval();
  for (const std::size_t index : startableDaySets_) {
    if (isInterval || index < set.index) add(index);
  }
  if (!isInterval) return names;
  const auto place = std::find(intervalOrder_.begin(), intervalOrder_.end(), set.index);
  const bool isLeftOut = place == intervalOrder_.end();
  std::for_each(intervalOrder_.begin(), place, [&](std::size_t index) {
    if (isLeftOut || mayStart(index)) add(index);
  });
  return names;
}

Explanation Explainer::explain(const SetEntry& set) {
  const BackupSet backup(*set.record);
  Case one{.explanation = {.set = set},
           .task = TaskRecord(*set.record),
           .backup = backup,
           .name = set.shownName()};
  Explanation& result = one.explanation;
  result.gate = gateText(one.task);
  result.rule = backup.scheduleText();
  result.mayStart = mayStart(set.index);
  result.next = nextDue(*set.record, now_, patterns_);
  const auto never = [&one](const char* why) {
    one.conclude(Explanation::Verdict::kNever, fmt::format("{} is {}.", one.name, why));
  };
  if (!one.task.isScheduled()) {
    never("switched off: it has no active schedule");
  } else if (!isTakingPart(*set.record)) {
    never(hasRule(one.task) ? "held: it is not started until it is released (\"kvbackup release\")"
                            : "never started: the scheduler knows no schedule of its type");
  } else if (one.task.isInterval()) {
    explainInterval(one);
  } else {
    explainDay(one);
  }
  if (result.isDue) result.before = setsBefore(set);
  return result;
}

void Explainer::explainDay(Case& one) {
  ValueTrace trace;
  one.explanation.isDue = judgeByType(one.task, moment_, trace).has_value();
  one.explanation.values = trace.lines;
  if (!one.explanation.isDue) {
    const auto why = whyDayRuleSaysNo(one);
    one.conclude(
        one.explanation.next ? Explanation::Verdict::kNotDue : Explanation::Verdict::kNever,
        fmt::format("{} {}.", one.name, why.value_or("is not due")));
    return;
  }
  if (const auto outcome = outcomeOf(one.explanation.set)) {
    explainOutcome(one, *outcome);
  } else {
    explainOutcome(one, Outcome::kAnotherFirst);
  }
}

/// Which of the comparisons has failed, in words; by the same values as the rule.
std::optional<std::string> Explainer::whyDayRuleSaysNo(Case& one) {
  const bool isWeekly = one.task.type() == kWeekly;
  const std::size_t today = weekdayOf(now_);
  if (isWeekly && one.backup.weekdays().empty()) return "is never due: no weekday is chosen";
  if (isWeekly) {
    ValueTrace trace;
    judgeWeekly(one.task, moment_, trace);
    const bool isToday = std::find(trace.lines.begin(), trace.lines.end(), "Weekday is selected") !=
                         trace.lines.end();
    const bool isChosen = one.task.isWeekdaySelected(static_cast<int>(today) + 1);
    if (!isToday && isChosen) {
      return fmt::format(
          "is chosen for {}s, but where the week starts on Monday{} no {} ever matches{} "
          "(\"kvctl check\" says what to do)",
          weekdayWord(today), localeName_.empty() ? "" : ", as in " + localeName_ + ",",
          weekdayWord(today), nextText(one, "; next chance "));
    }
    if (!isToday) {
      return fmt::format("is not due: today is {}, and it is set for {}{}", weekdayWord(today),
                         fmt::join(one.backup.weekdays(), ", "), nextText(one, "; next chance "));
    }
  }
  const std::string stored = storedDay(one.task.option("dayOfMonth"));
  if (stored == moment_.day()) {
    const auto last = hostFactOf(one.explanation.set, "lastGood");
    const auto lastRun = last ? dateValue(&*last) : std::nullopt;
    if (lastRun && localDay(*lastRun) != localDay(now_)) {
      return fmt::format(
          "counts as done today: days are compared by their number alone, the stored day is {}, "
          "and the last run was {}{}",
          stored, momentText(*lastRun, now_), nextText(one, "; next chance "));
    }
    return fmt::format("is not due: it ran today (stored day {}){}", stored,
                       nextText(one, ", next chance "));
  }
  return fmt::format("is not due yet{}", nextText(one, ": it is due "));
}

std::string Explainer::nextText(const Case& one, const char* lead) const {
  if (!one.explanation.next) return "";
  return lead + momentText(*one.explanation.next, now_);
}

void Explainer::explainInterval(Case& one) {
  Explanation& result = one.explanation;
  const auto due = one.task.nextDue();
  result.values = {fmt::format("next-due date: {}", due ? dayStamp(*due) : "none"),
                   fmt::format("now: {}", dayStamp(now_))};
  if (!due) {
    one.conclude(Explanation::Verdict::kNever,
                 fmt::format("{} is never due: it has no next-due date (\"minhourdate\"), which a "
                             "run writes; \"kvbackup release\" makes it due now.",
                             one.name));
    return;
  }
  if (*due > now_) {
    one.conclude(Explanation::Verdict::kNotDue,
                 fmt::format("{} is not due: its next-due date is {}, in {}.", one.name,
                             momentText(*due, now_), spanText(*due - now_)));
    return;
  }
  result.isDue = true;
  if (const auto outcome = outcomeOf(result.set)) {
    explainOutcome(one, *outcome);
    return;
  }
  const auto hiding = hidingSets(one);
  if (hiding.empty()) {
    explainOutcome(one, Outcome::kAnotherFirst);
    return;
  }
  const std::string since =
      fmt::format("{} is due since {}", one.name, momentText(*due, now_, DayWord::kBare));
  const std::string others = fmt::format("{}", fmt::join(hiding, ", "));
  one.conclude(
      Explanation::Verdict::kWaits,
      one.task.type() == kHourly && isAnyMinuteSetOverdue()
          ? fmt::format("{}, but intervals of hours wait while one of minutes is overdue: {}.",
                        since, others)
          : fmt::format("{}, but is passed over: {} stands before it in the list and has "
                        "been due for longer.",
                        since, others));
}

bool Explainer::isAnyMinuteSetOverdue() const {
  return !intervalOrder_.empty() &&
         TaskRecord(rehearsal_.list[intervalOrder_.front()]).type() == kMinutes;
}

/// The overdue sets because of which the interval order leaves this one out.
std::vector<std::string> Explainer::hidingSets(const Case& one) {
  std::vector<std::string> names;
  for (const std::size_t place : intervalOrder_) {
    if (place == one.explanation.set.index) return {};
    const TaskRecord other(rehearsal_.list[place]);
    const bool isOtherKind = other.type() != one.task.type();
    const bool isMoreOverdue = place < one.explanation.set.index &&
                               other.nextDue().value_or(now_) <= one.task.nextDue().value_or(now_);
    if (isOtherKind || isMoreOverdue) names.push_back(sets_->all()[place].shownName());
  }
  return names;
}

void Explainer::explainOutcome(Case& one, Outcome outcome) {
  Explanation& result = one.explanation;
  const auto waits = [&](const std::string& why) {
    one.conclude(Explanation::Verdict::kWaits, fmt::format("{} is due, but {}.", one.name, why));
  };
  switch (outcome) {
    case Outcome::kLaunched:
    case Outcome::kAsked:
      one.conclude(
          Explanation::Verdict::kStarts,
          fmt::format("{} is due, and the next tick starts it{}.", one.name,
                      outcome == Outcome::kAsked ? " by asking the open application" : ""));
      return;
    case Outcome::kNoVolume:
      waits(whyNotThere(one));
      return;
    case Outcome::kBackupRunning:
      waits(runningText());
      return;
    default:
      break;
  }
  const SetEntry* const first = launchedSet();
  if (first == nullptr) {
    waits("this tick does not come to it");
    return;
  }
  waits(result.mayStart
            ? fmt::format("{} comes first, and one backup runs at a time", first->shownName())
            : fmt::format("{} comes first; and {}", first->shownName(), whyNotThere(one)));
}

std::string Explainer::whyNotThere(const Case& one) const {
  const auto destination = one.backup.destination();
  if (!destination || destination->empty()) return "it has no destination";
  const auto state = textOf(hostFactOf(one.explanation.set, "state"));
  // The host may keep a set back whose destination is there; its own words tell why.
  const std::string own = state ? fmt::format(" (\"{}\")", shown(*state)) : "";
  return fmt::format("the host says that its destination {} is not there to be used{}",
                     shown(*destination), own);
}

std::string Explainer::runningText() const {
  const auto run = hostFact("run");
  const PropertyList* const set = run ? member(*run, "set") : nullptr;
  if (set != nullptr && set->as<PropertyList::String>() != nullptr) {
    return fmt::format("a backup of {} is running", shown(*set->as<PropertyList::String>()));
  }
  const auto pause = hostFact("pause");
  if (pause && pause->as<PropertyList::Dictionary>() != nullptr) {
    const auto until = dateValue(member(*pause, "until"));
    return until ? fmt::format("scheduling is paused until {}", momentText(*until, now_))
                 : std::string("scheduling is paused until it is resumed");
  }
  return "the host says that a backup is running";
}

const SetEntry* Explainer::launchedSet() const {
  for (const Judgement& judgement : rehearsal_.judgements) {
    if (isLaunch(judgement.outcome)) return &sets_->all()[judgement.index];
  }
  return nullptr;
}

std::optional<Outcome> Explainer::outcomeOf(const SetEntry& set) const {
  for (const Judgement& judgement : rehearsal_.judgements) {
    if (judgement.index == set.index) return judgement.outcome;
  }
  return std::nullopt;
}

std::optional<PropertyList> Explainer::hostFact(const char* key) const {
  const PropertyList* const fact =
      rehearsal_.hostState ? member(*rehearsal_.hostState, key) : nullptr;
  return fact == nullptr ? std::nullopt : std::optional(*fact);
}

std::optional<PropertyList> Explainer::hostFactOf(const SetEntry& set, const char* key) const {
  const auto described = hostFact("sets");
  const auto* const list = described ? described->as<PropertyList::Array>() : nullptr;
  if (list == nullptr) return std::nullopt;
  for (const PropertyList& one : *list) {
    const PropertyList* const index = member(one, "index");
    if (index == nullptr || integerValue(index) != static_cast<std::int64_t>(set.index)) continue;
    const PropertyList* const fact = member(one, key);
    return fact == nullptr ? std::nullopt : std::optional(*fact);
  }
  return std::nullopt;
}

}  // namespace kv::kvctl
