#pragma once

#include <optional>
#include <string>

#include "platform/Date.h"
#include "tools/kvctl/Context.h"

namespace kv::kvctl {

/// A pause of the default host, during which nothing is started by schedule.
struct Pause {
  /// Absent for a pause without an end.
  std::optional<Date> until;

  bool contains(Date date) const { return !until || date < *until; }
};

/// The pause in force at `now` by what `text`, the content of paused.json, says.
std::optional<Pause> pauseIn(const std::string& text, Date now);

/// The pause in force at the context's time. Errors: a file that is missing or makes no sense is
/// no pause.
std::optional<Pause> readPause(const Context& context);

}  // namespace kv::kvctl
