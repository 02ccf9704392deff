#include "app/DecisionRecord.h"

#include <algorithm>
#include <cstddef>

#include "scheduler/TaskRecord.h"

namespace kv {

void DecisionRecord::tickBegan(Date now, const TaskList& list) {
  lastTick_ = now;
  first_ = list.data();
  entries_.resize(list.size());
  for (std::size_t index = 0; index < list.size(); ++index) {
    entries_[index].name = TaskRecord(list[index]).shownSet().value_or("");
    entries_[index].outcome.reset();
  }
  forgetRemoved();
}

void DecisionRecord::judged(const PropertyList& entry, Outcome outcome) {
  Entry& judged = entries_.at(static_cast<std::size_t>(&entry - first_));
  judged.outcome = outcome;
  if (isLaunch(outcome)) launches_[judged.name] = *lastTick_;
}

void DecisionRecord::forgetRemoved() {
  std::erase_if(launches_, [this](const auto& launch) {
    return std::none_of(entries_.begin(), entries_.end(),
                        [&](const Entry& entry) { return entry.name == launch.first; });
  });
}

std::optional<Date> DecisionRecord::lastLaunch(const std::string& name) const {
  const auto found = launches_.find(name);
  return found == launches_.end() ? std::nullopt : std::optional(found->second);
}

bool DecisionRecord::takeChanged() {
  const bool isSame = std::equal(entries_.begin(), entries_.end(), told_.begin(), told_.end(),
                                 [](const Entry& one, const Entry& other) {
                                   return one.name == other.name && one.outcome == other.outcome;
                                 });
  if (!isSame) told_ = entries_;
  return !isSame;
}

const char* wordFor(Outcome outcome) {
  switch (outcome) {
    case Outcome::kSwitchedOff:
      return "switched-off";
    case Outcome::kHeld:
      return "held";
    case Outcome::kNoRule:
      return "no-rule";
    case Outcome::kNotDue:
      return "not-due";
    case Outcome::kNoVolume:
      return "no-volume";
    case Outcome::kBackupRunning:
      return "backup-running";
    case Outcome::kAnotherFirst:
      return "another-first";
    case Outcome::kLaunched:
      return "launched";
    case Outcome::kAsked:
      return "asked";
  }
  return "not-due";
}

}  // namespace kv
