#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "FuzzInput.h"
#include "platform/DateFormatter.h"
#include "platform/NumericDateFormat.h"

// Whatever the pattern, the locale's name and the text: what parses renders back to the same text,
// and dates of numbers read the same with and without the library of locales.
//
// Lines: a zone and an instant in Unix seconds, a locale, a pattern, a text.

namespace kv {
namespace {

/// 1582-10-17, past the change in every zone. The library of locales counts by the Julian calendar
/// before.
constexpr Date kFirstGregorianDay = Date::fromUnixSeconds(-12219120000.0);

constexpr double kHalfMillisecond = 0.0005;

/// What a format makes of the instant and of the text.
struct Reading {
  Reading(const DateFormat& format, Date date, std::string_view text)
      : rendered(format.string(date)), parsed(format.date(text)) {
    if (parsed) require(format.string(*parsed) == text, "what parses renders back");
    if (!rendered) return;
    const auto again = format.date(*rendered);
    if (again) require(format.string(*again) == rendered, "what was rendered renders back");
  }

  std::optional<std::string> rendered;
  std::optional<Date> parsed;
};

std::optional<NumericDateFormat> numericFormat(std::string_view pattern, DateZone zone) {
  try {
    return NumericDateFormat(pattern, zone);
  } catch (const std::invalid_argument&) {
    return std::nullopt;
  }
}

/// Only for patterns of ASCII: what is no UTF-8 the library of locales replaces.
void compareWithNumbersOnly(const Reading& read, std::string_view pattern, DateZone zone, Date date,
                            std::string_view text) {
  const auto isAscii = [](char c) { return static_cast<signed char>(c) >= 0; };
  if (!std::all_of(pattern.begin(), pattern.end(), isAscii)) return;
  const auto format = numericFormat(pattern, zone);
  if (!format) return;
  const Reading numbers(*format, date, text);
  if (numbers.rendered && date > kFirstGregorianDay) {
    require(numbers.rendered == read.rendered, "both render the same");
  }
  if (numbers.parsed && read.parsed && *numbers.parsed > kFirstGregorianDay) {
    const double apart = (*numbers.parsed - *read.parsed).count();
    require(std::fabs(apart) < kHalfMillisecond, "both parse the same");
  }
}

}  // namespace
}  // namespace kv

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using kv::DateZone;
  kv::FuzzInput input(data, size);
  std::string_view moment = input.line();
  const char zone = kv::takeFirst(moment);
  kv::setZone(zone);
  const auto dateZone = zone == 'u' ? DateZone::kUtc : DateZone::kLocal;
  double seconds = 0;
  std::from_chars(moment.data(), moment.data() + moment.size(), seconds);
  const auto date = kv::Date::fromUnixSeconds(seconds);
  const auto locale = kv::DateLocale::fromName(input.line());
  const std::string_view pattern = input.line();
  const std::string_view text = input.rest();

  const kv::Reading read(kv::DateFormatter(pattern, locale, dateZone), date, text);
  kv::compareWithNumbersOnly(read, pattern, dateZone, date, text);
  return 0;
}
