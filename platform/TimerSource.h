#pragma once

#include <functional>
#include <memory>

#include "platform/Date.h"
#include "platform/SerialQueue.h"

namespace kv {

/// Fires once on a queue after a delay.
///
/// Threads    made and dropped on any thread; the handler runs as the queue.
/// Ownership  dropping the source cancels it: the handler does not begin after that, when it is
///            dropped by work that runs as the queue. The source does not hold the queue's thread
///            awake while it waits.
/// Units      the delay is on the monotonic clock, with nanoseconds; one of zero or less, or that
///            is no number, fires at once, one beyond 292 years never.
class TimerSource {
 public:
  virtual ~TimerSource() = default;
};

/// Makes one-shot timers. The real one keeps one thread for all of them, made for the first, which
/// sleeps until the next is due.
class TimerSources {
 public:
  virtual ~TimerSources() = default;
  virtual std::unique_ptr<TimerSource> fireOnce(Seconds delay, std::shared_ptr<SerialQueue> queue,
                                                std::function<void()> handler) = 0;
};

/// The process-wide real one.
std::shared_ptr<TimerSources> timerSources();

}  // namespace kv
