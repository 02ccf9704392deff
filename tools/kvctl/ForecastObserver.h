#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "scheduler/LocalMoment.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvctl/Forecast.h"
#include "tools/simulation/SimulationObserver.h"

namespace kv::kvctl {

/// Makes a forecast of what the ticks of a simulation decide: since when each set is due, what it
/// waits for, and which days it misses.
///
/// Between begin() and end() it follows the simulation. A day is closed at the first tick after
/// it: then the sets that were to run on it and did not are told as skipped, and wait no more.
///
/// Threads    the simulation's.
class ForecastObserver final : public SimulationObserver {
 public:
  using Documents = std::function<std::shared_ptr<const TaskList>()>;

  ForecastObserver(const ForecastPlan& plan, ForecastSink& sink);

  /// `documents` yields the list as it stands.
  void begin(Documents documents);
  /// Tells of what is under way, and sums up.
  std::vector<ForecastSet> end();

  void tickBegan(Date now, const TaskList& list) override;
  void judged(const PropertyList& entry, Outcome outcome) override;
  void tickEnded() override;
  void runBegan(const SimulatedRun& run) override;
  void runEnded(const SimulatedRun& run) override;
  void wokeUp(Date now) override { wokeUpAt_ = now; }

 private:
  /// What is known of a set.
  struct State {
    /// When it is due, or has been since; nothing when it never will be.
    std::optional<Date> due;
    /// While it is due.
    std::vector<std::size_t> behind;
    std::optional<std::size_t> heldUpBy;
    std::optional<Date> missedVolumeAt;
    /// Of the present day.
    std::uint64_t missedVolume = 0;
    std::uint64_t wasBusy = 0;
    std::uint64_t wasPaused = 0;
    bool hasRunToday = false;
    /// Of the whole forecast.
    ForecastSet sum;
    std::uint64_t missedVolumeInAll = 0;
    bool hasBeenPaused = false;
    SkipReason lastSkip = SkipReason::kAsleep;
  };

  void setDue(std::size_t index, Date from);
  void closeDays(Date now);
  void closeDay(Date dayEnd);
  std::optional<ForecastSkip> skipOf(std::size_t index, Date dayEnd) const;
  static SkipReason missed(const PropertyList& record, const State& state);
  std::string whyNever(std::size_t index) const;
  std::string whyNeverInterval(const PropertyList& record, const State& state) const;
  std::string whyNeverByDays(const PropertyList& record, const State& state) const;
  std::string namesOf(const std::vector<std::size_t>& sets) const;

  const ForecastPlan plan_;
  ForecastSink& sink_;
  const DatePatterns patterns_;
  Documents documents_;
  std::vector<State> states_;
  const TaskList* list_ = nullptr;  // of the present tick
  /// The first interval set of the present tick that found no volume.
  std::optional<std::size_t> stuck_;
  /// The first moment of the present local day.
  Date dayStart_;
  int day_ = 0;
  Date lastTick_;
  Date wokeUpAt_;
  std::optional<ForecastRun> run_;
  std::size_t launching_ = 0;
};

}  // namespace kv::kvctl
