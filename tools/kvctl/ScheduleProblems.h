#pragma once

#include <array>

#include "tools/kvctl/CheckSubject.h"
#include "tools/kvctl/Problem.h"
#include "tools/kvctl/ScheduleArguments.h"

namespace kv::kvctl {

/// On which weekdays a set runs for which a given one is chosen, by the weekly rule itself: the
/// rule goes by the numbers that days have in the locale's week.
///
/// Threads    one.
class WeekdayRule {
 public:
  explicit WeekdayRule(const CheckSubject& subject);

  /// None for a day that never matches.
  const Weekdays& runsOn(std::size_t chosen) const { return runsOn_[chosen]; }
  Weekdays runsOn(const Weekdays& chosen) const;

 private:
  std::array<Weekdays, 7> runsOn_{};
};

/// What is wrong with the schedule of one set that the scheduler looks at.
///
/// Threads    one.
void addScheduleProblems(const CheckSubject& subject, const WeekdayRule& weekdays,
                         const SetEntry& set, Problems& problems);

}  // namespace kv::kvctl
