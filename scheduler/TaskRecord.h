#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Date.h"
#include "platform/PropertyList.h"

namespace kv {

/// The schedule types that a rule exists for; a record may hold any other number.
enum ScheduleType : std::int64_t { kDaily = 0, kWeekly = 1, kHourly = 2, kMinutes = 3 };

/// One entry of a schedule document, read field by field.
///
/// Threads    any; it only looks.
/// Ownership  borrows the entry, which must outlive it.
/// Errors     none: an entry that is no dictionary, or whose options are none, has no fields.
class TaskRecord {
 public:
  explicit TaskRecord(const PropertyList& entry);

  /// The set's name as it stands; null when missing. Should be a string, may be anything.
  const PropertyList* set() const { return set_; }
  /// The destination as it stands; null when missing.
  const PropertyList* destinationPath() const { return destinationPath_; }
  /// A value of the schedule options; null when missing.
  const PropertyList* option(std::string_view key) const;

  /// The set's name as the trace shows it.
  std::optional<std::string> shownSet() const;

  bool isScheduled() const;
  /// The schedule type, of which ScheduleType names the known ones.
  std::int64_t type() const;
  /// True for the types that are due at a stored date instead of on days.
  bool isInterval() const { return type() == kHourly || type() == kMinutes; }
  /// True when a run is allowed: "runState" is missing or true.
  bool mayRun() const;
  bool isOnceADay() const;
  bool isWeekdaySelected(int day) const;
  std::optional<Date> nextDue() const;

  /// "Daily", "Weekly", "Hour", "Minute" for the types 0 to 3, else "Daily?".
  static const char* typeName(std::int64_t type);

 private:
  const PropertyList* set_ = nullptr;
  const PropertyList* destinationPath_ = nullptr;
  const PropertyList::Dictionary* options_ = nullptr;
};

}  // namespace kv
