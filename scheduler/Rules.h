#pragma once

#include <optional>

#include "scheduler/LaunchSequence.h"
#include "scheduler/LocalMoment.h"
#include "scheduler/TaskRecord.h"
#include "scheduler/Trace.h"

namespace kv {

/// The rules of the main pass. Each judges one task that has passed its gate and says from which
/// site it is to be launched, or nothing when it is not due. They keep no state: whether a set
/// has run today stands in its record, and days are compared by their number alone.
///
/// Threads    main thread only.

/// Due on a day whose number differs from the stored one: at once in once-a-day mode, else from
/// the minute of "datePick" on.
std::optional<CallSite> judgeDaily(const TaskRecord& record, LocalMoment& moment, Trace& trace);

/// As the daily rule, on the selected weekdays only.
std::optional<CallSite> judgeWeekly(const TaskRecord& record, LocalMoment& moment, Trace& trace);

}  // namespace kv
