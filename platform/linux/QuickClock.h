#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "platform/Clock.h"
#include "platform/linux/SystemClock.h"

namespace kv {

/// The system's wall clock for those who ask very often: it looks there once a millisecond of each
/// thread, and goes on from what it saw by the processor's own count of time.
///
/// It is some microseconds behind the system's clock, and not ahead of it: it goes on a thousandth
/// slower than the count tells, and the system's clock keeps to that count better unless it is
/// being corrected fast. So a thread sees time go back only when the system's clock was set back,
/// which shows a millisecond late, or by less than a tenth of a millisecond when that was slowed
/// down.
///
/// How fast the count runs is measured first, which takes some ten milliseconds. Until then, and
/// where there is no count to rely on, the system's clock is asked each time.
///
/// Threads    any.
class QuickClock final : public Clock {
 public:
  /// What the clock looks at: the system's own functions, save in tests.
  struct Source {
    /// The processor's count, the same for all threads; null for none.
    std::uint64_t (*ticks)();
    SystemTime (*now)();
    /// The time since some moment, by a clock that is never set.
    Seconds (*steady)();
  };

  explicit QuickClock(const Source& source = systemSource());
  Date now() const override;

 private:
  /// One moment by all three.
  struct Look {
    std::uint64_t ticks = 0;
    SystemTime time;
    Seconds steady{0};
  };
  /// What a thread goes on from.
  struct Base {
    /// The clock that it belongs to; 0 for none.
    std::uint64_t clock = 0;
    Look look;
    /// For how many ticks it is good, and the length of each in nanoseconds.
    std::int64_t lastingTicks = 0;
    double tick = 0;
  };

  static Source systemSource();
  /// Seldom: kept out of the way of now().
  [[gnu::noinline]] Date lookAgain() const;
  std::optional<Look> look() const;
  /// The length of a tick in nanoseconds, made shorter by a thousandth; none when the looks lie too
  /// near to each other or too far apart to tell.
  static std::optional<double> tickBetween(const Look& earlier, const Look& later);

  static constinit thread_local Base tBase;

  Source source_;
  const std::uint64_t number_;
  /// See tickBetween(); 0 as long as it is not known.
  mutable std::atomic<double> tick_{0};
};

}  // namespace kv
