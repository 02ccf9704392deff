#include "logging/ApplicationName.h"

namespace kv {

std::shared_ptr<ApplicationName> ApplicationName::ofProcess() {
  // Never destroyed: the last lines of a program may need a file.
  static const auto& name = *new auto(std::make_shared<ApplicationName>());
  return name;
}

const std::string& ApplicationName::settledFrom(const ProcessFacts& facts) {
  std::call_once(once_, [&] { name_ = facts.bundleIdentifier.value_or(facts.name); });
  return name_;
}

}  // namespace kv
