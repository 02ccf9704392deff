#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/kvbackup/RunSignals.h"

namespace kv {

/// How far a copy is.
struct CopyProgress {
  /// Bytes of file content copied.
  std::uint64_t bytes = 0;
  int percent = 0;
  /// "110.56MB/s", as rsync shows it.
  std::string speed;

  /// Reads a line such as "  1234567  45%  110.56MB/s    0:00:10 (xfr#1, to-chk=0/3)".
  static std::optional<CopyProgress> parse(std::string_view line);
};

/// How a copy ended.
struct CopyOutcome {
  /// Everything that is there at the end was copied.
  bool isComplete = false;
  /// The signal that ended it, or 0.
  int interruptedBy = 0;
  std::uint64_t bytes = 0;
  /// What went wrong, or what a complete copy has to say; may be empty.
  std::string message;
};

/// Mirrors one folder into another with rsync: what the source no longer has is deleted.
///
/// Threads    one at a time; the callbacks come from within run().
/// Errors     all in the outcome, but std::system_error when no process can be started.
class CopyJob {
 public:
  struct Listener {
    std::function<void(const CopyProgress&)> progress;
    /// A line of rsync's standard error.
    std::function<void(const std::string&)> error;
  };

  /// `rsync` is an absolute path. `isWatched` asks for a progress that can be trusted, at the
  /// price of a pass over the source before the first file is copied.
  CopyJob(std::string rsync, bool isWatched) : rsync_(std::move(rsync)), isWatched_(isWatched) {}

  /// Copies what is in the folder `source` into the folder `target`, both absolute paths. The
  /// first signal that asks for an end has rsync clean up and end, the second kills it.
  CopyOutcome run(const std::string& source, const std::string& target, RunSignals& signals,
                  const Listener& listener) const;

  /// The rsync of the search path (PATH), whose relative folders are left out: what a backup runs
  /// must not depend on where it was started.
  static std::optional<std::string> findRsync();

 private:
  std::vector<std::string> arguments(const std::string& source, const std::string& target) const;

  const std::string rsync_;
  const bool isWatched_;
};

}  // namespace kv
