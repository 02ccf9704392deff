#include "platform/DateFormatter.h"

#include <unicode/calendar.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

#include "platform/LocalTime.h"
#include "platform/WholeMilliseconds.h"

namespace kv {
namespace {

constexpr std::string_view kAmericanEnglish = "en_US_POSIX";
constexpr double kMillisecondsPerSecond = 1000.0;

bool isLocaleCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
         c == '-';
}

/// "de_DE.UTF-8@euro" without its code set and modifier; what is no locale name at all is "C".
std::string_view bareLocaleName(std::string_view posixName) {
  constexpr std::size_t kLongestName = 64;
  const auto name = posixName.substr(0, posixName.find_first_of(".@"));
  const bool usable = !name.empty() && name.size() <= kLongestName &&
                      std::all_of(name.begin(), name.end(), isLocaleCharacter);
  return usable ? name : "C";
}

/// False for what looks like a name but cannot be any: ICU crashes on some (of too long a language,
/// for one), and of others ("ar_", "fa_IR--") it does not see the keywords, so that calendar or
/// digits would be the country's.
bool isUnderstood(const std::string& identifier) {
  const icu::Locale locale(identifier.c_str());
  if (locale.isBogus()) return false;
  UErrorCode status = U_ZERO_ERROR;
  char digits[8] = "";
  locale.getKeywordValue("numbers", digits, sizeof(digits), status);
  if (U_FAILURE(status) || std::string_view(digits) != "latn") return false;
  // What it says of a name's digits and calendar is not what it formats with.
  const icu::SimpleDateFormat yearFormat(u"yyyy", locale, status);
  constexpr UDate kMiddleOf1970 = 15e9;
  icu::UnicodeString year;
  if (U_SUCCESS(status)) yearFormat.format(kMiddleOf1970, year);
  return year == u"1970";
}

/// More digits than any date has. ICU divides by a power of ten as large as a fraction of a second
/// has digits, which becomes zero with the 35th. A number need not be a row of digits ("0e0" is one
/// to ICU), so all of the text counts.
bool holdsTooManyDigits(const icu::UnicodeString& text) {
  constexpr int kMostDigits = 34;
  int digits = 0;
  for (std::int32_t index = 0; index < text.length(); index = text.moveIndex32(index, 1)) {
    if (u_isdigit(text.char32At(index))) ++digits;
  }
  return digits > kMostDigits;
}

}  // namespace

DateLocale DateLocale::fromName(std::string_view posixName) {
  auto name = bareLocaleName(posixName);
  if (name == "C" || name == "POSIX") name = kAmericanEnglish;
  // Decisions compare rendered numbers, so these must be Gregorian and ASCII everywhere; what
  // stays the locale's own is the day on which its week starts.
  constexpr std::string_view kKeywords = "@calendar=gregorian;numbers=latn";
  auto identifier = std::string(name).append(kKeywords);
  if (!isUnderstood(identifier)) identifier = std::string(kAmericanEnglish).append(kKeywords);
  return {identifier};
}

DateLocale DateLocale::fromEnvironment() {
  for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return fromName(value);
  }
  return fromName("C");
}

/// The formatter works in GMT on instants that were shifted by the local offset: ICU's own zone
/// data may be older than the system's, and it does not follow a change of the zone.
struct DateFormatter::Icu {
  std::unique_ptr<icu::SimpleDateFormat> format;
  /// Handed to each call; otherwise ICU would copy a calendar each time.
  std::unique_ptr<icu::Calendar> calendar;
};

DateFormatter::DateFormatter(std::string_view pattern, const DateLocale& locale, DateZone zone)
    : zone_(zone), icu_(std::make_unique<Icu>()) {
  UErrorCode status = U_ZERO_ERROR;
  const auto icuPattern = icu::UnicodeString::fromUTF8({pattern.data(), int32_t(pattern.size())});
  const icu::Locale icuLocale(locale.identifier.c_str());
  icu_->format = std::make_unique<icu::SimpleDateFormat>(icuPattern, icuLocale, status);
  icu_->calendar.reset(
      icu::Calendar::createInstance(icu::TimeZone::getGMT()->clone(), icuLocale, status));
  if (U_FAILURE(status)) {
    throw std::runtime_error(std::string("date patterns are not available: ") +
                             u_errorName(status));
  }
  icu_->format->setTimeZone(*icu::TimeZone::getGMT());
  icu_->format->setLenient(false);
}

DateFormatter::~DateFormatter() = default;
DateFormatter::DateFormatter(DateFormatter&&) noexcept = default;
DateFormatter& DateFormatter::operator=(DateFormatter&&) noexcept = default;

std::optional<Seconds> DateFormatter::offsetFromUtc(Date date) const {
  const auto local = localOffsetFromUtc(date);
  // UTC has the same dates that a calendar can hold.
  return local && zone_ == DateZone::kUtc ? Seconds(0) : local;
}

std::optional<std::string> DateFormatter::string(Date date) const {
  const auto offset = offsetFromUtc(date);
  if (!offset) return std::nullopt;
  UErrorCode status = U_ZERO_ERROR;
  const WholeMilliseconds whole(date);
  const double localSeconds = whole.seconds + offset->count();
  icu_->calendar->setTime(localSeconds * kMillisecondsPerSecond + whole.milliseconds, status);
  icu::UnicodeString text;
  icu::FieldPosition nowhere(icu::FieldPosition::DONT_CARE);
  icu_->format->format(*icu_->calendar, text, nowhere);
  if (U_FAILURE(status)) return std::nullopt;
  std::string result;
  text.toUTF8String(result);
  return result;
}

std::optional<Date> DateFormatter::date(std::string_view text) const {
  const auto icuText = icu::UnicodeString::fromUTF8({text.data(), int32_t(text.size())});
  if (holdsTooManyDigits(icuText)) return std::nullopt;
  icu::ParsePosition position(0);
  const UDate parsed = icu_->format->parse(icuText, position);
  if (position.getErrorIndex() >= 0 || position.getIndex() != icuText.length()) {
    return std::nullopt;
  }
  // The offset depends on the instant, which depends on the offset: the second round settles it
  // unless the local time was skipped, and then the text does not come back below.
  const Date local = Date::fromUnixSeconds(parsed / kMillisecondsPerSecond);
  Date instant = local;
  for (int round = 0; round < 2; ++round) {
    const auto offset = offsetFromUtc(instant);
    if (!offset) return std::nullopt;
    instant = local + -*offset;
  }
  if (string(instant) != text) return std::nullopt;
  return instant;
}

}  // namespace kv
