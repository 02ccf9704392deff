#pragma once

#include "tools/kvctl/CheckSubject.h"
#include "tools/kvctl/Problem.h"

namespace kv::kvctl {

/// All problems that can be found: those of files, of each set in the order of the list, and of
/// sets that keep others waiting. The rules of the scheduler itself are asked; no simulation is
/// run.
///
/// Threads    one.
Problems problemsOf(const CheckSubject& subject);

}  // namespace kv::kvctl
