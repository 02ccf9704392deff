#pragma once

#include <memory>
#include <string>
#include <vector>

#include "platform/BackgroundQueue.h"
#include "platform/Clock.h"
#include "platform/ProcessLauncher.h"
#include "platform/SystemLog.h"

namespace kv {

/// Starts programs for the host, in the background.
///
/// Threads    any; the start itself runs on the background queue after the call has returned.
/// Ownership  the argument list moves into the background work, which shares the environment's
///            members until it has run. No state is kept between calls.
/// Errors     none reach the caller: the returned texts are constant and say only that the work
///            was handed off. runApp() writes a failed start to the system log; the other two
///            drop it silently.
///
/// The argument list is read by position: element 0 is the absolute path of the executable.
class UtilsSch {
 public:
  struct Environment {
    std::shared_ptr<ProcessLauncher> launcher;
    std::shared_ptr<BackgroundQueue> queue;
    std::shared_ptr<SystemLog> systemLog;
    std::shared_ptr<const Clock> clock;
  };
  using ArgumentList = std::vector<std::string>;

  /// The launch-mode tokens that runScript() hands on; both lead to the same two arguments.
  static constexpr const char* kLaunchTokens[] = {"Qm3x7P", "4R82T6"};

  /// The present time of day as "09:05:07".
  static std::string getTmSTring(const Environment& environment);

  /// Starts element 0 without arguments. An empty list starts nothing.
  static std::string runAppAlone(const Environment& environment, ArgumentList list);

  /// Starts element 0 with elements 1 and 2, both of which must be there.
  static std::string runApp(const Environment& environment, ArgumentList list);

  /// Starts element 0 with elements 1 and 2 when element 1 is a launch-mode token (element 2 must
  /// then be there), else without arguments.
  static std::string runScript(const Environment& environment, ArgumentList list);
};

}  // namespace kv
