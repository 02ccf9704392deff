#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/PlatformError.h"
#include "platform/ProcessLauncher.h"

namespace kv::test {

/// Notes what is started; refuses the path `missing`.
struct RecordingLauncher final : ProcessLauncher {
  void start(const std::string& executable,
             const std::optional<std::vector<std::string>>& arguments) override {
    if (executable == missing) throw PlatformError("no such program");
    std::string line = executable;
    if (!arguments) line += " (no arguments)";
    for (const auto& argument : arguments.value_or(std::vector<std::string>{})) {
      line += " [" + argument + "]";
    }
    started.push_back(line);
  }
  std::string missing = "/missing";
  std::vector<std::string> started;
};

}  // namespace kv::test
