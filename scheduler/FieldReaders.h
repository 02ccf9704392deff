#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Date.h"
#include "platform/PropertyList.h"

namespace kv {

/// How the fields of a record are read: numbers, booleans and strings alike, and never a failure.
/// A null pointer is a missing value. Threads: any.

/// A number's integer part (saturating at 64 bits; 0 for a NaN), 1 or 0 for a boolean, a string's
/// leading decimal integer after blanks and a sign (saturating), else 0.
std::int64_t integerValue(const PropertyList* value);

/// True for a number that is not 0, and for a string that begins, after blanks, a sign and zeros,
/// with one of "YyTt" or a digit 1 to 9. A missing value is false.
bool truthValue(const PropertyList* value);

/// The day of the month on which a set last ran, as decimal text: the integer value, so that "05"
/// and 5 are both "5", and what is missing or no number is "0".
std::string storedDay(const PropertyList* value);

/// The date, when the value is a finite one.
std::optional<Date> dateValue(const PropertyList* value);

/// What a trace line shows for the value; absent when it is missing.
std::optional<std::string> shownValue(const PropertyList* value);

}  // namespace kv
