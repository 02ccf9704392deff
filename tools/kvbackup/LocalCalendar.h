#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Date.h"

namespace kv {

/// Instants as calendar dates, without formatting by locale.
///
/// Threads    any, while no thread changes the environment (the zone is the C library's).
/// Errors     instants that no calendar holds show as "?".

/// The day of the month on which `date` falls locally: 1 to 31.
int localDayOfMonth(Date date);

/// `date` with the seconds since its whole minute dropped.
Date wholeMinute(Date date);

/// A date whose local time of day is `minuteOfDay`: on the local day of `date`, or on the first
/// day after it on which clocks show that time (a change to summer time skips an hour).
Date dateWithTimeOfDay(Date date, int minuteOfDay);

/// "2024-03-05 09:30", local.
std::string localStamp(Date date);

/// "2024-03-05T08:30:00Z".
std::string utcStamp(Date date);

/// Reads what utcStamp writes.
std::optional<Date> dateFromUtcStamp(std::string_view stamp);

}  // namespace kv
