#include "app/ScriptFaults.h"

#include <fmt/format.h>

#include <utility>

namespace kv {

ScriptFaults::ScriptFaults(std::shared_ptr<SystemLog> systemLog)
    : systemLog_(std::move(systemLog)) {}

void ScriptFaults::failed(std::string_view operation, std::string_view location,
                          std::string_view text) {
  std::string line = fmt::format("{}: {}: {}", location, operation, text);
  std::string& last = lastFaults_[std::string(operation)];
  if (last == line) return;
  systemLog_->write(line);
  last = std::move(line);
}

void ScriptFaults::worked(std::string_view operation) {
  if (lastFaults_.empty()) return;
  if (const auto last = lastFaults_.find(operation); last != lastFaults_.end()) {
    lastFaults_.erase(last);
  }
}

}  // namespace kv
