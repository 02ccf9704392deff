#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform/MenuItem.h"
#include "platform/RunLoop.h"

namespace kv {

/// A run loop in which no time passes, for a scheduler whose ticks are asked for one by one.
///
/// Threads    as RunLoop.
class StandingRunLoop final : public RunLoop {
 public:
  std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds, std::function<void()>) override {
    return std::make_shared<Timer>();
  }

 private:
  class Timer final : public RepeatingTimer {
   public:
    void invalidate() override { isValid_ = false; }
    bool isValid() const override { return isValid_; }

   private:
    bool isValid_ = true;
  };
};

/// A scheduler's `dbugMenu` with which it traces from its next tick on.
class TracingItem final : public MenuItem {
 public:
  std::int32_t state() const override { return 1; }
  void setState(std::int32_t) override {}
};

}  // namespace kv
