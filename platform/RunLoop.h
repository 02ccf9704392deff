#pragma once

#include <functional>
#include <memory>

#include "platform/Date.h"

namespace kv {

/// A timer that a RunLoop fires again and again until it is invalidated.
///
/// Threads    the run loop's thread only.
/// Ownership  the run loop holds a valid timer and, through its action, whatever the action
///            holds. Invalidating drops the action at once, or after its return when it is
///            running.
class RepeatingTimer {
 public:
  virtual ~RepeatingTimer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
};

/// The main thread's event loop, as far as timers are concerned.
///
/// Threads    its own thread only; an action never runs inside another action.
class RunLoop {
 public:
  virtual ~RunLoop() = default;

  /// Fires `action` every `interval`, for the first time one interval from now.
  virtual std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds interval,
                                                                 std::function<void()> action) = 0;
};

}  // namespace kv
