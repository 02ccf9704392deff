#pragma once

#include "tools/kvctl/CheckSubject.h"
#include "tools/kvctl/Problem.h"

namespace kv::kvctl {

/// Sets that are due or will be, and whose turn never comes.
///
/// Now: what would start if every set that can be started ran in no time and was recorded. Whoever
/// is due and still waits then is kept waiting by those that cannot be started, or whose runs never
/// reach their records:
///
///  - one that is more overdue hides those of its kind that stand behind it in the list;
///  - an overdue minute set hides all hour sets; an overdue hour set does so to its kind even when
///    it is switched off;
///  - one that is started again and again takes the place of all that come after it.
///
/// Always: hour sets have a turn only when no minute set is overdue. Where minute sets take so
/// long that one of them has always become overdue while the others ran, by the last runs of the
/// history, no hour set is ever started.
///
/// Threads    one.
void addStarvationProblems(const CheckSubject& subject, Problems& problems);

}  // namespace kv::kvctl
