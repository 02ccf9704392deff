#include "tools/kvbackup/LocalCalendar.h"

#include <fmt/format.h>

#include <cmath>
#include <cstdint>
#include <cstdio>

#include "platform/CivilTime.h"
#include "platform/LocalTime.h"

namespace kv {
namespace {

constexpr std::int64_t kSecondsPerDay = 86400;

/// The year 10000 and its opposite lie within; nothing of ours is that far away.
constexpr double kFarthestUnixSeconds = 1e12;

std::optional<std::int64_t> wholeSeconds(double seconds) {
  if (!std::isfinite(seconds) || std::fabs(seconds) > kFarthestUnixSeconds) return std::nullopt;
  return static_cast<std::int64_t>(std::floor(seconds));
}

/// What the local clock shows, as if it were seconds since 1970 in UTC.
std::optional<std::int64_t> localSeconds(Date date) {
  const auto offset = localOffsetFromUtc(date);
  if (!offset) return std::nullopt;
  return wholeSeconds(date.unixSeconds() + offset->count());
}

/// The instant at which the local clock shows `local`; nothing when it never does.
std::optional<Date> dateFromLocalSeconds(std::int64_t local) {
  Date date = Date::fromUnixSeconds(static_cast<double>(local));
  // The offset is known for instants only: guess, and correct the guess once for a change of the
  // clocks between it and the goal.
  for (int attempt = 0; attempt < 3; ++attempt) {
    const auto offset = localOffsetFromUtc(date);
    if (!offset) return std::nullopt;
    date = Date::fromUnixSeconds(static_cast<double>(local) - offset->count());
    if (localSeconds(date) == local) return date;
  }
  return std::nullopt;
}

std::string stamp(std::optional<std::int64_t> seconds, bool forMachines) {
  if (!seconds) return "?";
  const CivilTime time = CivilTime::fromUnixSeconds(*seconds);
  if (!forMachines) {
    return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}", time.year, time.month, time.day, time.hour,
                       time.minute);
  }
  return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}Z", time.year, time.month, time.day,
                     time.hour, time.minute, time.second);
}

}  // namespace

int localDayOfMonth(Date date) {
  return CivilTime::fromUnixSeconds(localSeconds(date).value_or(0)).day;
}

Date wholeMinute(Date date) {
  return Date::fromUnixSeconds(std::floor(date.unixSeconds() / 60.0) * 60.0);
}

Date dateWithTimeOfDay(Date date, int minuteOfDay) {
  const std::int64_t seconds = localSeconds(date).value_or(0);
  std::int64_t midnight = seconds - ((seconds % kSecondsPerDay) + kSecondsPerDay) % kSecondsPerDay;
  for (int day = 0; day < 7; ++day, midnight += kSecondsPerDay) {
    if (const auto found = dateFromLocalSeconds(midnight + minuteOfDay * 60)) return *found;
  }
  return date;  // a zone in which clocks never show this time
}

std::string localStamp(Date date) {
  return stamp(localSeconds(date), false);
}

std::string utcStamp(Date date) {
  return stamp(wholeSeconds(date.unixSeconds()), true);
}

std::optional<Date> dateFromUtcStamp(std::string_view text) {
  CivilTime time;
  int year = 0;
  int end = 0;
  const int fields =
      std::sscanf(std::string(text).c_str(), "%4d-%2d-%2dT%2d:%2d:%2dZ%n", &year, &time.month,
                  &time.day, &time.hour, &time.minute, &time.second, &end);
  if (fields != 6 || static_cast<std::size_t>(end) != text.size()) return std::nullopt;
  time.year = year;
  const auto seconds = time.unixSeconds();
  if (!seconds) return std::nullopt;
  return Date::fromUnixSeconds(static_cast<double>(*seconds));
}

}  // namespace kv
