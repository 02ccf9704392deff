#pragma once

#include "tools/kvctl/CheckSubject.h"
#include "tools/kvctl/Problem.h"

namespace kv::kvctl {

/// The problems of the files as such: the documents that cannot be read, and the trace file.
///
/// Threads    one.
void addFileProblems(const CheckSubject& subject, Problems& problems);

}  // namespace kv::kvctl
