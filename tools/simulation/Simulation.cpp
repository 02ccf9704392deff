#include "tools/simulation/Simulation.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace kv {
namespace {

constexpr Seconds kNever{std::numeric_limits<double>::infinity()};

}  // namespace

Simulation::Simulation(Plan plan)
    : begin_(plan.begin),
      clock_(std::make_shared<VirtualClock>(plan.begin)),
      runLoop_(std::make_shared<VirtualRunLoop>(clock_, plan.timersAsleep)),
      observer_(std::move(plan.observer)),
      application_(std::make_shared<SimulatedApplication>(
          std::move(plan.sets), std::move(plan.application), clock_, observer_)) {
  if (plan.asleep) planDailySleep(*plan.asleep);
  timer_ = KVTimer::create({.host = [host = application_] { return host; },
                            .clock = clock_,
                            .runLoop = runLoop_,
                            .files = std::move(plan.files),
                            .locale = std::move(plan.locale),
                            .homeFolder = "",
                            .traceFile = std::move(plan.traceFile),
                            .readList = [host = application_] { return host->sets(); },
                            .observer = observer_});
}

Simulation::~Simulation() {
  runLoop_->invalidateAll();  // a running timer holds the scheduler
}

void Simulation::at(Date moment, std::function<void()> action) {
  events_.emplace(std::max(moment - begin_, clock_->elapsed()), std::move(action));
}

void Simulation::sleep(Date from, Date until) {
  at(from, [this] { fallAsleep(); });
  at(until, [this] { wakeUp(); });
}

void Simulation::setClock(Date moment, Seconds by) {
  at(moment, [this, by] { clock_->set(by); });
}

void Simulation::fallAsleep() {
  clock_->fallAsleep();
  if (observer_) observer_->fellAsleep(clock_->now());
}

void Simulation::wakeUp() {
  clock_->wakeUp();
  if (observer_) observer_->wokeUp(clock_->now());
}

void Simulation::planDailySleep(const DailyWindow& window) {
  const Date now = clock_->now();
  const Date next = window.contains(now) ? now : window.nextBegin(now);
  at(realTime() + (next - now), [this, window] { sleepDaily(window); });
}

void Simulation::sleepDaily(const DailyWindow& window) {
  const Date now = clock_->now();
  fallAsleep();
  at(realTime() + (window.nextEnd(now) - now), [this, window] {
    wakeUp();
    planDailySleep(window);
  });
}

bool Simulation::doNext(Seconds end) {
  const Seconds now = clock_->elapsed();
  const bool isAwake = !clock_->isAsleep();
  const Seconds event = events_.empty() ? kNever : events_.begin()->first;
  const Seconds runEnd = isAwake ? now + application_->untilEnd().value_or(kNever) : kNever;
  const Seconds tick = isAwake ? now + runLoop_->untilNext().value_or(kNever) : kNever;
  const Seconds next = std::min({event, runEnd, tick});
  if (next > end) return false;
  clock_->passTo(next);
  if (event == next) {
    const auto action = std::move(events_.begin()->second);
    events_.erase(events_.begin());
    action();
  } else if (runEnd == next) {
    application_->endRun();
  } else {
    ++ticks_;
    runLoop_->fireNext();
  }
  return true;
}

void Simulation::runUntil(Date moment) {
  const Seconds end = moment - begin_;
  while (doNext(end)) {
  }
  clock_->passTo(end);
}

}  // namespace kv
