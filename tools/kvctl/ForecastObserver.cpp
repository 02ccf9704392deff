#include "tools/kvctl/ForecastObserver.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "scheduler/FieldReaders.h"
#include "scheduler/KVTimer.h"
#include "scheduler/NextRun.h"
#include "scheduler/Rules.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvctl/ForecastTexts.h"
#include "tools/kvctl/Sets.h"

namespace kv::kvctl {
namespace {

/// The first moment of the local day of `date`. Where the clocks skip midnight, `date` itself.
Date startOfDay(Date date) {
  return std::min(dateWithTimeOfDay(date, 0), date);
}

/// The first moment of the local day after that of `date`.
Date nextDay(Date date) {
  constexpr Seconds kStep{6 * 3600.0};
  const int day = localDayOfMonth(date);
  Date probe = date + kStep;
  while (localDayOfMonth(probe) == day) probe = probe + kStep;
  return startOfDay(probe);
}

void waitsBehind(std::vector<std::size_t>& behind, std::size_t other) {
  if (std::find(behind.begin(), behind.end(), other) == behind.end()) behind.push_back(other);
}

/// The record of a set that has not run on any day.
PropertyList neverRun(const PropertyList& record) {
  PropertyList copy = record;
  auto* const fields = copy.as<PropertyList::Dictionary>();
  auto* const options = fields == nullptr ? nullptr : fields->find("schopts");
  if (options != nullptr && options->as<PropertyList::Dictionary>() != nullptr) {
    options->as<PropertyList::Dictionary>()->erase("dayOfMonth");
  }
  return copy;
}

/// Why the host finds no volume for the set.
SkipReason missing(const PropertyList& record) {
  const bool isNamed = !BackupSet(record).destination().value_or("").empty();
  return isNamed ? SkipReason::kNoVolume : SkipReason::kNoDestination;
}

}  // namespace

ForecastObserver::ForecastObserver(const ForecastPlan& plan, ForecastSink& sink)
    : plan_(plan),
      sink_(sink),
      patterns_(plan.locale),
      dayStart_(plan.begin),
      day_(localDayOfMonth(plan.begin)),
      lastTick_(plan.begin),
      wokeUpAt_(plan.begin) {}

void ForecastObserver::begin(Documents documents) {
  documents_ = std::move(documents);
  states_.resize(documents_()->size());
  for (std::size_t index = 0; index < states_.size(); ++index) setDue(index, plan_.begin);
}

void ForecastObserver::setDue(std::size_t index, Date from) {
  State& state = states_[index];
  state.due = nextDue((*documents_())[index], from, patterns_);
  state.behind.clear();
  state.heldUpBy.reset();
  state.missedVolumeAt.reset();
}

void ForecastObserver::tickBegan(Date now, const TaskList& list) {
  list_ = &list;
  stuck_.reset();
  if (localDayOfMonth(now) != day_) closeDays(now);
  lastTick_ = now;
}

void ForecastObserver::judged(const PropertyList& entry, Outcome outcome) {
  const auto index = static_cast<std::size_t>(&entry - list_->data());
  State& state = states_[index];
  switch (outcome) {
    case Outcome::kNoVolume:
      state.missedVolumeAt = lastTick_;
      ++state.missedVolume;
      ++state.missedVolumeInAll;
      if (!stuck_ && TaskRecord(entry).isInterval()) stuck_ = index;
      break;
    case Outcome::kBackupRunning:
      if (!run_ && plan_.pause && plan_.pause->contains(lastTick_)) {
        ++state.wasPaused;
        state.hasBeenPaused = true;
        break;
      }
      ++state.wasBusy;
      if (run_) waitsBehind(state.behind, run_->index);
      break;
    case Outcome::kLaunched:
    case Outcome::kAsked:
      launching_ = index;
      state.hasRunToday = true;
      ++state.sum.runs;
      break;
    default:
      break;
  }
}

/// The interval pass looks only at the sets that are more overdue than all before them, so one that
/// cannot start keeps others from being looked at.
void ForecastObserver::tickEnded() {
  if (!stuck_ || run_) return;
  for (std::size_t index = 0; index < states_.size(); ++index) {
    State& state = states_[index];
    const bool isWaiting = state.due && *state.due < lastTick_ && state.missedVolumeAt != lastTick_;
    if (isWaiting && TaskRecord((*list_)[index]).isInterval()) state.heldUpBy = stuck_;
  }
}

void ForecastObserver::runBegan(const SimulatedRun& run) {
  const State& state = states_[launching_];
  const Date due = std::min(state.due.value_or(run.startedAt), run.startedAt);
  run_ = ForecastRun{.index = launching_,
                     .due = due,
                     .startedAt = run.startedAt,
                     .endedAt = run.startedAt,
                     .isOver = true,
                     .behind = state.behind,
                     .heldUpBy = state.heldUpBy,
                     .missedVolume = state.missedVolumeAt.has_value(),
                     .sleptUntil = std::nullopt,
                     .pausedUntil = std::nullopt};
  if (wokeUpAt_ > due) run_->sleptUntil = wokeUpAt_;
  if (state.hasBeenPaused && plan_.pause->contains(due)) run_->pausedUntil = plan_.pause->until;
}

void ForecastObserver::runEnded(const SimulatedRun& run) {
  run_->endedAt = run.endedAt;
  sink_.runs(*run_);
  const auto list = documents_();
  for (std::size_t index = 0; index < states_.size(); ++index) {
    State& state = states_[index];
    const bool isOwn = index == run_->index || BackupSet((*list)[index]).name() == run.set;
    if (isOwn) setDue(index, run.endedAt);
    // The tick that launched the other one said nothing of those behind it.
    const bool hasWaited = state.due && *state.due < run.endedAt &&
                           (!state.missedVolumeAt || *state.missedVolumeAt < run.startedAt);
    if (!isOwn && hasWaited) waitsBehind(state.behind, run_->index);
  }
  run_.reset();
}

void ForecastObserver::closeDays(Date now) {
  const Date today = startOfDay(now);
  while (dayStart_ < today) {
    const Date end = std::min(nextDay(dayStart_), today);
    day_ = localDayOfMonth(dayStart_);
    closeDay(end);
    dayStart_ = end;
  }
  day_ = localDayOfMonth(now);
}

void ForecastObserver::closeDay(Date dayEnd) {
  const auto list = documents_();
  for (std::size_t index = 0; index < states_.size(); ++index) {
    if (TaskRecord((*list)[index]).isInterval()) continue;
    State& state = states_[index];
    if (const auto skip = skipOf(index, dayEnd)) {
      sink_.skips(*skip);
      ++state.sum.skips;
      state.lastSkip = skip->reason;
    }
    state.missedVolume = state.wasBusy = state.wasPaused = 0;
    state.hasRunToday = false;
    if (state.due && *state.due < dayEnd) setDue(index, dayEnd);
  }
}

/// What a due set found most often at the ticks of a day.
SkipReason ForecastObserver::missed(const PropertyList& record, const State& state) {
  if (state.wasPaused > std::max(state.missedVolume, state.wasBusy)) return SkipReason::kPaused;
  return state.missedVolume >= state.wasBusy ? missing(record) : SkipReason::kBusy;
}

std::optional<ForecastSkip> ForecastObserver::skipOf(std::size_t index, Date dayEnd) const {
  const auto list = documents_();
  const PropertyList& record = (*list)[index];
  const State& state = states_[index];
  if (state.hasRunToday) return std::nullopt;
  const auto due = nextDue(neverRun(record), dayStart_, patterns_);
  if (!due || *due >= dayEnd) return std::nullopt;
  ForecastSkip skip{
      .index = index, .due = *due, .reason = SkipReason::kAsleep, .behind = state.behind};
  const bool bearsItsNumber =
      storedDay(TaskRecord(record).option("dayOfMonth")) == std::to_string(day_);
  if (state.missedVolume > 0 || state.wasBusy > 0 || state.wasPaused > 0) {
    skip.reason = missed(record, state);
  } else if (bearsItsNumber) {
    // On the first day it may well have run already.
    if (dayStart_ == plan_.begin) return std::nullopt;
    skip.reason = SkipReason::kStoredDay;
  } else if (lastTick_ >= *due) {
    skip.reason = SkipReason::kBusy;
  }
  return skip;
}

std::vector<ForecastSet> ForecastObserver::end() {
  if (run_) {
    run_->endedAt = plan_.end();
    run_->isOver = false;
    sink_.runs(*run_);
  }
  std::vector<ForecastSet> sums;
  for (std::size_t index = 0; index < states_.size(); ++index) {
    State& state = states_[index];
    const bool isRunning = run_ && run_->index == index;
    if (!isRunning && state.due && plan_.end() - *state.due > KVTimer::kTickInterval) {
      state.sum.waitsSince = state.due;
    }
    if (state.sum.runs == 0) state.sum.whyNever = whyNever(index);
    sums.push_back(state.sum);
  }
  return sums;
}

std::string ForecastObserver::namesOf(const std::vector<std::size_t>& sets) const {
  return joinedNames(namesIn(*documents_()), sets);
}

std::string ForecastObserver::whyNever(std::size_t index) const {
  const auto list = documents_();
  const PropertyList& record = (*list)[index];
  const TaskRecord task(record);
  if (!task.isScheduled()) return "it is switched off";
  if (task.isInterval()) return whyNeverInterval(record, states_[index]);
  if (!task.mayRun()) return "it is held back";
  if (!hasRule(task)) return "no rule exists for its type";
  return whyNeverByDays(record, states_[index]);
}

std::string ForecastObserver::whyNeverInterval(const PropertyList& record,
                                               const State& state) const {
  const auto due = TaskRecord(record).nextDue();
  if (!due) return "it has no date of its next run";
  if (*due >= plan_.end()) return fmt::format("it is not due before {}", dayStamp(*due));
  if (state.missedVolumeInAll > 0) return reasonText(missing(record));
  if (state.hasBeenPaused) return reasonText(SkipReason::kPaused);
  const std::string since = dayStamp(std::max(*due, plan_.begin));
  if (plan_.end() - *due <= KVTimer::kTickInterval) return fmt::format("it is due at {}", since);
  if (state.heldUpBy) {
    return fmt::format("it waits since {}: {} comes before it, whose destination is away", since,
                       namesOf({*state.heldUpBy}));
  }
  if (state.behind.empty()) {
    return fmt::format("it waits since {}: an interval set that comes before it cannot start",
                       since);
  }
  return fmt::format("it waits since {}: interval sets that come before it are always due ({})",
                     since, namesOf(state.behind));
}

std::string ForecastObserver::whyNeverByDays(const PropertyList& record, const State& state) const {
  const auto due = nextDue(neverRun(record), plan_.end(), patterns_);
  if (!due) {
    if (BackupSet(record).weekdays().empty()) return "no weekday is selected";
    // See selectedWeekdays() in scheduler/Rules.cpp.
    return "it is set for Tuesday alone, which never comes where the week starts on Monday";
  }
  if (state.sum.skips == 0 && state.missedVolume + state.wasBusy + state.wasPaused == 0) {
    const auto next = nextDue(record, plan_.end(), patterns_);
    return next ? fmt::format("it is not due before {}", dayStamp(*next)) : "it is not due";
  }
  if (state.sum.skips > 0) return reasonText(state.lastSkip);
  return reasonText(missed(record, state));
}

}  // namespace kv::kvctl
