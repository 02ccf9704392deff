#pragma once

#include <optional>

#include "platform/Date.h"
#include "platform/PropertyList.h"
#include "scheduler/LocalMoment.h"

namespace kv {

/// What the rules will say of a set later, for those who tell the user. The ticks do without it.
///
/// Threads    main thread only.
/// Units      local time of the zone that holds at the moment of the call.
/// Errors     none: a record without usable fields is never due.

/// Whether the scheduler looks at the set at all. False for a set that is switched off or held,
/// and for one of a type that has no rule.
bool isTakingPart(const PropertyList& record);

/// The first moment, `now` or later, at which the set is due when nothing runs until then and its
/// record stays as it is. Nothing for a set that does not take part and for one that never will be
/// due. Its answers are the rules' own, asked at every moment at which they can change.
std::optional<Date> nextDue(const PropertyList& record, Date now, const DatePatterns& patterns);

}  // namespace kv
