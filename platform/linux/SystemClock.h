#pragma once

#include "platform/Clock.h"

namespace kv {

/// The system's wall clock. Threads: any.
class SystemClock final : public Clock {
 public:
  Date now() const override;
};

}  // namespace kv
