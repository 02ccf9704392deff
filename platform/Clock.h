#pragma once

#include "platform/Date.h"

namespace kv {

/// Where the time of day comes from.
///
/// Threads    any.
class Clock {
 public:
  virtual ~Clock() = default;
  /// The present instant of the wall clock, which may step in either direction.
  virtual Date now() const = 0;
};

}  // namespace kv
