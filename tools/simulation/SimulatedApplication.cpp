#include "tools/simulation/SimulatedApplication.h"

#include <algorithm>
#include <utility>

#include "scheduler/TaskRecord.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/RunRecorder.h"

namespace kv {
namespace {

/// Nothing when the value is missing or no text: no application finds such a set or folder.
const std::string* textOf(const PropertyList* value) {
  return value == nullptr ? nullptr : value->as<PropertyList::String>();
}

}  // namespace

bool isWithin(std::string_view path, std::string_view folder) {
  if (!path.starts_with(folder)) return false;
  return path.size() == folder.size() || folder.ends_with('/') || path[folder.size()] == '/';
}

SimulatedApplication::SimulatedApplication(TaskList sets, Behaviour itsBehaviour,
                                           std::shared_ptr<const VirtualClock> clock,
                                           std::shared_ptr<SimulationObserver> observer)
    : behaviour(std::move(itsBehaviour)),
      clock_(std::move(clock)),
      observer_(std::move(observer)),
      sets_(std::make_shared<TaskList>(std::move(sets))) {}

void SimulatedApplication::replaceSets(TaskList sets) {
  sets_ = std::make_shared<TaskList>(std::move(sets));
}

bool SimulatedApplication::edit(const std::string& set,
                                const std::function<void(PropertyList::Dictionary&)>& change) {
  for (std::size_t index = 0; index < sets_->size(); ++index) {
    const std::string* const name = textOf(TaskRecord((*sets_)[index]).set());
    if (name == nullptr || *name != set) continue;
    if (sets_.use_count() > 1) sets_ = std::make_shared<TaskList>(*sets_);  // somebody keeps it
    change(*(*sets_)[index].as<PropertyList::Dictionary>());
    return true;
  }
  return false;
}

std::optional<Seconds> SimulatedApplication::untilEnd() const {
  if (!run_) return std::nullopt;
  return std::max(endsAtAwake_ - clock_->awake(), Seconds(0));
}

void SimulatedApplication::begin(const PropertyList* set) {
  if (run_) {
    ++collisions_;
    return;
  }
  const std::string* const name = textOf(set);
  const Date now = clock_->now();
  run_ = SimulatedRun{
      .set = name == nullptr ? "" : *name, .startedAt = now, .endedAt = now, .isRecorded = false};
  const Seconds duration =
      behaviour.durationOf ? behaviour.durationOf(run_->set) : behaviour.duration;
  endsAtAwake_ = clock_->awake() + duration;
  ++runs_;
  if (observer_) observer_->runBegan(*run_);
}

void SimulatedApplication::endRun() {
  if (!run_) return;
  SimulatedRun run = *std::exchange(run_, std::nullopt);
  run.endedAt = clock_->now();
  const bool hasFailed = behaviour.fails && behaviour.fails(run.set);
  if (behaviour.records && !hasFailed) {
    run.isRecorded = record(run);
  }
  if (observer_) observer_->runEnded(run);
}

void SimulatedApplication::reloadMenuNow(const TaskList&) {
  isSeenRunning_ = run_.has_value();
  away_.clear();
  const Date now = clock_->now();
  for (const Absence& absence : behaviour.absences) {
    if (absence.window.contains(now)) away_.push_back(&absence.destination);
  }
  for (const std::string& destination : detached_) away_.push_back(&destination);
}

bool SimulatedApplication::record(const SimulatedRun& run) {
  try {
    return edit(run.set, [&run](PropertyList::Dictionary& set) {
      recordRun(set, run.startedAt, run.endedAt);
    });
  } catch (const Refusal&) {
    return false;  // a record that cannot be written in
  }
}

std::optional<PropertyList> SimulatedApplication::checkRunningBackupStatus() {
  const bool isPaused = behaviour.isPaused && behaviour.isPaused(clock_->now());
  return PropertyList(isSeenRunning_ || isPaused ? 1 : 0);
}

std::optional<PropertyList> SimulatedApplication::checkBackupStatus() {
  return PropertyList(behaviour.isOpen ? 1 : 0);
}

bool SimulatedApplication::checkIfDiskExists_fromSchedule(const PropertyList* path, int) {
  const std::string* const destination = textOf(path);
  if (destination == nullptr || destination->empty()) return false;
  const auto isAway = [destination](const std::string* away) {
    return isWithin(*destination, *away);
  };
  return std::none_of(away_.begin(), away_.end(), isAway);
}

}  // namespace kv
