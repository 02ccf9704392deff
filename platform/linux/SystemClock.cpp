#include "platform/linux/SystemClock.h"

#include <time.h>

namespace kv {

Date SystemClock::now() const {
  constexpr double kSecondsPerNanosecond = 1e-9;
  timespec time{};
  clock_gettime(CLOCK_REALTIME, &time);
  // Whole seconds first: the sum from 1970 would cost the fraction half of its last digits.
  return {Seconds((static_cast<double>(time.tv_sec) - Date::kReferenceInUnixSeconds) +
                  static_cast<double>(time.tv_nsec) * kSecondsPerNanosecond)};
}

}  // namespace kv
