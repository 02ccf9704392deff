#include "tools/kvctl/ScheduleArguments.h"

#include <fmt/format.h>

#include "platform/LocalTime.h"
#include "scheduler/FieldReaders.h"
#include "scheduler/TaskRecord.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/Schedule.h"

namespace kv::kvctl {
namespace {

std::string timeArguments(const PropertyList& record) {
  const BackupSet set(record);
  const auto time = set.timeOfDay();
  return (time && localTimeNumber(*time) ? localTimeOfDay(*time).substr(0, 5) : "09:30") +
         (set.task().isOnceADay() ? " --once-a-day" : "");
}

std::string intervalArguments(const TaskRecord& task) {
  const bool isHourly = task.type() == kHourly;
  const auto count = integerValue(task.option(isHourly ? "sethours" : "setmins"));
  const std::int64_t most = isHourly ? 366 * 24 : 366 * 24 * 60;
  if (count < 1 || count > most) return "--every 1h";
  return fmt::format("--every {}{}", count, isHourly ? 'h' : 'm');
}

}  // namespace

Weekdays chosenWeekdays(const PropertyList& record) {
  const TaskRecord task(record);
  Weekdays days{};
  for (std::size_t day = 0; day < days.size(); ++day) {
    days[day] = task.isWeekdaySelected(static_cast<int>(day) + 1);
  }
  return days;
}

std::string scheduleArguments(const PropertyList& record) {
  const TaskRecord task(record);
  if (task.isInterval()) return intervalArguments(task);
  if (task.type() == kWeekly) return weeklyArguments(record, chosenWeekdays(record));
  return "--daily " + timeArguments(record);
}

std::string weeklyArguments(const PropertyList& record, const Weekdays& days) {
  std::string names;
  for (std::size_t day = 0; day < days.size(); ++day) {
    if (days[day]) names += (names.empty() ? "" : ",") + std::string(weekdayName(day));
  }
  return fmt::format("--weekly {} {}", names.empty() ? "mon,thu" : names, timeArguments(record));
}

}  // namespace kv::kvctl
