#pragma once

#include <cstdint>
#include <optional>

#include "scheduler/LaunchSequence.h"
#include "scheduler/LocalMoment.h"
#include "scheduler/TaskRecord.h"
#include "scheduler/Trace.h"

namespace kv {

/// The rules of the main pass. Each judges one task that has passed its gate and says from which
/// site it is to be launched, or nothing when it is not due. They keep no state: whether a set
/// has run today stands in its record, and days are compared by their number alone. What they
/// answer at an instant depends on what the local clock and calendar show then, and on no more.
///
/// Threads    main thread only.

/// Which tasks the main pass judges, whatever their type.
bool passesMainGate(const TaskRecord& record);

/// Which interval tasks are launched when they are due. "runState" is not asked here: an interval
/// task held back by it is launched all the same.
bool passesIntervalGate(const TaskRecord& record);

/// Due on a day whose number differs from the stored one: at once in once-a-day mode, else from
/// the minute of "datePick" on.
std::optional<CallSite> judgeDaily(const TaskRecord& record, LocalMoment& moment, Trace& trace);

/// As the daily rule, on the selected weekdays only.
std::optional<CallSite> judgeWeekly(const TaskRecord& record, LocalMoment& moment, Trace& trace);

/// Whether the main pass has a rule for the task's type.
bool hasRule(const TaskRecord& record);

/// By the rule for the task's type; nothing for a type that the main pass has no rule for.
std::optional<CallSite> judgeByType(const TaskRecord& record, LocalMoment& moment, Trace& trace);

/// The time of day from which a task is due in normal mode, as a number: 930 is 09:30, and a task
/// without one is due from 0 on.
std::int64_t pickedTimeOfDay(const TaskRecord& record);

}  // namespace kv
