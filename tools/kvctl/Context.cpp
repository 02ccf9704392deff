#include "tools/kvctl/Context.h"

#include <array>
#include <cstdlib>

#include "tools/kvbackup/LocalCalendar.h"

namespace kv::kvctl {
namespace {

/// Day and time of day in ASCII digits, whatever the user's locale.
std::optional<Date> parseBy(const char* pattern, std::string_view text, DateZone zone) {
  return DateFormatter(pattern, DateLocale::fromName("C"), zone).date(text);
}

}  // namespace

void settleZone() {
  if (std::getenv("TZ") == nullptr) setenv("TZ", ":/etc/localtime", 1);
}

std::optional<Date> parseTime(std::string_view text, Date now) {
  static constexpr std::array kInstants = {"yyyy-MM-dd'T'HH:mm:ss'Z'", "yyyy-MM-dd'T'HH:mm'Z'"};
  static constexpr std::array kLocal = {"yyyy-MM-dd HH:mm", "yyyy-MM-dd HH:mm:ss",
                                        "yyyy-MM-dd'T'HH:mm:ss", "yyyy-MM-dd'T'HH:mm",
                                        "yyyy-MM-dd"};
  for (const char* pattern : kInstants) {
    if (const auto date = parseBy(pattern, text, DateZone::kUtc)) return date;
  }
  for (const char* pattern : kLocal) {
    if (const auto date = parseBy(pattern, text, DateZone::kLocal)) return date;
  }
  const std::string today = localStamp(now).substr(0, sizeof("2026-11-21 ") - 1);
  return parseBy("yyyy-MM-dd HH:mm", today + std::string(text), DateZone::kLocal);
}

}  // namespace kv::kvctl
