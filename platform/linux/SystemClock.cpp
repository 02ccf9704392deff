#include "platform/linux/SystemClock.h"

#include <time.h>

namespace kv {

Date dateFromSystemTime(std::int64_t seconds, std::int64_t nanoseconds) {
  constexpr double kSecondsPerNanosecond = 1e-9;
  // Whole seconds first: the sum from 1970 would cost the fraction half of its last digits.
  return {Seconds((static_cast<double>(seconds) - Date::kReferenceInUnixSeconds) +
                  static_cast<double>(nanoseconds) * kSecondsPerNanosecond)};
}

Date SystemClock::now() const {
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  return dateFromSystemTime(time.tv_sec, time.tv_nsec);
}

}  // namespace kv
