#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/PropertyList.h"
#include "platform/linux/FileLock.h"
#include "tools/kvbackup/CopyPlan.h"
#include "tools/kvbackup/DocumentStore.h"
#include "tools/kvbackup/History.h"
#include "tools/kvbackup/RunLog.h"
#include "tools/kvbackup/RunSignals.h"

namespace kv {

/// Runs one backup set: checks, copies, records the run in the documents and in the history.
///
/// One backup runs at a time, under a lock in the state folder. A run leaves exactly one line in
/// the history, whatever became of it, and a log of its own; the documents learn only of those that
/// succeeded. A signal that comes when all is copied is too late: what is on the disk is recorded.
///
/// Threads    main thread only; it takes the signals of the process while it runs.
/// Errors     Refusal (kBusy, kNoStateFolder) when there was no run; all else is in the status.
class BackupRunner {
 public:
  struct Environment {
    const Clock& clock;
    DocumentStore& store;
    std::string stateFolder;
    std::string historyFile;
  };

  explicit BackupRunner(Environment environment);

  /// The exit status for the run.
  int run(const std::string& name);

  /// The lock that a run holds.
  static std::string lockFile(const std::string& stateFolder);

 private:
  std::unique_ptr<FileLock> takeLock(const std::string& name) const;
  int backUp(RunReport& report, RunSignals& signals);
  void copyAll(const std::string& rsync, const CopyPlan& plan, RunReport& report,
               RunSignals& signals);
  void record(const RunReport& report);
  /// Both go to the terminal and to the log of the run.
  void say(const std::string& line);
  void complain(const std::string& line);

  const Environment environment_;
  const History history_;
  std::optional<RunLog> log_;
  int interruptedBy_ = 0;
};

}  // namespace kv
