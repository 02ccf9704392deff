#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/Files.h"
#include "scheduler/KVTimer.h"
#include "tools/simulation/DailyWindow.h"
#include "tools/simulation/SimulatedApplication.h"
#include "tools/simulation/SimulationObserver.h"
#include "tools/simulation/VirtualClock.h"
#include "tools/simulation/VirtualRunLoop.h"

namespace kv {

/// The production scheduler, let loose on a simulated computer: every tick really runs, on a clock
/// that jumps from one to the next, with an application that records what it backs up.
///
///     Simulation simulation({.sets = sets, .begin = localDate("2024-03-01 00:00"),
///                            .locale = DateLocale::fromName("de_DE"), .observer = observer});
///     simulation.sleep(localDate("2024-03-05 09:00"), localDate("2024-03-05 11:00"));
///     simulation.runUntil(localDate("2024-04-01 00:00"));
///
/// Moments are instants of real time: what the wall clock shows while nobody sets it. What is to
/// happen at one moment happens in this order: events in the order in which they were asked for,
/// the end of a run, a tick.
///
/// The zone is the process's, as in production. To change it: an event that sets TZ.
///
/// Threads    one.
/// Ownership  dies with its scheduler; may not die within an event.
/// Units      a year is some 553,000 ticks. Memory does not grow with the time that passes.
class Simulation {
 public:
  struct Plan {
    TaskList sets;
    /// The scheduler is made at this moment; the first tick comes one interval later.
    Date begin;
    DateLocale locale;
    SimulatedApplication::Behaviour application = {};
    /// Learns of ticks, runs and sleep. May be null.
    std::shared_ptr<SimulationObserver> observer = nullptr;
    /// When the computer sleeps, day by day.
    std::optional<DailyWindow> asleep = std::nullopt;
    VirtualRunLoop::Sleep timersAsleep = VirtualRunLoop::Sleep::kCounts;
    /// For those who trace; the trace file is left alone until `dbugMenu` of timer() is set.
    std::shared_ptr<Files> files = nullptr;
    std::string traceFile = "";
  };

  explicit Simulation(Plan plan);
  ~Simulation();
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  /// Does `action` at the moment, or at once when that has passed.
  void at(Date moment, std::function<void()> action);
  /// The computer sleeps: no ticks, and a run under way lasts longer by that.
  void sleep(Date from, Date until);
  /// Sets the wall clock forth or back at the moment.
  void setClock(Date moment, Seconds by);

  /// Lets time pass up to the moment, and whatever falls on it.
  void runUntil(Date moment);

  const VirtualClock& clock() const { return *clock_; }
  SimulatedApplication& application() { return *application_; }
  KVTimer& timer() { return *timer_; }
  std::uint64_t ticks() const { return ticks_; }

 private:
  Date realTime() const { return begin_ + clock_->elapsed(); }
  void fallAsleep();
  void wakeUp();
  void sleepDaily(const DailyWindow& window);
  void planDailySleep(const DailyWindow& window);
  /// Goes to what comes next and does it; false when nothing comes up to `end`.
  bool doNext(Seconds end);

  const Date begin_;
  const std::shared_ptr<VirtualClock> clock_;
  const std::shared_ptr<VirtualRunLoop> runLoop_;
  const std::shared_ptr<SimulationObserver> observer_;
  const std::shared_ptr<SimulatedApplication> application_;
  std::shared_ptr<KVTimer> timer_;
  std::multimap<Seconds, std::function<void()>> events_;
  std::uint64_t ticks_ = 0;
};

}  // namespace kv
