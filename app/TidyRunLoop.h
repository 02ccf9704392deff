#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/RunLoop.h"

namespace kv {

/// A run loop that tidies up after each firing of its timers.
///
/// Threads    as RunLoop.
/// Ownership  the timers keep `tidyUp` for as long as they are valid.
class TidyRunLoop final : public RunLoop {
 public:
  TidyRunLoop(std::shared_ptr<RunLoop> runLoop, std::function<void()> tidyUp)
      : runLoop_(std::move(runLoop)), tidyUp_(std::move(tidyUp)) {}

  std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds interval,
                                                         std::function<void()> action) override {
    return runLoop_->scheduleRepeatingTimer(interval,
                                            [action = std::move(action), tidyUp = tidyUp_] {
                                              action();
                                              tidyUp();
                                            });
  }

 private:
  const std::shared_ptr<RunLoop> runLoop_;
  const std::function<void()> tidyUp_;
};

}  // namespace kv
