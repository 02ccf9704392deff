#include "platform/qt/QtRunLoop.h"

#include <QObject>
#include <QTimer>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <utility>
#include <vector>

namespace kv {
namespace {

using Monotonic = std::chrono::steady_clock;

/// A timer that asked for less would keep the loop from ever waiting.
constexpr Seconds kShortestInterval{0.001};

/// QTimer counts milliseconds in an int; longer waits are made of several.
constexpr double kLongestWaitMilliseconds = 24.0 * 3600 * 1000;

}  // namespace

/// What the timers of one run loop share. It outlives the run loop while an action runs.
struct QtRunLoop::State {
  std::vector<std::shared_ptr<Timer>> timers;
  /// An action is running; timers that fall due meanwhile (in an event loop of its own) wait.
  bool inAction = false;
};

/// One timer: a single-shot QTimer that is armed again for the next point of the grid.
class QtRunLoop::Timer final : public RepeatingTimer, public std::enable_shared_from_this<Timer> {
 public:
  Timer(std::shared_ptr<State> state, Seconds interval, std::function<void()> action)
      : state_(std::move(state)),
        interval_(std::max(interval, kShortestInterval)),
        start_(Monotonic::now()),
        action_(std::move(action)) {
    timer_.setSingleShot(true);
    timer_.setTimerType(Qt::PreciseTimer);
    QObject::connect(&timer_, &QTimer::timeout, &timer_, [this] { timedOut(); });
    arm();
  }

  void invalidate() override {
    if (!std::exchange(valid_, false)) return;
    timer_.stop();
    if (!running_) action_ = nullptr;
    const auto self = shared_from_this();  // the run loop may hold the last other reference
    std::erase(state_->timers, self);
  }

  bool isValid() const override { return valid_; }

  /// Comes after an action that this timer had to wait for.
  void catchUp() {
    if (valid_ && std::exchange(waiting_, false)) arm();
  }

 private:
  Seconds elapsed() const { return Monotonic::now() - start_; }
  Seconds nextPoint() const { return static_cast<double>(point_) * interval_; }

  void arm() {
    const double milliseconds = std::ceil((nextPoint() - elapsed()).count() * 1000.0);
    timer_.start(static_cast<int>(std::clamp(milliseconds, 0.0, kLongestWaitMilliseconds)));
  }

  void timedOut() {
    if (elapsed() < nextPoint()) {
      arm();  // one part of a long wait is over
    } else if (state_->inAction) {
      waiting_ = true;
    } else {
      fire();
    }
  }

  void fire() noexcept {
    const auto self = shared_from_this();
    const std::shared_ptr<State> state = state_;
    state->inAction = running_ = true;
    action_();
    state->inAction = running_ = false;
    if (valid_) {
      point_ = std::max(point_, static_cast<std::int64_t>(elapsed() / interval_)) + 1;
      arm();
    } else {
      action_ = nullptr;
    }
    const auto others = state->timers;
    for (const auto& timer : others) timer->catchUp();
  }

  const std::shared_ptr<State> state_;
  const Seconds interval_;
  const Monotonic::time_point start_;
  std::int64_t point_ = 1;  ///< the grid's point that comes next
  std::function<void()> action_;
  QTimer timer_;
  bool valid_ = true;
  bool running_ = false;
  bool waiting_ = false;
};

QtRunLoop::QtRunLoop() : state_(std::make_shared<State>()) {}

QtRunLoop::~QtRunLoop() {
  const auto timers = state_->timers;
  for (const auto& timer : timers) timer->invalidate();
}

std::shared_ptr<RepeatingTimer> QtRunLoop::scheduleRepeatingTimer(Seconds interval,
                                                                  std::function<void()> action) {
  auto timer = std::make_shared<Timer>(state_, interval, std::move(action));
  state_->timers.push_back(timer);
  return timer;
}

}  // namespace kv
