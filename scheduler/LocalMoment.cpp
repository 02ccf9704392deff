#include "scheduler/LocalMoment.h"

#include "platform/LocalTime.h"

namespace kv {

namespace {

/// The number of a Sunday in the locale's week: 2011-01-02 06:37:35. It is the same in every zone.
std::optional<std::string> numberOfSunday(const DateLocale& locale) {
  const auto sunday = Date::fromUnixSeconds(1293950255);
  return DateFormatter("e", locale, DateZone::kUtc).string(sunday);
}

}  // namespace

DatePatterns::DatePatterns(const DateLocale& locale)
    : banner("YYYY/MM/dd HH:mm:ss", locale),
      monthToSecond("MM/dd HH:mm:ss", locale),
      dayOfMonth("d", locale),
      timeOfDay("HHmm", locale),
      weekday("e", locale),
      sunday(numberOfSunday(locale)) {}

const std::string& LocalMoment::rendered(std::optional<std::string>& kept,
                                         const DateFormatter& format, Date date) {
  if (!kept) kept = format.string(date).value_or("");
  return *kept;
}

const std::string& LocalMoment::day() {
  return rendered(day_, patterns_.dayOfMonth, now_);
}

const std::string& LocalMoment::timeOfDay() {
  return rendered(timeOfDay_, patterns_.timeOfDay, now_);
}

std::int64_t LocalMoment::timeNumber() {
  if (!timeNumber_) timeNumber_ = localTimeNumber(now_).value_or(0);
  return *timeNumber_;
}

const std::string& LocalMoment::weekday() {
  return rendered(weekday_, patterns_.weekday, now_);
}

}  // namespace kv
