#include "platform/NumericDateFormat.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>
#include <utility>

#include "platform/CivilTime.h"
#include "platform/LocalTime.h"
#include "platform/WholeMilliseconds.h"

namespace kv {
namespace {

constexpr double kThousandthsPerSecond = 1000.0;

bool isLetter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::optional<int> numberFrom(std::string_view digits) {
  int number = 0;
  const char* const end = digits.data() + digits.size();
  const auto result = std::from_chars(digits.data(), end, number);
  if (result.ec != std::errc() || result.ptr != end || digits.front() == '-') return std::nullopt;
  return number;
}

}  // namespace

NumericDateFormat::NumericDateFormat(std::string_view pattern, DateZone zone) : zone_(zone) {
  while (!pattern.empty()) {
    std::size_t length = 1;
    if (pattern.front() == '\'') {
      length = addQuoted(pattern);
    } else if (isLetter(pattern.front())) {
      length = std::min(pattern.find_first_not_of(pattern.front()), pattern.size());
      const auto letters = pattern.substr(0, length);
      pieces_.push_back({fieldOf(letters), std::string(letters)});
    } else {
      addText(pattern.substr(0, 1));
    }
    pattern.remove_prefix(length);
  }
}

/// Adds the quoted text at the start of `pattern` and yields its length. A doubled quote is one of
/// the text, between quotes too; a quote that is not closed reaches to the end.
std::size_t NumericDateFormat::addQuoted(std::string_view pattern) {
  const auto isDoubled = [&](std::size_t at) { return pattern.substr(at, 2) == "''"; };
  if (isDoubled(0)) {
    addText("'");
    return 2;
  }
  std::size_t at = 1;
  while (at < pattern.size() && (pattern[at] != '\'' || isDoubled(at))) {
    addText(pattern.substr(at, 1));
    at += isDoubled(at) ? 2 : 1;
  }
  return std::min(at + 1, pattern.size());
}

NumericDateFormat::Field NumericDateFormat::fieldOf(std::string_view letters) {
  constexpr std::array<std::pair<std::string_view, Field>, 7> kFields{
      {{"yyyy", Field::kYear},
       {"MM", Field::kMonth},
       {"dd", Field::kDay},
       {"HH", Field::kHour},
       {"mm", Field::kMinute},
       {"ss", Field::kSecond},
       {"SSS", Field::kThousandths}}};
  for (const auto& [known, field] : kFields) {
    if (known == letters) return field;
  }
  throw std::invalid_argument(fmt::format("\"{}\" is no field of numbers", letters));
}

void NumericDateFormat::addText(std::string_view text) {
  if (pieces_.empty() || pieces_.back().field != Field::kText)
    pieces_.push_back({Field::kText, ""});
  pieces_.back().text += text;
}

std::optional<std::string> NumericDateFormat::string(Date date) const {
  const auto offset = zone_ == DateZone::kUtc ? Seconds(0) : localOffsetFromUtc(date);
  if (!offset) return std::nullopt;
  const WholeMilliseconds whole(date);
  const double seconds = whole.seconds + offset->count();
  constexpr double kFirst = double(*CivilTime{.year = 1}.unixSeconds());
  constexpr double kLast = double(*CivilTime{9999, 12, 31, 23, 59, 59}.unixSeconds());
  if (!(seconds >= kFirst && seconds <= kLast)) return std::nullopt;

  const auto time = CivilTime::fromUnixSeconds(static_cast<std::int64_t>(seconds));
  const std::array<int, 8> values{0,           static_cast<int>(time.year),
                                  time.month,  time.day,
                                  time.hour,   time.minute,
                                  time.second, static_cast<int>(whole.milliseconds)};
  std::string text;
  for (const Piece& piece : pieces_) {
    if (piece.field == Field::kText) {
      text += piece.text;
    } else {
      fmt::format_to(std::back_inserter(text), "{:0{}}",
                     values[static_cast<std::size_t>(piece.field)], piece.text.size());
    }
  }
  return text;
}

std::optional<Date> NumericDateFormat::date(std::string_view text) const {
  std::array<int, 8> values{0, 1970, 1, 1, 0, 0, 0, 0};
  std::string_view rest = text;
  for (const Piece& piece : pieces_) {
    const auto part = rest.substr(0, piece.text.size());
    if (part.size() < piece.text.size()) return std::nullopt;
    rest.remove_prefix(part.size());
    if (piece.field == Field::kText) continue;  // compared below
    const auto number = numberFrom(part);
    if (!number) return std::nullopt;
    values[static_cast<std::size_t>(piece.field)] = *number;
  }
  const auto [none, year, month, day, hour, minute, second, thousandths] = values;
  const auto local = CivilTime{year, month, day, hour, minute, second}.unixSeconds();
  if (!local) return std::nullopt;
  const Date shifted =
      Date::fromUnixSeconds(double(*local)) + Seconds(thousandths / kThousandthsPerSecond);
  // The offset depends on the instant, which depends on the offset: the second round settles it
  // unless the local time was skipped, and then the text does not come back below.
  Date instant = shifted;
  for (int round = 0; round < 2 && zone_ == DateZone::kLocal; ++round) {
    const auto offset = localOffsetFromUtc(instant);
    if (!offset) return std::nullopt;
    instant = shifted + -*offset;
  }
  if (string(instant) != text) return std::nullopt;
  return instant;
}

}  // namespace kv
