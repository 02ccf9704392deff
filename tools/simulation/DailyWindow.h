#pragma once

#include <optional>
#include <string_view>

#include "platform/Date.h"

namespace kv {

/// A part of every day by the local clock, over midnight where it ends before it begins.
///
/// Threads    any, while no thread changes the environment (the zone is the C library's).
/// Units      minutes since midnight; the minute `until` is no part of it.
struct DailyWindow {
  int from = 0;
  int until = 0;

  /// "22:00-07:00"; nothing when it is none, or is empty.
  static std::optional<DailyWindow> parse(std::string_view text);

  bool contains(Date moment) const;
  /// The first moment after `moment` at which the window begins, or ends. Where the clocks skip
  /// that time of day, it is the one of the day after.
  Date nextBegin(Date moment) const;
  Date nextEnd(Date moment) const;
};

}  // namespace kv
