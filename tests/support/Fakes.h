#pragma once

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "app/Host.h"
#include "platform/Clock.h"
#include "platform/MenuItem.h"
#include "platform/RunLoop.h"

namespace kv::test {

/// A clock that stands still until it is set.
class FakeClock final : public Clock {
 public:
  Date now() const override { return present; }
  Date present;
};

/// A run loop whose time passes only in advance().
class FakeRunLoop final : public RunLoop {
 public:
  std::shared_ptr<RepeatingTimer> scheduleRepeatingTimer(Seconds interval,
                                                         std::function<void()> action) override {
    auto timer = std::make_shared<Timer>();
    timer->interval = interval;
    timer->due = now_ + interval;
    timer->action = std::move(action);
    timers_.push_back(timer);
    return timer;
  }

  /// Fires what falls due, in the order of the times.
  void advance(Seconds step) {
    const Seconds end = now_ + step;
    for (auto next = earliest(); next && next->due <= end; next = earliest()) {
      now_ = next->due;
      next->due += next->interval;
      const auto action = next->action;  // survives an invalidation by itself
      action();
    }
    now_ = end;
  }

  void invalidateAll() {
    for (const auto& timer : timers_) timer->invalidate();
  }

  std::size_t validTimers() const {
    return static_cast<std::size_t>(std::count_if(
        timers_.begin(), timers_.end(), [](const auto& timer) { return timer->isValid(); }));
  }

 private:
  struct Timer final : RepeatingTimer {
    void invalidate() override { action = nullptr; }
    bool isValid() const override { return action != nullptr; }
    Seconds interval{};
    Seconds due{};
    std::function<void()> action;
  };

  std::shared_ptr<Timer> earliest() const {
    std::shared_ptr<Timer> first;
    for (const auto& timer : timers_) {
      if (timer->isValid() && (!first || timer->due < first->due)) first = timer;
    }
    return first;
  }

  Seconds now_{0};
  std::vector<std::shared_ptr<Timer>> timers_;
};

class FakeMenuItem final : public MenuItem {
 public:
  explicit FakeMenuItem(std::int32_t state) : state_(state) {}
  std::int32_t state() const override { return state_; }
  void setState(std::int32_t state) override { state_ = state; }

 private:
  std::int32_t state_;
};

/// A host whose answers are set beforehand and whose calls are listed in order.
class RecordingHost final : public Host {
 public:
  void reloadMenuNow(const TaskList& list) override {
    calls.push_back("reload " + std::to_string(list.size()));
    lastList = list;
    if (onReload) onReload();
  }
  std::optional<PropertyList> checkRunningBackupStatus() override {
    calls.push_back("running?");
    return running;
  }
  std::optional<PropertyList> checkBackupStatus() override {
    calls.push_back("open?");
    return open;
  }
  bool checkIfDiskExists_fromSchedule(const PropertyList* path, int fromSchedule) override {
    calls.push_back("disk " + text(path) + " " + std::to_string(fromSchedule));
    return std::find(missing.begin(), missing.end(), text(path)) == missing.end();
  }
  void backupNow(const PropertyList* set) override {
    calls.push_back("backup " + text(set));
    launched.push_back(text(set));
  }
  void backupNowViaScript(const PropertyList* set) override {
    calls.push_back("script " + text(set));
    launched.push_back(text(set));
  }

  std::optional<PropertyList> running = PropertyList(0);
  std::optional<PropertyList> open = PropertyList(0);
  std::vector<std::string> missing;
  std::function<void()> onReload;

  std::vector<std::string> calls;
  std::vector<std::string> launched;
  TaskList lastList;

 private:
  static std::string text(const PropertyList* value) {
    return value == nullptr ? "nil" : value->description();
  }
};

}  // namespace kv::test
