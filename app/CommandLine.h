#pragma once

#include <optional>
#include <string>

namespace kv {

/// What the user may say when starting the agent.
struct CommandLine {
  /// The bundle's folder; absent for the default one.
  std::optional<std::string> bundle;

  /// Reads the arguments. When there is nothing left to do (help, the version, an error, all of
  /// which are printed), yields nothing and sets `exitStatus`.
  static std::optional<CommandLine> parse(int argc, const char* const* argv, int& exitStatus);
};

}  // namespace kv
