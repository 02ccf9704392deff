#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Date.h"

namespace kv {

/// The local time zone, as the system's C library knows it at the moment of the call: a change of
/// the zone (TZ, /etc/localtime) holds from the next call on.
///
/// Threads    any, while no thread changes the environment.

/// How far local time is ahead of UTC at `date`; nothing for an instant that no calendar can hold.
std::optional<Seconds> localOffsetFromUtc(Date date);

/// The local time of day of `date` as the number that hour and minute form: 905 is 09:05.
std::optional<std::int64_t> localTimeNumber(Date date);

/// The local time of day of `date` as "09:05:07"; digits are ASCII in every locale.
std::string localTimeOfDay(Date date);

}  // namespace kv
