#pragma once

#include <stdexcept>
#include <string>

namespace kv {

/// How the program ends: what a script that calls it can tell apart. `--help` prints the same list
/// (see exitStatusHelp), and a run that a signal ended gives 128 and the signal's number.
enum class ExitStatus : int {
  kDone = 0,
  kUnexpected = 1,
  kUsage = 2,
  kBadName = 3,
  kDuplicateName = 4,
  kUnknownSet = 5,
  kDocumentUnreadable = 6,
  kDocumentNotWritten = 7,
  kDestinationMissing = 10,
  kDestinationNotMounted = 11,
  kDestinationOverlaps = 12,
  kNoSources = 13,
  kSourceMissing = 14,
  kNoRsync = 15,
  kCopyFailed = 16,
  kCopyNotRecorded = 17,
  kNoStateFolder = 18,
  kBusy = 75,
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

}  // namespace kv
