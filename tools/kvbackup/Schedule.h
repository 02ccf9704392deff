#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Date.h"
#include "platform/PropertyList.h"
#include "scheduler/TaskRecord.h"

namespace kv {

/// The schedule options of a command line, as they were typed.
struct ScheduleRequest {
  std::optional<std::string> daily = {};
  /// Weekdays and time of day; empty when not given.
  std::vector<std::string> weekly = {};
  std::optional<std::string> every = {};
  bool onceADay = false;

  /// Once a day without another option: no time of day is asked for.
  bool isOnceADayAlone() const { return onceADay && !daily && weekly.empty() && !every; }
};

/// When a set is to run.
///
/// Units      times of day in minutes since midnight, weekdays from Sunday on.
struct Schedule {
  ScheduleType type = kDaily;
  /// Daily and weekly; absent when once a day is all that was asked for.
  std::optional<int> minuteOfDay;
  bool isOnceADay = false;
  std::array<bool, 7> weekdays{};
  /// Hours or minutes, by the type.
  std::int64_t interval = 0;

  /// What the request asks for; nothing when it asks for nothing. Throws Refusal (kUsage) when it
  /// makes no sense.
  static std::optional<Schedule> from(const ScheduleRequest& request);

  /// Writes the schedule into a set's options and leaves the others as they are. An interval
  /// begins a new grid at the whole minute of `now`, so its first run is due at once.
  void writeTo(PropertyList::Dictionary& options, Date now) const;
};

/// "9:30" and "09:30" as minutes since midnight.
std::optional<int> parseTimeOfDay(std::string_view text);

/// "mon,thu": names by their first three letters or in full, in any case.
std::optional<std::array<bool, 7>> parseWeekdays(std::string_view text);

/// The key that selects a weekday ("day1" is Sunday), and its short name ("sun").
const char* weekdayKey(std::size_t day);
const char* weekdayName(std::size_t day);

}  // namespace kv
