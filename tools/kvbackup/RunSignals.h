#pragma once

#include <signal.h>

namespace kv {

/// The signals of a run, taken at one place instead of in handlers: those that ask for an end
/// (SIGINT, SIGTERM, SIGHUP) and the end of a child.
///
/// While one lives they are blocked and wait in a descriptor, so that none can fall between the
/// end of a copy and its record. Those that this process was told to ignore (nohup) stay ignored.
///
/// Threads    one at a time in a process, in its only thread.
/// Errors     std::system_error when the system has no descriptor left.
class RunSignals {
 public:
  RunSignals();
  /// What came while it lived has been dealt with: nothing is delivered afterwards.
  ~RunSignals();
  RunSignals(const RunSignals&) = delete;
  RunSignals& operator=(const RunSignals&) = delete;

  /// Readable when a signal waits.
  int descriptor() const { return descriptor_; }

  /// Takes what waits: the first signal that asks for an end, else 0.
  int take();

 private:
  sigset_t oldMask_;
  int descriptor_;
};

}  // namespace kv
