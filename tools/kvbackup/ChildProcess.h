#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace kv {

/// A program that runs on our behalf, with its output in two pipes, and does not outlive us.
///
/// It is started without a shell, in our process group (so that the terminal stops, continues and
/// interrupts both), with nothing on its standard input, no descriptor but the standard three
/// (which relies on prepareProcess() having been called), no signal blocked or ignored, and SIGTERM
/// on its way should we die.
///
/// Threads    the thread that made it, which must live as long.
/// Errors     std::system_error when it cannot be started for lack of pipes or processes; a
///            program that cannot be executed says so on its standard error and ends with 127.
class ChildProcess {
 public:
  /// Starts the program at the absolute path `executable`.
  ChildProcess(const std::string& executable, const std::vector<std::string>& arguments);
  /// Kills and reaps the program if that has not been done.
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  /// The ends of the pipes from which its output can be read without blocking.
  int output() const { return output_; }
  int errors() const { return errors_; }

  void signal(int number) const;

  /// How it ended, as wait(2) tells; nothing while it runs.
  std::optional<int> reap();

 private:
  pid_t pid_ = -1;
  int output_ = -1;
  int errors_ = -1;
};

}  // namespace kv
