#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scheduler/TickObserver.h"

namespace kv {

/// What the last tick decided of each set, and when each was launched last; nothing else of the
/// ticks is kept.
///
/// Threads    main thread only.
/// Ownership  keeps copies of names alone, in memory that is used again at the next tick.
class DecisionRecord final : public TickObserver {
 public:
  struct Entry {
    /// As the trace shows it; empty for a set without one.
    std::string name;
    /// Absent when the tick said nothing of the set (see TickObserver).
    std::optional<Outcome> outcome;
  };

  void tickBegan(Date now, const TaskList& list) override;
  void judged(const PropertyList& entry, Outcome outcome) override;
  void tickEnded() override {}

  /// When the last tick was; absent before the first.
  const std::optional<Date>& lastTick() const { return lastTick_; }
  /// In the order of the joined list.
  const std::vector<Entry>& entries() const { return entries_; }
  /// When a set of this name was launched last; nothing when it was not, or has left the list
  /// since.
  std::optional<Date> lastLaunch(const std::string& name) const;

  /// Whether anything but the time of the last tick has changed since the last question.
  bool takeChanged();

 private:
  void forgetRemoved();

  std::optional<Date> lastTick_;
  std::vector<Entry> entries_;
  /// What was told at the last question.
  std::vector<Entry> told_;
  std::map<std::string, Date> launches_;
  const PropertyList* first_ = nullptr;  ///< of the list of the running tick
};

/// The outcome as a word for programs: "not-due".
const char* wordFor(Outcome outcome);

}  // namespace kv
