#include "tools/kvbackup/Schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/LocalCalendar.h"

namespace kv {
namespace {

struct Weekday {
  const char* key;
  const char* name;
  const char* fullName;
};

constexpr std::array<Weekday, 7> kWeekdays = {{{"day1", "sun", "sunday"},
                                               {"day2", "mon", "monday"},
                                               {"day3", "tue", "tuesday"},
                                               {"day4", "wed", "wednesday"},
                                               {"day5", "thu", "thursday"},
                                               {"day6", "fri", "friday"},
                                               {"day7", "sat", "saturday"}}};

/// A year of either unit; nobody means more.
constexpr std::int64_t kMostHours = 366 * 24;
constexpr std::int64_t kMostMinutes = kMostHours * 60;

[[noreturn]] void refuse(const std::string& reason) {
  throw Refusal(ExitStatus::kUsage, reason);
}

/// The number that `text` is, wholly and without a sign.
std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const char* end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, number);
  if (text.empty() || text.front() == '-' || error != std::errc() || last != end) return {};
  return number;
}

std::string lowerCase(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return lower;
}

int timeOfDay(const std::string& text) {
  const auto minutes = parseTimeOfDay(text);
  if (!minutes) refuse(fmt::format("\"{}\" is no time of day such as 09:30", text));
  return *minutes;
}

void readWeekly(const std::vector<std::string>& values, Schedule& schedule) {
  if (values.size() != 2) refuse("--weekly takes weekdays and a time of day, once");
  const auto weekdays = parseWeekdays(values[0]);
  if (!weekdays) refuse(fmt::format("\"{}\" is no list of weekdays such as mon,thu", values[0]));
  schedule.type = kWeekly;
  schedule.weekdays = *weekdays;
  schedule.minuteOfDay = timeOfDay(values[1]);
}

void readInterval(const std::string& text, Schedule& schedule) {
  const char unit = text.empty() ? ' ' : text.back();
  const auto number = wholeNumber(std::string_view(text).substr(0, text.size() - !text.empty()));
  const std::int64_t most = unit == 'h' ? kMostHours : kMostMinutes;
  if ((unit != 'h' && unit != 'm') || !number || *number < 1 || *number > most) {
    refuse(fmt::format("\"{}\" is no interval such as 15m or 2h, up to a year", text));
  }
  schedule.type = unit == 'h' ? kHourly : kMinutes;
  schedule.interval = *number;
}

}  // namespace

std::optional<Schedule> Schedule::from(const ScheduleRequest& request) {
  const int kinds = int{request.daily.has_value()} + int{!request.weekly.empty()} +
                    int{request.every.has_value()};
  if (kinds > 1) refuse("only one of --daily, --weekly and --every can be given");
  if (request.every && request.onceADay) refuse("--once-a-day does not go with --every");
  if (kinds == 0 && !request.onceADay) return std::nullopt;
  Schedule schedule;
  schedule.isOnceADay = request.onceADay;
  if (request.daily) schedule.minuteOfDay = timeOfDay(*request.daily);
  if (!request.weekly.empty()) readWeekly(request.weekly, schedule);
  if (request.every) readInterval(*request.every, schedule);
  return schedule;
}

void Schedule::writeTo(PropertyList::Dictionary& options, Date now) const {
  options.set("scheduleIt", 1);
  options.set("dayWeekOrHour", std::int64_t{type});
  if (type == kHourly || type == kMinutes) {
    options.set(type == kHourly ? "sethours" : "setmins", interval);
    options.set("minhourdate", wholeMinute(now));
    return;
  }
  if (minuteOfDay) options.set("datePick", dateWithTimeOfDay(now, *minuteOfDay));
  options.set("afterSleep", isOnceADay ? 1 : 0);
  if (type != kWeekly) return;
  for (std::size_t day = 0; day < weekdays.size(); ++day) {
    options.set(weekdayKey(day), weekdays[day] ? 1 : 0);
  }
}

std::optional<int> parseTimeOfDay(std::string_view text) {
  const auto colon = text.find(':');
  if (colon == std::string_view::npos || colon > 2 || text.size() != colon + 3) return {};
  const auto hour = wholeNumber(text.substr(0, colon));
  const auto minute = wholeNumber(text.substr(colon + 1));
  if (!hour || !minute || *hour > 23 || *minute > 59) return {};
  return static_cast<int>(*hour * 60 + *minute);
}

std::optional<std::array<bool, 7>> parseWeekdays(std::string_view text) {
  std::array<bool, 7> selected{};
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(',', begin), text.size());
    const std::string name = lowerCase(text.substr(begin, end - begin));
    const auto found =
        std::find_if(kWeekdays.begin(), kWeekdays.end(), [&name](const Weekday& weekday) {
          return name == weekday.name || name == weekday.fullName;
        });
    if (found == kWeekdays.end()) return std::nullopt;
    selected[static_cast<std::size_t>(found - kWeekdays.begin())] = true;
    begin = end + 1;
  }
  return selected;
}

const char* weekdayKey(std::size_t day) {
  return kWeekdays.at(day).key;
}

const char* weekdayName(std::size_t day) {
  return kWeekdays.at(day).name;
}

}  // namespace kv
