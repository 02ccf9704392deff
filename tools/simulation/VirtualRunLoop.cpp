#include "tools/simulation/VirtualRunLoop.h"

#include <algorithm>
#include <utility>

namespace kv {

struct VirtualRunLoop::Timer final : RepeatingTimer {
  void invalidate() override { action = nullptr; }
  bool isValid() const override { return action != nullptr; }
  Seconds due() const { return start + static_cast<double>(point) * interval; }

  Seconds start{};
  Seconds interval{};
  std::int64_t point = 1;  ///< the grid's point that comes next
  std::function<void()> action;
};

std::shared_ptr<RepeatingTimer> VirtualRunLoop::scheduleRepeatingTimer(
    Seconds interval, std::function<void()> action) {
  auto timer = std::make_shared<Timer>();
  timer->start = present();
  timer->interval = interval;
  timer->action = std::move(action);
  timers_.push_back(timer);
  return timer;
}

Seconds VirtualRunLoop::present() const {
  return sleep_ == Sleep::kCounts ? clock_->elapsed() : clock_->awake();
}

std::shared_ptr<VirtualRunLoop::Timer> VirtualRunLoop::earliest() const {
  std::shared_ptr<Timer> first;
  for (const auto& timer : timers_) {
    if (timer->isValid() && (!first || timer->due() < first->due())) first = timer;
  }
  return first;
}

std::optional<Seconds> VirtualRunLoop::untilNext() const {
  const auto timer = earliest();
  if (!timer) return std::nullopt;
  return std::max(timer->due() - present(), Seconds(0));
}

void VirtualRunLoop::fireNext() {
  const auto timer = earliest();
  if (!timer) return;
  const auto action = timer->action;  // survives an invalidation by itself
  action();
  const auto reached = static_cast<std::int64_t>((present() - timer->start) / timer->interval);
  timer->point = std::max(timer->point, reached) + 1;
  std::erase_if(timers_, [](const auto& one) { return !one->isValid(); });
}

void VirtualRunLoop::invalidateAll() {
  const auto timers = std::exchange(timers_, {});
  for (const auto& timer : timers) timer->invalidate();
}

}  // namespace kv
