#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "app/Host.h"
#include "tools/simulation/DailyWindow.h"
#include "tools/simulation/SimulationObserver.h"
#include "tools/simulation/VirtualClock.h"

namespace kv {

/// Whether the path is the folder, or lies in it.
bool isWithin(std::string_view path, std::string_view folder);

/// A backup application that takes its time for a run and records it at the end, as the real
/// one does (recordRun in tools/kvbackup/RunRecorder.h); and the documents that it records it in.
///
/// Threads    one.
/// Ownership  the documents are one list in memory. Whoever keeps a list keeps it as it was.
class SimulatedApplication final : public Host {
 public:
  struct Absence {
    /// A destination, or a folder that it lies in.
    std::string destination;
    DailyWindow window;
  };

  struct Behaviour {
    Seconds duration{20 * 60};
    /// The duration of this run, instead of `duration`.
    std::function<Seconds(const std::string& set)> durationOf = nullptr;
    /// False for an application that never writes down what it did.
    bool records = true;
    /// Whether this run is to fail; asked at its end. A failed run is not recorded.
    std::function<bool(const std::string& set)> fails = nullptr;
    /// The application is open already: runs are asked for, not started.
    bool isOpen = false;
    /// Whether the host is paused: then it answers that a backup runs.
    std::function<bool(Date now)> isPaused = nullptr;
    /// When destinations are away, day by day.
    std::vector<Absence> absences = {};
  };

  SimulatedApplication(TaskList sets, Behaviour behaviour,
                       std::shared_ptr<const VirtualClock> clock,
                       std::shared_ptr<SimulationObserver> observer);

  /// May be changed while the simulation runs; holds from the next question on.
  Behaviour behaviour;

  /// The documents as they stand.
  std::shared_ptr<const TaskList> sets() const { return sets_; }
  void replaceSets(TaskList sets);
  /// Lets `change` edit the first record of that name; false when there is none.
  bool edit(const std::string& set, const std::function<void(PropertyList::Dictionary&)>& change);

  /// Takes a destination, or all within a folder, away from the next tick on, until it is attached
  /// again. All others are there.
  void detach(const std::string& destination) { detached_.insert(destination); }
  void attach(const std::string& destination) { detached_.erase(destination); }

  /// The run under way.
  const std::optional<SimulatedRun>& run() const { return run_; }
  /// How long the computer must be awake until the run is over; nothing when none is under way.
  std::optional<Seconds> untilEnd() const;
  /// Ends the run under way, and records it.
  void endRun();

  /// All runs that have begun.
  std::uint64_t runs() const { return runs_; }
  /// How often a run was to begin while another one was under way; it did not.
  std::uint64_t collisions() const { return collisions_; }

  void reloadMenuNow(const TaskList&) override;
  std::optional<PropertyList> checkRunningBackupStatus() override;
  std::optional<PropertyList> checkBackupStatus() override;
  bool checkIfDiskExists_fromSchedule(const PropertyList* path, int fromSchedule) override;
  void backupNow(const PropertyList* set) override { begin(set); }
  void backupNowViaScript(const PropertyList* set) override { begin(set); }

 private:
  void begin(const PropertyList* set);
  bool record(const SimulatedRun& run);

  const std::shared_ptr<const VirtualClock> clock_;
  const std::shared_ptr<SimulationObserver> observer_;
  std::shared_ptr<TaskList> sets_;
  std::set<std::string, std::less<>> detached_;
  /// The destinations that are away in the present tick.
  std::vector<const std::string*> away_;
  std::optional<SimulatedRun> run_;
  /// A run shows from the tick after the one that began it: a real application takes its time.
  bool isSeenRunning_ = false;
  Seconds endsAtAwake_{0};
  std::uint64_t runs_ = 0;
  std::uint64_t collisions_ = 0;
};

}  // namespace kv
