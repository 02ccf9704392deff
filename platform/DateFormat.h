#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Date.h"

namespace kv {

/// Whose time of day a date is rendered in.
enum class DateZone { kLocal, kUtc };

/// Renders and parses dates by some pattern.
///
/// Threads    one at a time.
/// Errors     an instant that no calendar can hold renders as nothing; text that is not wholly and
///            exactly a date of the pattern parses as nothing.
class DateFormat {
 public:
  virtual ~DateFormat() = default;
  virtual std::optional<std::string> string(Date date) const = 0;
  virtual std::optional<Date> date(std::string_view text) const = 0;
};

}  // namespace kv
