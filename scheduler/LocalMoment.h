#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Date.h"
#include "platform/DateFormatter.h"

namespace kv {

/// The date patterns that the scheduler renders and reads, made once.
///
/// Threads    main thread only.
struct DatePatterns {
  explicit DatePatterns(const DateLocale& locale);

  DateFormatter banner;         ///< "YYYY/MM/dd HH:mm:ss": the week-based year, on purpose
  DateFormatter monthToSecond;  ///< "MM/dd HH:mm:ss"
  DateFormatter dayOfMonth;     ///< "d"
  DateFormatter timeOfDay;      ///< "HHmm"
  DateFormatter weekday;        ///< "e": 1 on the first day of the locale's week
  /// The number of a Sunday in the locale's week: "1" where weeks start on Sunday, "7" where they
  /// start on Monday.
  std::optional<std::string> sunday;
};

/// One instant as the rules see it: the parts of its local date, each rendered at most once.
///
/// Threads    main thread only.
/// Ownership  borrows the patterns, which must outlive it.
class LocalMoment {
 public:
  LocalMoment(Date now, const DatePatterns& patterns) : now_(now), patterns_(patterns) {}

  /// Another instant.
  LocalMoment at(Date date) const { return {date, patterns_}; }

  Date now() const { return now_; }
  const DatePatterns& patterns() const { return patterns_; }

  /// The day of the month without a leading zero: "5", "17".
  const std::string& day();
  /// Hour and minute: "0905".
  const std::string& timeOfDay();
  /// The same as a number: 905.
  std::int64_t timeNumber();
  /// The number of the weekday in the locale's week: "1" to "7".
  const std::string& weekday();
  /// The number of a Sunday in the locale's week.
  const std::optional<std::string>& sunday() const { return patterns_.sunday; }

 private:
  static const std::string& rendered(std::optional<std::string>& kept, const DateFormatter& format,
                                     Date date);

  Date now_;
  const DatePatterns& patterns_;
  std::optional<std::string> day_;
  std::optional<std::string> timeOfDay_;
  std::optional<std::string> weekday_;
  std::optional<std::int64_t> timeNumber_;
};

}  // namespace kv
