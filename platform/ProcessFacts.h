#pragma once

#include <optional>
#include <string>

namespace kv {

/// What a program knows of itself.
struct ProcessFacts {
  /// The name of the executable file.
  std::string name;
  int pid = 0;
  /// Processors of the machine, at least 1; the process may be kept to fewer.
  unsigned processors = 1;
  /// The identifier of the main bundle; absent for a program without one.
  std::optional<std::string> bundleIdentifier;

  /// The facts of this process.
  static ProcessFacts current();
};

/// Tells whose main bundle this process has; ProcessFacts::current() holds it from then on.
/// Threads: main thread, before others ask.
void setMainBundleIdentifier(std::optional<std::string> identifier);

}  // namespace kv
