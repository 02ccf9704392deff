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

std::string localTimeOfDay(Date date) {
  const tm parts = localTime(date).value_or(tm{});
  return fmt::format("{:02}:{:02}:{:02}", parts.tm_hour, parts.tm_min, parts.tm_sec);
}

}  // namespace kv
