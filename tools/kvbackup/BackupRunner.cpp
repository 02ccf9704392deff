#include "tools/kvbackup/BackupRunner.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <optional>
#include <utility>

#include "platform/PlatformError.h"
#include "platform/linux/UserPaths.h"
#include "tools/kvbackup/BackupSet.h"
#include "tools/kvbackup/CopyJob.h"
#include "tools/kvbackup/ExitStatus.h"
#include "tools/kvbackup/ProgressBar.h"
#include "tools/kvbackup/RunRecorder.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

CopyPlan planFor(const PropertyList& record, const std::string& name) {
  const BackupSet set(record);
  const auto sources = set.sources();
  if (!sources) {
    throw Refusal(ExitStatus::kNoSources,
                  fmt::format("the backup set \"{}\" has no sources", name));
  }
  return CopyPlan::make(name, *sources, set.destination().value_or(""));
}

/// A run that is recorded must be on the disk, which may be unplugged the moment we say so.
void synchronise(const std::string& folder) {
  const int descriptor = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  const bool isDone = descriptor >= 0 && ::syncfs(descriptor) == 0;
  const int error = errno;
  if (descriptor >= 0) ::close(descriptor);
  if (!isDone) {
    throw Refusal(ExitStatus::kCopyFailed, fmt::format("cannot write all of {} to its disk: {}",
                                                       shown(folder), std::strerror(error)));
  }
}

}  // namespace

BackupRunner::BackupRunner(Environment environment)
    : environment_(std::move(environment)), history_(environment_.historyFile) {}

std::string BackupRunner::lockFile(const std::string& stateFolder) {
  // Not in the session's runtime folder: a run started from a timer may not know of any, and
  // would find the lock free.
  return stateFolder + "/kvbackup.lock";
}

std::unique_ptr<FileLock> BackupRunner::takeLock(const std::string& name) const {
  if (!makeFolders(environment_.stateFolder)) {
    throw Refusal(
        ExitStatus::kNoStateFolder,
        fmt::format("cannot make {}: {}", shown(environment_.stateFolder), std::strerror(errno)));
  }
  const std::string path = lockFile(environment_.stateFolder);
  try {
    if (auto lock = FileLock::tryAcquire(path, name)) return lock;
  } catch (const PlatformError& error) {
    throw Refusal(ExitStatus::kNoStateFolder, error.what());
  }
  const std::string holder = shown(FileLock::note(path));
  throw Refusal(ExitStatus::kBusy, holder.empty()
                                       ? "another backup is running"
                                       : fmt::format("the backup of \"{}\" is running", holder));
}

int BackupRunner::run(const std::string& name) {
  RunSignals signals;
  const auto lock = takeLock(name);
  RunReport report;
  report.set = name;
  report.start = environment_.clock.now();
  int status = static_cast<int>(ExitStatus::kUnexpected);
  try {
    status = backUp(report, signals);
  } catch (const Refusal& refusal) {
    status = static_cast<int>(refusal.status());
    report.message = refusal.what();
    complain(report.message);
  } catch (const std::exception& error) {
    report.message = error.what();
    complain(report.message);
  }
  report.end = environment_.clock.now();
  if (!history_.append(report)) {
    complain(
        fmt::format("the run is missing in {}, which cannot be written", environment_.historyFile));
  }
  return status;
}

int BackupRunner::backUp(RunReport& report, RunSignals& signals) {
  BackupSet::checkName(report.set);
  log_.emplace(environment_.stateFolder + "/logs", report.set, environment_.clock);
  const PropertyList found = environment_.store.find(report.set);
  const auto rsync = CopyJob::findRsync();
  if (!rsync) throw Refusal(ExitStatus::kNoRsync, "rsync is not installed (it is not in PATH)");
  const CopyPlan plan = planFor(found, report.set);
  say(fmt::format("Backing up {} to {}", report.set, shown(plan.folder)));
  copyAll(*rsync, plan, report, signals);
  if (interruptedBy_ != 0) {
    report.result = RunReport::Result::kInterrupted;
    complain(fmt::format("the backup of \"{}\" was interrupted", report.set));
    return 128 + interruptedBy_;
  }
  synchronise(plan.folder);
  record(report);
  report.result = RunReport::Result::kOk;
  const Seconds taken = environment_.clock.now() - report.start;
  say(fmt::format("Finished {}: {} copied in {:.0f} s{}{}", report.set, sizeText(report.bytes),
                  std::max(taken.count(), 0.0), report.message.empty() ? "" : "; ",
                  report.message));
  return static_cast<int>(ExitStatus::kDone);
}

void BackupRunner::copyAll(const std::string& rsync, const CopyPlan& plan, RunReport& report,
                           RunSignals& signals) {
  ProgressBar bar(STDOUT_FILENO);
  const CopyJob job(rsync, bar.isShown());
  std::optional<std::string> failure;
  std::size_t number = 0;
  for (const CopyPlan::Step& step : plan.steps) {
    const std::string label =
        plan.steps.size() == 1 ? report.set
                               : fmt::format("{} {}/{}", report.set, ++number, plan.steps.size());
    const CopyOutcome outcome =
        job.run(step.source, step.target, signals,
                {[&](const CopyProgress& progress) { bar.show(label, progress); },
                 [&](const std::string& line) {
                   bar.clear();
                   fmt::print(stderr, "{}\n", shown(line));
                   log_->detail(line);
                 }});
    bar.clear();
    report.bytes += outcome.bytes;
    if (!outcome.message.empty()) report.message = outcome.message;
    interruptedBy_ = outcome.interruptedBy;
    if (interruptedBy_ != 0) return;
    // What can be saved of the other sources is saved, but the run has failed.
    if (!outcome.isComplete && !failure) failure = outcome.message;
  }
  if (failure) throw Refusal(ExitStatus::kCopyFailed, *failure);
}

void BackupRunner::record(const RunReport& report) {
  try {
    environment_.store.edit(report.set, [&](PropertyList::Dictionary& set) {
      recordRun(set, report.start, environment_.clock.now());
    });
  } catch (const Refusal& refusal) {
    throw Refusal(ExitStatus::kCopyNotRecorded,
                  fmt::format("{}: {}", kRunNotRecorded, refusal.what()));
  }
}

/// Lines for people appear at once, also where the output is a file or a pipe.
void BackupRunner::say(const std::string& line) {
  fmt::print("{}\n", line);
  std::fflush(stdout);
  if (log_) log_->line(line);
}

void BackupRunner::complain(const std::string& line) {
  fmt::print(stderr, "kvbackup: {}\n", shown(line));
  if (log_) log_->line(line);
}

}  // namespace kv
