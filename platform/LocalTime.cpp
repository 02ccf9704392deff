#include "platform/LocalTime.h"

#include <fmt/format.h>
#include <time.h>

#include <cmath>
#include <optional>

namespace kv {
namespace {

/// The last second that every calendar at hand can hold, some 5.7 million years away either way.
constexpr double kFarthestUnixSeconds = 1.8e14;

std::optional<tm> localTime(Date date) {
  const double seconds = std::floor(date.unixSeconds());
  if (!std::isfinite(seconds) || std::fabs(seconds) > kFarthestUnixSeconds) return std::nullopt;
  const auto time = static_cast<time_t>(seconds);
  tm parts{};
  tzset();  // localtime_r alone does not notice a changed zone
  if (localtime_r(&time, &parts) == nullptr) return std::nullopt;
  return parts;
}

}  // namespace

std::optional<Seconds> localOffsetFromUtc(Date date) {
  const auto parts = localTime(date);
  if (!parts) return std::nullopt;
  return Seconds(static_cast<double>(parts->tm_gmtoff));
}

std::optional<std::int64_t> localTimeNumber(Date date) {
  constexpr std::int64_t kMinutesPerDay = 24 * 60;
  const auto offset = localOffsetFromUtc(date);
  if (!offset) return std::nullopt;
  const double seconds = std::floor(date.unixSeconds()) + offset->count();
  const auto minute = static_cast<std::int64_t>(std::floor(seconds / 60)) % kMinutesPerDay;
  const std::int64_t minuteOfDay = minute < 0 ? minute + kMinutesPerDay : minute;
  return minuteOfDay / 60 * 100 + minuteOfDay % 60;
}

std::string localTimeOfDay(Date date) {
  const tm parts = localTime(date).value_or(tm{});
  return fmt::format("{:02}:{:02}:{:02}", parts.tm_hour, parts.tm_min, parts.tm_sec);
}

}  // namespace kv
