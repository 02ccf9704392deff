#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>

#include "platform/SystemLog.h"

namespace kv {

/// Tells the system log what goes wrong in a host script, once.
///
/// An operation that fails at every call, a thousand times a tick, is one line: a fault that is
/// the same as the operation's last one is not repeated until the operation has worked in between.
///
/// Threads    main thread only.
class ScriptFaults {
 public:
  explicit ScriptFaults(std::shared_ptr<SystemLog> systemLog);

  /// `location` is "file:line".
  void failed(std::string_view operation, std::string_view location, std::string_view text);
  void worked(std::string_view operation);

 private:
  std::shared_ptr<SystemLog> systemLog_;
  std::map<std::string, std::string, std::less<>> lastFaults_;
};

}  // namespace kv
