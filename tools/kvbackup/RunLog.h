#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/Clock.h"

namespace kv {

/// What the last run of a set had to say: `FOLDER/SET.log`, begun anew by each run, for this user
/// only. The agent shows it on request.
///
/// Threads    one at a time.
/// Ownership  borrows the clock.
/// Errors     none: a log that cannot be written is no reason to make no backup.
class RunLog {
 public:
  /// What rsync says beyond this is left out.
  static constexpr std::size_t kMostDetailBytes = 512 * 1024;

  /// `set` is a name that BackupSet::checkName has let through, and therefore a file's.
  RunLog(const std::string& folder, const std::string& set, const Clock& clock);
  ~RunLog();
  RunLog(const RunLog&) = delete;
  RunLog& operator=(const RunLog&) = delete;

  /// A line about the run as a whole.
  void line(std::string_view text);
  /// A line of the many that there may be.
  void detail(std::string_view text);

 private:
  const Clock& clock_;
  int descriptor_ = -1;
  std::size_t detailBytes_ = 0;
};

}  // namespace kv
