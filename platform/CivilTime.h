#pragma once

#include <cstdint>
#include <optional>

namespace kv {

/// A date and time of day of the proleptic Gregorian calendar in UTC, leap seconds left out.
///
/// The standard calendar types end at the years ±32767; the dates of documents do not.
///
/// Threads    a plain value.
/// Units      `month` and `day` count from 1; the year before year 1 is year 0.
/// Errors     `unixSeconds` of fields that name no date is nothing.
struct CivilTime {
  /// Years beyond ± this are refused: up to here a double holds every second exactly.
  static constexpr std::int64_t kMaximumYear = 99'999'999;

  std::int64_t year = 1970;
  int month = 1;
  int day = 1;
  int hour = 0;
  int minute = 0;
  int second = 0;

  static constexpr std::int64_t earliestUnixSeconds() {
    return *CivilTime{.year = -kMaximumYear, .month = 1, .day = 1}.unixSeconds();
  }
  static constexpr std::int64_t latestUnixSeconds() {
    return *CivilTime{kMaximumYear, 12, 31, 23, 59, 59}.unixSeconds();
  }

  /// `unixSeconds` must lie within the years ± kMaximumYear.
  static constexpr CivilTime fromUnixSeconds(std::int64_t unixSeconds) {
    const std::int64_t days = floorDivide(unixSeconds, kSecondsPerDay);
    const int secondOfDay = static_cast<int>(unixSeconds - days * kSecondsPerDay);
    CivilTime time = fromDays(days);
    time.hour = secondOfDay / 3600;
    time.minute = secondOfDay / 60 % 60;
    time.second = secondOfDay % 60;
    return time;
  }

  constexpr std::optional<std::int64_t> unixSeconds() const {
    const bool valid = year >= -kMaximumYear && year <= kMaximumYear && month >= 1 && month <= 12 &&
                       day >= 1 && day <= daysInMonth() && hour >= 0 && hour < 24 && minute >= 0 &&
                       minute < 60 && second >= 0 && second < 60;
    if (!valid) return std::nullopt;
    return days() * kSecondsPerDay + hour * 3600 + minute * 60 + second;
  }

 private:
  static constexpr std::int64_t kSecondsPerDay = 86400;
  static constexpr std::int64_t kDaysPerEra = 146097;  // 400 years
  static constexpr std::int64_t kEpochSinceMarchOfYear0 = 719468;

  static constexpr std::int64_t floorDivide(std::int64_t dividend, std::int64_t divisor) {
    return dividend / divisor - (dividend % divisor < 0 ? 1 : 0);
  }

  constexpr int daysInMonth() const {
    if (month == 2) return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28;
    return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
  }

  // Both directions count years from March on, so that the leap day is a year's last: month m of
  // such a year begins (153 m + 2) / 5 days into it.
  constexpr std::int64_t days() const {
    const std::int64_t marchYear = year - (month <= 2 ? 1 : 0);
    const std::int64_t era = floorDivide(marchYear, 400);
    const std::int64_t yearOfEra = marchYear - era * 400;
    const std::int64_t dayOfYear = (153 * ((month + 9) % 12) + 2) / 5 + day - 1;
    return era * kDaysPerEra + yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear -
           kEpochSinceMarchOfYear0;
  }

  static constexpr CivilTime fromDays(std::int64_t daysSinceEpoch) {
    const std::int64_t days = daysSinceEpoch + kEpochSinceMarchOfYear0;
    const std::int64_t era = floorDivide(days, kDaysPerEra);
    const std::int64_t dayOfEra = days - era * kDaysPerEra;
    const std::int64_t yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const std::int64_t marchMonth = (5 * dayOfYear + 2) / 153;
    CivilTime time;
    time.day = static_cast<int>(dayOfYear - (153 * marchMonth + 2) / 5 + 1);
    time.month = static_cast<int>(marchMonth < 10 ? marchMonth + 3 : marchMonth - 9);
    time.year = era * 400 + yearOfEra + (time.month <= 2 ? 1 : 0);
    return time;
  }
};

}  // namespace kv
