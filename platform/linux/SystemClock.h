#pragma once

#include <cstdint>

#include "platform/Clock.h"

namespace kv {

/// The instant that the system counts as seconds since 1970 and nanoseconds.
Date dateFromSystemTime(std::int64_t seconds, std::int64_t nanoseconds);

/// The system's wall clock. Threads: any.
class SystemClock final : public Clock {
 public:
  Date now() const override;
};

}  // namespace kv
