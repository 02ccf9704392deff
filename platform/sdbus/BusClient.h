#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/Date.h"
#include "platform/PropertyList.h"

namespace kv {

/// Asks a program on the user's session bus for all properties of an interface.
///
/// Threads    any; the calling one waits, for `limit` at the longest.
/// Errors     nothing when there is no answer in time; `problem` then says why, and stays empty
///            where there is no bus, or nobody on it who has the name. Nobody is started.
struct BusQuery {
  std::string service;
  std::string path;
  std::string interface;
  Seconds limit{2.0};

  std::optional<PropertyList::Dictionary> allProperties(const std::string& address,
                                                        std::string& problem) const;
};

}  // namespace kv
