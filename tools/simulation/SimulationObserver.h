#pragma once

#include <string>

#include "platform/Date.h"
#include "scheduler/TickObserver.h"

namespace kv {

/// One backup of a simulated application.
///
/// Units      dates as the wall clock showed them then.
struct SimulatedRun {
  /// Empty for a set without a name that is a text.
  std::string set;
  Date startedAt;
  /// Equal to `startedAt` until it ends.
  Date endedAt;
  /// False when it failed, when the application records nothing, and when no set has the name.
  bool isRecorded = false;
};

/// Who wants to know what happens in a simulation: what the ticks decide, and what becomes of it.
///
/// Threads    the simulation's.
/// Errors     must not throw.
class SimulationObserver : public TickObserver {
 public:
  void tickBegan(Date, const TaskList&) override {}
  void judged(const PropertyList&, Outcome) override {}
  void tickEnded() override {}
  virtual void runBegan(const SimulatedRun&) {}
  virtual void runEnded(const SimulatedRun&) {}
  virtual void fellAsleep(Date) {}
  virtual void wokeUp(Date) {}
};

}  // namespace kv
