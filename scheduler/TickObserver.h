#pragma once

#include "app/Host.h"
#include "platform/Date.h"
#include "platform/PropertyList.h"

namespace kv {

/// What became of a set that a tick looked at.
enum class Outcome {
  kSwitchedOff,    ///< it is not scheduled
  kHeld,           ///< "runState" holds it back; interval sets are never held by it
  kNoRule,         ///< its type is none that a rule exists for
  kNotDue,         ///< its rule, or its date, says so
  kNoVolume,       ///< due, but its destination is not there
  kBackupRunning,  ///< due, but the host says that a backup is running
  kAnotherFirst,   ///< due, but this tick has launched another set
  kLaunched,       ///< launched through the closed backup application
  kAsked,          ///< launched by asking the open backup application
};

/// Whether the outcome is that the set was launched.
constexpr bool isLaunch(Outcome outcome) {
  return outcome == Outcome::kLaunched || outcome == Outcome::kAsked;
}

/// Who wants to know what each tick decides. It learns the decisions themselves, as they are made,
/// whether tracing is on or not.
///
/// An interval set is told of by the interval pass alone, which looks only at those that
/// IntervalOrder.h lets through; of the others, and of what comes behind a launch, no word comes.
///
/// Threads    main thread only.
/// Ownership  `list` and what points into it live until tickEnded().
/// Errors     must not throw.
class TickObserver {
 public:
  virtual ~TickObserver() = default;
  /// The documents have been read and the host has been handed the list.
  virtual void tickBegan(Date now, const TaskList& list) = 0;
  /// `entry` is an element of the list. A launch is told before the host is called for it.
  virtual void judged(const PropertyList& entry, Outcome outcome) = 0;
  virtual void tickEnded() = 0;
};

}  // namespace kv
