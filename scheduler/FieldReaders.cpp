#include "scheduler/FieldReaders.h"

#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

namespace kv {
namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

std::string_view withoutLeadingBlanks(std::string_view text) {
  const auto start = text.find_first_not_of(kBlanks);
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

std::int64_t integerOfReal(double value) {
  if (std::isnan(value)) return 0;
  // 2^63 is exact as a double; everything below it in magnitude fits.
  constexpr double kLimit = 9223372036854775808.0;
  if (value >= kLimit) return std::numeric_limits<std::int64_t>::max();
  if (value < -kLimit) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(value);
}

std::int64_t integerOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  const bool negative = text.starts_with('-');
  if (text.starts_with('+')) text.remove_prefix(1);
  std::int64_t value = 0;
  // from_chars takes a minus sign itself; after a plus sign it must not.
  if (!text.empty() && !isDigit(text.front()) && !negative) return 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
  if (result.ec == std::errc::result_out_of_range) {
    return negative ? std::numeric_limits<std::int64_t>::min()
                    : std::numeric_limits<std::int64_t>::max();
  }
  return value;
}

bool truthOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  if (text.starts_with('-') || text.starts_with('+')) text.remove_prefix(1);
  const auto start = text.find_first_not_of('0');
  if (start == std::string_view::npos) return false;
  return std::string_view("YyTt123456789").find(text[start]) != std::string_view::npos;
}

}  // namespace

std::int64_t integerValue(const PropertyList* value) {
  if (value == nullptr) return 0;
  if (const auto* number = value->as<std::int64_t>()) return *number;
  if (value->as<std::uint64_t>() != nullptr) return std::numeric_limits<std::int64_t>::max();
  if (const auto* real = value->as<double>()) return integerOfReal(*real);
  if (const auto* boolean = value->as<bool>()) return *boolean ? 1 : 0;
  if (const auto* text = value->as<PropertyList::String>()) return integerOfText(*text);
  return 0;
}

bool truthValue(const PropertyList* value) {
  if (value == nullptr) return false;
  if (const auto* real = value->as<double>()) return *real != 0.0;
  if (const auto* text = value->as<PropertyList::String>()) return truthOfText(*text);
  return integerValue(value) != 0;
}

std::string storedDay(const PropertyList* value) {
  return std::to_string(integerValue(value));
}

std::optional<Date> dateValue(const PropertyList* value) {
  const auto* date = value == nullptr ? nullptr : value->as<Date>();
  if (date == nullptr || !std::isfinite(date->sinceReference.count())) return std::nullopt;
  return *date;
}

std::optional<std::string> shownValue(const PropertyList* value) {
  if (value == nullptr) return std::nullopt;
  return value->description();
}

}  // namespace kv
