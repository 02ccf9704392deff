#include "scheduler/Rules.h"

#include <fmt/ranges.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "platform/LocalTime.h"
#include "scheduler/FieldReaders.h"

namespace kv {
namespace {

/// "0930"; absent when the task has no time of day.
std::optional<std::string> renderedTimeOfDay(const TaskRecord& record,
                                             const DatePatterns& patterns) {
  const auto picked = dateValue(record.option("datePick"));
  return picked ? patterns.timeOfDay.string(*picked) : std::nullopt;
}

/// The comparison of the normal mode, which writes its four values first.
bool isTimeReached(const TaskRecord& record, LocalMoment& moment, const std::string& lastRun,
                   Trace& trace) {
  if (trace.isTracing()) {
    trace.logString_varstr("today's time = ", moment.timeOfDay());
    trace.logString_varstr("stored  time = ", renderedTimeOfDay(record, moment.patterns()));
    trace.logString_varstr("today's day = ", moment.day());
    trace.logString_varstr("stored  day = ", lastRun);
  }
  return lastRun != moment.day() && moment.timeNumber() >= pickedTimeOfDay(record);
}

/// The numbers that the selected weekdays have in the locale's week. Tuesday is "12" where the
/// week starts on Monday: no weekday has that number, so such a set never runs on a Tuesday. The
/// backup application knows the scheduler by this, so it stays.
std::vector<const char*> selectedWeekdays(const TaskRecord& record, bool weekStartsOnMonday) {
  static constexpr std::array kMondayFirst = {"7", "1", "12", "3", "4", "5", "6"};
  static constexpr std::array kOtherwise = {"1", "2", "3", "4", "5", "6", "7"};
  const auto& numbers = weekStartsOnMonday ? kMondayFirst : kOtherwise;
  std::vector<const char*> selected;
  for (int day = 1; day <= 7; ++day) {
    if (record.isWeekdaySelected(day)) {
      selected.push_back(numbers.at(static_cast<std::size_t>(day - 1)));
    }
  }
  return selected;
}

bool isTodaySelected(const TaskRecord& record, LocalMoment& moment, Trace& trace) {
  trace.logString_varstr("dayNumberString= ", moment.sunday());
  trace.logString_varstr("today = day# ", moment.weekday());
  const auto selected = selectedWeekdays(record, moment.sunday() == "7");
  if (trace.isTracing()) {
    trace.logString_varstr("weekdays list = ", fmt::format("{}", fmt::join(selected, ", ")));
  }
  return std::find(selected.begin(), selected.end(), moment.weekday()) != selected.end();
}

}  // namespace

bool passesMainGate(const TaskRecord& record) {
  return record.isScheduled() && record.mayRun();
}

bool passesIntervalGate(const TaskRecord& record) {
  return record.isScheduled();
}

std::int64_t pickedTimeOfDay(const TaskRecord& record) {
  const auto picked = dateValue(record.option("datePick"));
  return picked ? localTimeNumber(*picked).value_or(0) : 0;
}

std::optional<CallSite> judgeDaily(const TaskRecord& record, LocalMoment& moment, Trace& trace) {
  const std::string lastRun = storedDay(record.option("dayOfMonth"));
  if (record.isOnceADay()) {
    trace.logString("Daily = once-a-day");
    trace.logString_varstr("today's day = ", moment.day());
    trace.logString_varstr("stored  day = ", lastRun);
    if (lastRun == moment.day()) return std::nullopt;
    trace.logString("Once-a-day proceeding");
    return CallSite::kDailyOnceADay;
  }
  trace.logString("Daily normal");
  if (!isTimeReached(record, moment, lastRun, trace)) return std::nullopt;
  trace.logString("Time compare is a go >>> ");
  return CallSite::kDailyNormal;
}

std::optional<CallSite> judgeWeekly(const TaskRecord& record, LocalMoment& moment, Trace& trace) {
  trace.logString("  Weekly schedule");
  if (!isTodaySelected(record, moment, trace)) return std::nullopt;
  trace.logString("Weekday is selected");
  const std::string lastRun = storedDay(record.option("dayOfMonth"));
  if (record.isOnceADay()) {
    if (lastRun == moment.day()) return std::nullopt;
    trace.logString("Weekly = once-a-day");
    trace.logString_varstr("stored day: ", lastRun);
    trace.logString_varstr("now day = ", moment.day());
    return CallSite::kWeeklyOnceADay;
  }
  if (!isTimeReached(record, moment, lastRun, trace)) return std::nullopt;
  return CallSite::kWeeklyNormal;
}

bool hasRule(const TaskRecord& record) {
  return record.type() == kDaily || record.type() == kWeekly;
}

std::optional<CallSite> judgeByType(const TaskRecord& record, LocalMoment& moment, Trace& trace) {
  switch (record.type()) {
    case kDaily:
      return judgeDaily(record, moment, trace);
    case kWeekly:
      return judgeWeekly(record, moment, trace);
    default:
      return std::nullopt;
  }
}

}  // namespace kv
