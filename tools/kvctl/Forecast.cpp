#include "tools/kvctl/Forecast.h"

#include <algorithm>
#include <memory>
#include <utility>

#include "scheduler/KVTimer.h"
#include "tools/kvctl/ForecastObserver.h"
#include "tools/simulation/Simulation.h"

namespace kv::kvctl {

Date ForecastPlan::end() const {
  constexpr Seconds kDay{86400};
  return begin + days * kDay;
}

bool ForecastRun::isLate() const {
  return startedAt - due > KVTimer::kTickInterval;
}

std::vector<ForecastSet> forecast(const TaskList& sets, const ForecastPlan& plan,
                                  ForecastSink& sink) {
  const auto isPaused = [pause = plan.pause](Date now) { return pause && pause->contains(now); };
  const auto observer = std::make_shared<ForecastObserver>(plan, sink);
  Simulation simulation(
      {.sets = sets,
       .begin = plan.begin,
       .locale = plan.locale,
       .application = {.duration = plan.duration, .isPaused = isPaused, .absences = plan.absences},
       .observer = observer,
       .asleep = plan.asleep,
       .timersAsleep = VirtualRunLoop::Sleep::kStandsStill});
  observer->begin([&simulation] { return simulation.application().sets(); });
  simulation.runUntil(plan.end());
  return observer->end();
}

}  // namespace kv::kvctl
