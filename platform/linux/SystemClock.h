#pragma once

#include <cstdint>

#include "platform/Clock.h"

namespace kv {

/// The system's wall-clock time: whole seconds since 1970-01-01 00:00:00 UTC, and nanoseconds.
struct SystemTime {
  std::int64_t seconds = 0;
  double nanoseconds = 0;
};
SystemTime currentSystemTime();

/// Inline: asked for each message of the log.
inline Date dateFrom(const SystemTime& time) {
  constexpr double kSecondsPerNanosecond = 1e-9;
  // Whole seconds first: the sum from 1970 would cost the fraction half of its last digits.
  return {Seconds((static_cast<double>(time.seconds) - Date::kReferenceInUnixSeconds) +
                  time.nanoseconds * kSecondsPerNanosecond)};
}

/// The system's wall clock. Threads: any.
class SystemClock final : public Clock {
 public:
  Date now() const override;
};

}  // namespace kv
