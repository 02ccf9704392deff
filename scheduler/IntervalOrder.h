#pragma once

#include <vector>

#include "app/Host.h"
#include "scheduler/LocalMoment.h"
#include "scheduler/Trace.h"

namespace kv {

/// The overdue interval tasks in the order in which they are to be tried: the most overdue first.
///
/// Minute tasks come alone when any is overdue, else hour tasks. It is no full sort: a task whose
/// overdue time does not beat the greatest one seen before it is left out, and so is one that is
/// due at this very instant. Hour tasks that are not scheduled are considered all the same; the
/// caller passes over them.
///
/// Threads    main thread only.
/// Ownership  the result points into `list`.
std::vector<const PropertyList*> overdueIntervalTasks(const TaskList& list, Date now,
                                                      const DatePatterns& patterns, Trace& trace);

}  // namespace kv
