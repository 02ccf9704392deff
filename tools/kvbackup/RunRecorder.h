#pragma once

#include <optional>

#include "platform/Date.h"
#include "platform/PropertyList.h"

namespace kv {

/// What a finished run leaves in the set's record, so that the scheduler knows when it is due
/// again.
///
/// "dayOfMonth"   the local day on which the run *started*: a run that begins before midnight and
///                ends after it is not the next day's. A stored number stays a number.
/// "minhourdate"  hourly and minute sets only: the next moment of the set's grid after `now`.
///
/// Errors     Refusal when the record's options cannot be written (see BackupSet::options).
void recordRun(PropertyList::Dictionary& record, Date startedAt, Date now);

/// How long the interval of a set is. Zero, less or nothing counts as an hour, so that such a set
/// is not due at every tick; more than a year counts as a year.
Seconds intervalOf(const PropertyList& record);

/// The first moment after `now` of the grid that goes through `stored` in steps of `step`, without
/// counting the steps. A date that is still to come stays: a run by hand puts nothing forward. A
/// missing date, or one millennia away, is no grid: a new one begins at the whole minute in which
/// the run started.
Date nextOnGrid(std::optional<Date> stored, Seconds step, Date startedAt, Date now);

}  // namespace kv
