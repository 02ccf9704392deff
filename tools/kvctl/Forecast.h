#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "app/Host.h"
#include "platform/Date.h"
#include "platform/DateFormatter.h"
#include "tools/kvctl/Pause.h"
#include "tools/simulation/DailyWindow.h"
#include "tools/simulation/SimulatedApplication.h"

namespace kv::kvctl {

/// What a forecast supposes of the world.
struct ForecastPlan {
  Date begin;
  int days = 7;
  DateLocale locale;
  Seconds duration{20 * 60};
  std::vector<SimulatedApplication::Absence> absences = {};
  std::optional<DailyWindow> asleep = std::nullopt;
  /// In force when the forecast begins.
  std::optional<Pause> pause = std::nullopt;

  Date end() const;
};

/// One launch to come. Sets are named by their place in the joined list.
struct ForecastRun {
  std::size_t index = 0;
  /// Since when it could have run, had nothing stood in its way; `startedAt` at the latest.
  Date due;
  Date startedAt;
  /// When it ends; the forecast's end when it is still under way then.
  Date endedAt;
  bool isOver = true;
  /// The sets that ran while it was due.
  std::vector<std::size_t> behind;
  /// The interval set that came before it while nothing ran, and could not start: its destination
  /// was away.
  std::optional<std::size_t> heldUpBy;
  /// Whether its destination was missed while it was due.
  bool missedVolume = false;
  /// When the computer woke up while it was due.
  std::optional<Date> sleptUntil;
  /// The end of the pause, when it was due before that.
  std::optional<Date> pausedUntil;

  /// Whether it came more than a tick late.
  bool isLate() const;
};

/// Why a daily or weekly set does not run on a day on which it was to run.
enum class SkipReason {
  kNoDestination,  ///< it has none
  kNoVolume,       ///< its destination is away
  kBusy,           ///< other backups run
  kPaused,         ///< the schedule is paused
  kStoredDay,      ///< it last ran on a day of the same number
  kAsleep,         ///< there is no tick on that day after its time
};

struct ForecastSkip {
  std::size_t index = 0;
  /// When it would have been due.
  Date due;
  SkipReason reason = SkipReason::kAsleep;
  std::vector<std::size_t> behind;
};

/// What the whole forecast says of one set.
struct ForecastSet {
  std::uint64_t runs = 0;
  std::uint64_t skips = 0;
  /// Since when it waits at the end of the forecast, when it does.
  std::optional<Date> waitsSince;
  /// When it runs at no time: why, as a sentence without its name.
  std::string whyNever;
};

/// Who is told what will happen, in the order of the days.
class ForecastSink {
 public:
  virtual ~ForecastSink() = default;
  virtual void runs(const ForecastRun& run) = 0;
  virtual void skips(const ForecastSkip& skip) = 0;
};

/// Lets the production scheduler run from `begin` on with the sets as they stand, and tells what it
/// does. Memory does not grow with the days. Yields one element for each set.
///
/// Threads    main thread only. The zone is the process's.
std::vector<ForecastSet> forecast(const TaskList& sets, const ForecastPlan& plan,
                                  ForecastSink& sink);

}  // namespace kv::kvctl
