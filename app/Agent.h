#pragma once

#include <memory>
#include <optional>
#include <string>

#include "app/AgentService.h"
#include "app/Application.h"
#include "app/CommandLine.h"
#include "platform/StatusBar.h"
#include "platform/SystemLog.h"
#include "platform/linux/FileLock.h"
#include "platform/qt/DesktopModule.h"
#include "platform/qt/QtDescriptorWatcher.h"
#include "platform/qt/QtMainQueue.h"
#include "platform/qt/QtRunLoop.h"
#include "platform/sdbus/BusGreeting.h"

namespace kv {

/// The agent as a process: puts the real parts together, and runs them from start to end.
///
/// One agent runs per user; a lock in the runtime folder, which holds the agent's process id, sees
/// to that.
///
/// Threads    main thread; made after the application object and gone before it.
/// Errors     the constructor and run() throw StartupError, or PlatformError when the system
///            refuses the lock or a descriptor.
class Agent {
 public:
  /// `desktop` is null where there is no display.
  Agent(const CommandLine& commandLine, std::shared_ptr<SystemLog> systemLog,
        DesktopModule* desktop);

  /// Loads the scripts, runs the event loop, and returns the exit status.
  int run();

  /// Everything that the program does, errors told to the user: its exit status.
  static int main(int argc, char** argv);

 private:
  Application::Environment environment(std::shared_ptr<StatusBar> statusBar);
  AgentService::Environment serviceEnvironment(const std::string& bundle);

  std::shared_ptr<SystemLog> systemLog_;
  std::unique_ptr<FileLock> lock_;
  std::shared_ptr<DecisionRecord> decisions_ = std::make_shared<DecisionRecord>();
  std::optional<AgentService> service_;
  /// Before the run loop, so that the schedulers that its timers hold end first.
  std::optional<Application> application_;
  QtDescriptorWatcher descriptors_;
  std::optional<BusGreeting> greeting_;
  QtRunLoop runLoop_;
  QtMainQueue mainQueue_;
};

}  // namespace kv
