#pragma once

#include <QSocketNotifier>
#include <functional>
#include <memory>

namespace kv {

/// Turns the first SIGTERM or SIGINT into a call on the event loop.
///
/// The signal stays unblocked and caught, so that started programs inherit neither a mask nor an
/// ignored signal. A second one of the same kind ends the process at once: it is the way out when
/// a script hangs.
///
/// Threads    the thread of the application object; one object in a process at a time, since
///            signal handlers are the process's.
/// Errors     PlatformError when the system has no descriptor left.
class TerminationSignals {
 public:
  explicit TerminationSignals(std::function<void()> action);
  ~TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

 private:
  int descriptor_;
  std::unique_ptr<QSocketNotifier> notifier_;
};

}  // namespace kv
