#pragma once

#include <memory>

#include "platform/ProcessLauncher.h"

namespace kv {

/// Starts programs through QProcess.
///
/// Threads    made on the main thread; start() from any.
/// Errors     PlatformError names the program and the reason; a path that is not absolute is
///            refused, since it would be searched for elsewhere.
///
/// A child inherits the priority of the thread that forks it, and an unprivileged process cannot
/// raise it again. The forking is therefore done by a thread of this object's own, which keeps
/// the priority that the agent was started with; start() hands over to it and waits. The thread
/// sleeps while nothing is to be started.
class QtProcessLauncher final : public ProcessLauncher {
 public:
  QtProcessLauncher();
  ~QtProcessLauncher() override;
  QtProcessLauncher(const QtProcessLauncher&) = delete;
  QtProcessLauncher& operator=(const QtProcessLauncher&) = delete;
  void start(const std::string& executable,
             const std::optional<std::vector<std::string>>& arguments) override;

 private:
  class Forker;
  std::unique_ptr<Forker> forker_;
};

}  // namespace kv
