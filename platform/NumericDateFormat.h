#pragma once

#include <string>
#include <vector>

#include "platform/DateFormat.h"

namespace kv {

/// Dates of numbers only, by a CLDR pattern of the fields yyyy, MM, dd, HH, mm, ss and SSS, with
/// other text between them ("yyyy/MM/dd HH:mm:ss:SSS", "HH'h'mm").
///
/// It renders what a DateFormatter does and needs no library of locales, which takes megabytes: a
/// program that only logs does without. Digits are ASCII, the calendar is Gregorian (for a
/// DateFormatter it is Julian before 1582-10-15).
///
/// Threads    any: nothing changes after construction.
/// Units      thousandths of a second are cut off, not rounded. Years 1 to 9999.
/// Errors     the constructor throws std::invalid_argument for a pattern with other fields.
class NumericDateFormat final : public DateFormat {
 public:
  explicit NumericDateFormat(std::string_view pattern, DateZone zone = DateZone::kLocal);
  std::optional<std::string> string(Date date) const override;
  /// A field that the pattern lacks is that of 1970-01-01 00:00:00.
  std::optional<Date> date(std::string_view text) const override;

 private:
  enum class Field { kText, kYear, kMonth, kDay, kHour, kMinute, kSecond, kThousandths };
  struct Piece {
    Field field;
    std::string text;  // the text itself, or the letters of the field
  };
  static Field fieldOf(std::string_view letters);
  void addText(std::string_view text);
  std::size_t addQuoted(std::string_view pattern);

  std::vector<Piece> pieces_;
  DateZone zone_;
};

}  // namespace kv
