#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Date.h"
#include "platform/PropertyList.h"
#include "tools/kvbackup/Schedule.h"

namespace kv {

/// A backup set: one record of a schedule document, with the sources that this program adds.
///
/// Threads    any; it only looks.
/// Ownership  borrows the record, which must outlive it.
/// Errors     what a record lacks is absent here; the static operations throw Refusal.
class BackupSet {
 public:
  explicit BackupSet(const PropertyList& entry) : task_(entry), entry_(entry) {}

  /// Absent when the name is missing or no string.
  std::optional<std::string> name() const { return text(task_.set()); }
  std::optional<std::string> destination() const { return text(task_.destinationPath()); }

  /// The folders to copy; absent when there are none, or something in the list is no string.
  std::optional<std::vector<std::string>> sources() const;

  /// The record's schedule.
  const TaskRecord& task() const { return task_; }
  std::optional<Date> timeOfDay() const;
  std::vector<std::string> weekdays() const;

  /// "daily 09:30", "mon,thu once a day", "every 15 min, due 2024-03-05 10:30".
  std::string scheduleText() const;
  /// "on", "held", or "off" when the set is not scheduled at all.
  std::string stateText() const;
  bool isInterval() const { return task_.type() == kHourly || task_.type() == kMinutes; }
  /// What hold() leaves. An interval set that merely has no "runState" is not held: the scheduler
  /// starts it all the same.
  bool isHeld() const;

  /// The record of a new set, which no run of an earlier day holds back: a daily or weekly set
  /// runs today if its time has come, an interval set is due at once.
  static PropertyList::Dictionary fresh(const std::string& name,
                                        const std::vector<std::string>& sources,
                                        const std::string& destination, const Schedule& schedule,
                                        Date now);

  /// Keeps the scheduler from starting the set. An interval set loses its next-due date as well:
  /// overdue, it would keep those behind it in the list waiting for as long as it is held.
  static void hold(PropertyList::Dictionary& record);
  /// Undoes hold(); an interval set is due at once.
  static void release(PropertyList::Dictionary& record, Date now);

  static void setSources(PropertyList::Dictionary& record, const std::vector<std::string>& sources);

  /// The schedule options of a record, made when missing. Throws Refusal (kDocumentUnreadable)
  /// when something else stands in their place.
  static PropertyList::Dictionary& options(PropertyList::Dictionary& record);

  /// Throws Refusal (kBadName) unless `name` can be a set's name and a folder's.
  static void checkName(const std::string& name);

 private:
  static std::optional<std::string> text(const PropertyList* value);

  TaskRecord task_;
  const PropertyList& entry_;
};

}  // namespace kv
