#pragma once

#include <chrono>
#include <compare>

namespace kv {

/// A length of time in seconds, fractions included.
using Seconds = std::chrono::duration<double>;

/// An instant.
///
/// Units      seconds since 2001-01-01 00:00:00 UTC, the epoch of property lists: a date that was
///            read and is written again keeps every bit.
/// Errors     none; arithmetic on non-finite values follows IEEE 754. Readers of fields treat a
///            non-finite date as absent.
struct Date {
  Seconds sinceReference{0};

  /// Seconds from 1970-01-01 to 2001-01-01, both 00:00:00 UTC.
  static constexpr double kReferenceInUnixSeconds = 978307200.0;

  static constexpr Date fromUnixSeconds(double seconds) {
    return {Seconds(seconds - kReferenceInUnixSeconds)};
  }
  constexpr double unixSeconds() const { return sinceReference.count() + kReferenceInUnixSeconds; }

  friend constexpr auto operator<=>(const Date&, const Date&) = default;
  friend constexpr Seconds operator-(const Date& later, const Date& earlier) {
    return later.sinceReference - earlier.sinceReference;
  }
  friend constexpr Date operator+(const Date& date, Seconds step) {
    return {date.sinceReference + step};
  }
};

}  // namespace kv
