#pragma once

#include "platform/Clock.h"
#include "platform/Date.h"

namespace kv {

/// The time of a simulation: it passes only when somebody lets it pass.
///
/// elapsed()  what has really passed since the simulation began, sleep included; never goes back.
/// awake()    elapsed() without the time asleep.
/// now()      what the wall clock shows: it goes along with elapsed() and can be set in addition.
///
/// Threads    one.
class VirtualClock final : public Clock {
 public:
  explicit VirtualClock(Date begin) : begin_(begin) {}

  Date now() const override { return begin_ + (elapsed_ + set_); }
  Seconds elapsed() const { return elapsed_; }
  Seconds awake() const { return elapsed_ - slept_; }
  bool isAsleep() const { return sleeps_ > 0; }

  /// Lets time pass until that much has passed since the beginning. What has passed stays.
  void passTo(Seconds elapsed) {
    if (elapsed <= elapsed_) return;
    if (isAsleep()) slept_ += elapsed - elapsed_;
    elapsed_ = elapsed;
  }

  /// Sets the wall clock forth, or back when `by` is less than nothing.
  void set(Seconds by) { set_ += by; }

  /// Sleeps may overlap: each is begun and ended once.
  void fallAsleep() { ++sleeps_; }
  void wakeUp() { --sleeps_; }

 private:
  const Date begin_;
  Seconds elapsed_{0};
  Seconds slept_{0};
  Seconds set_{0};
  int sleeps_ = 0;
};

}  // namespace kv
