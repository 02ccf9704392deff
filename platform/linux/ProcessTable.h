#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kv {

/// A running process of this user.
struct RunningProcess {
  int pid = 0;
  /// The command line, program name first.
  std::vector<std::string> arguments;
};

/// The processes of this user that run the executable at the absolute path `executable` (links
/// resolved), in ascending order of their ids. A script counts under its own path when it stands
/// in its command line behind the interpreter.
std::vector<RunningProcess> processesRunning(const std::string& executable);

/// A process of this user by its id.
struct OwnProcess {
  /// Of its program, at most 15 characters.
  std::string name;
  /// HOME as it was started with; empty when that cannot be told.
  std::string home;
};

/// Nothing when no process of this user has the id.
std::optional<OwnProcess> ownProcess(int pid);

}  // namespace kv
