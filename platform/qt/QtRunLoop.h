#pragma once

#include <memory>

#include "platform/RunLoop.h"

namespace kv {

/// Timers on Qt's event loop of the thread that schedules them.
///
/// The firings of a timer lie on a grid: the time of scheduling plus whole intervals. A firing that
/// comes late, because the loop was busy, moves none of the later ones, and those that were missed
/// are not made up for. Each firing wakes the process once.
///
/// Threads    the thread of the application object.
/// Ownership  a valid timer lives until it is invalidated or the run loop object dies, which
///            invalidates all.
/// Units      the monotonic clock, in whole milliseconds; intervals below one are one. The clock
///            stands still while the machine sleeps.
/// Errors     an exception that leaves an action ends the program.
class QtRunLoop final : public RunLoop {
 public:
  QtRunLoop();
  ~QtRunLoop() override;
  QtRunLoop(const QtRunLoop&) = delete;
  QtRunLoop& operator=(const QtRunLoop&) = delete;
  std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds interval,
                                                         std::function<void()> action) override;

 private:
  class Timer;
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace kv
