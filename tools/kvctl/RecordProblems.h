#pragma once

#include "tools/kvctl/CheckSubject.h"
#include "tools/kvctl/Problem.h"

namespace kv::kvctl {

/// The problems of one record whatever its schedule: what it lacks, values that are read as
/// something else, a name that another set bears, runs that do not reach it.
///
/// A set that the scheduler does not look at may lack anything.
///
/// Threads    one.
void addRecordProblems(const CheckSubject& subject, const SetEntry& set, Problems& problems);

}  // namespace kv::kvctl
