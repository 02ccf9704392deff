#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/RunLoop.h"
#include "tools/simulation/VirtualClock.h"

namespace kv {

/// The event loop of a simulation. Its timers keep the grid that begins where they were made: one
/// that comes late fires once, and then at the grid's next point.
///
/// Threads    one.
/// Ownership  a valid timer is held until it is invalidated: see invalidateAll().
class VirtualRunLoop final : public RunLoop {
 public:
  /// Whether the time asleep counts for the timers. On Linux it does not: they stand still with
  /// the computer.
  enum class Sleep { kCounts, kStandsStill };

  VirtualRunLoop(std::shared_ptr<const VirtualClock> clock, Sleep sleep)
      : clock_(std::move(clock)), sleep_(sleep) {}

  std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds interval,
                                                         std::function<void()> action) override;

  /// How long the computer must be awake until a timer is due, 0 when one is overdue; nothing
  /// without timers.
  std::optional<Seconds> untilNext() const;
  /// Fires the timer that is due first, as if its time had come.
  void fireNext();

  void invalidateAll();

 private:
  struct Timer;
  Seconds present() const;
  std::shared_ptr<Timer> earliest() const;

  const std::shared_ptr<const VirtualClock> clock_;
  const Sleep sleep_;
  std::vector<std::shared_ptr<Timer>> timers_;
};

}  // namespace kv
