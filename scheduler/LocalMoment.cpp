#include "scheduler/LocalMoment.h"

namespace kv {

DatePatterns::DatePatterns(const DateLocale& locale)
    : banner("YYYY/MM/dd HH:mm:ss", locale),
      monthToSecond("MM/dd HH:mm:ss", locale),
      dayOfMonth("d", locale),
      timeOfDay("HHmm", locale),
      weekday("e", locale),
      reference("MM/dd/yyyy HH:mm:ss", locale) {}

LocalMoment LocalMoment::at(Date date) const {
  LocalMoment other(date, patterns_);
  other.sunday_ = sunday_;
  other.sundayKnown_ = sundayKnown_;
  return other;
}

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

const std::string& LocalMoment::weekday() {
  return rendered(weekday_, patterns_.weekday, now_);
}

const std::optional<std::string>& LocalMoment::sunday() {
  if (!sundayKnown_) {
    sundayKnown_ = true;
    if (const auto known = patterns_.reference.date("01/02/2011 06:37:35")) {
      sunday_ = patterns_.weekday.string(*known);
    }
  }
  return sunday_;
}

}  // namespace kv
