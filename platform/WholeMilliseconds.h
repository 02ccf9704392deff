#pragma once

#include <algorithm>
#include <cmath>
#include <limits>

#include "platform/Date.h"

namespace kv {

/// A date as it is shown: cut off to the millisecond, not rounded.
///
/// A date holds no more than some tenths of a microsecond today and some ten microseconds in the
/// year 9999, so a millisecond that was put in lies a little below itself when it comes out. It is
/// taken for the one that was meant; a second never becomes the next one.
///
/// Threads    a plain value.
/// Units      whole seconds since 1970-01-01 00:00:00 UTC, and 0 to 999 milliseconds.
/// Errors     none: of a date that is no number both are none.
struct WholeMilliseconds {
  explicit WholeMilliseconds(Date date) : seconds(std::floor(date.unixSeconds())) {
    constexpr double kPerSecond = 1000.0;
    // Twice the distance between two dates: one is lost in the date, one in its change of epoch.
    const double lostSeconds =
        2 * std::numeric_limits<double>::epsilon() * std::fabs(date.unixSeconds());
    const double lost = std::max(1e-3, lostSeconds * kPerSecond);
    const double fraction = (date.unixSeconds() - seconds) * kPerSecond;
    milliseconds = std::min(std::floor(fraction + lost), kPerSecond - 1);
  }

  double seconds;
  double milliseconds;
};

}  // namespace kv
