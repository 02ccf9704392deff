#pragma once

#include <stdexcept>

namespace kv {

/// What the platform refused: a file step, a process start, an argument past the end of a list.
///
/// Thrown only by FileHandle, ProcessLauncher and the reading of launch arguments; caught by exact
/// type only where a failure is part of the behaviour. `what()` is a sentence for the system log.
class PlatformError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kv
