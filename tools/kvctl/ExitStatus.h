#pragma once

#include <stdexcept>
#include <string>

namespace kv::kvctl {

/// How the program ends: what a script that calls it can tell apart. `--help` prints the same list
/// (see exitStatusHelp).
enum class ExitStatus : int {
  kDone = 0,
  kProblems = 1,     ///< `check` found something; `replay` decided otherwise
  kUsage = 2,        ///< the command line makes no sense
  kUnknownSet = 3,   ///< no set has the name
  kUnreadable = 4,   ///< a file that the command needs is missing or cannot be understood
  kNotRunning = 5,   ///< `status`: no agent runs
  kUnexpected = 70,  ///< what should not happen: no memory, output that cannot be written
};

/// The statuses with their meanings, one a line.
std::string exitStatusHelp();

/// Why a command was not carried out: one clear line for standard error, and the exit status.
class Refusal final : public std::runtime_error {
 public:
  Refusal(ExitStatus status, const std::string& reason)
      : std::runtime_error(reason), status_(status) {}
  ExitStatus status() const { return status_; }

 private:
  ExitStatus status_;
};

}  // namespace kv::kvctl
