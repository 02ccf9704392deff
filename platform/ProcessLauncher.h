#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kv {

/// Starts programs and lets go of them.
///
/// Threads    any, several at once.
/// Ownership  a started process is nobody's child here: it is never waited for, leaves no zombie
///            and outlives the agent.
class ProcessLauncher {
 public:
  virtual ~ProcessLauncher() = default;

  /// Starts the program at the absolute path `executable`. An absent argument list starts it
  /// without arguments. It inherits the standard streams, working folder and environment, and
  /// nothing else: no further descriptor, no blocked signal, no lowered priority.
  ///
  /// Throws PlatformError when the program cannot be started.
  virtual void start(const std::string& executable,
                     const std::optional<std::vector<std::string>>& arguments) = 0;
};

}  // namespace kv
