#pragma once

#include <stdexcept>

namespace kv {

/// Why the agent cannot start. `what()` is one line for the user, with file and line where the
/// fault lies in a script. Thrown while a bundle is loaded, caught once, by the program's entry.
class StartupError final : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace kv
