#pragma once

#include <memory>
#include <mutex>
#include <string>

#include "platform/ProcessFacts.h"

namespace kv {

/// The name that log files bear: settled when it is first asked for, and the same from then on.
///
/// Threads    any.
class ApplicationName {
 public:
  /// The one that all managers of the process share.
  static std::shared_ptr<ApplicationName> ofProcess();

  /// The bundle identifier, or else the name of the process, of the first `facts` handed in.
  const std::string& settledFrom(const ProcessFacts& facts);

 private:
  std::once_flag once_;
  std::string name_;
};

}  // namespace kv
