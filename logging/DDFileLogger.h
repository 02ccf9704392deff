#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "logging/DDAbstractLogger.h"
#include "logging/DDLogFileInfo.h"
#include "logging/DDLogFileManager.h"
#include "logging/RolledFileCloser.h"
#include "platform/Clock.h"
#include "platform/FileWatch.h"
#include "platform/Files.h"
#include "platform/SystemLog.h"
#include "platform/SystemSeams.h"
#include "platform/TimerSource.h"

namespace kv {

/// Writes formatted messages to a file, and rolls it: closes the file and marks it archived.
///
/// Closed ──first message──► Open ──size, age, file gone, removal, rollLogFile()──► Closed
///
/// Closed  no record, no handle, no timer, no watch, and no line held back.
/// Open    all held together, save what the system refused; the offset is the file's size as far
///         as this logger wrote it. A rolled file keeps its name.
///
/// Lines   A line reaches the kernel before the dispatcher gives its message's place back. While a
///         backlog is being drained, lines are held back and written together (see HeldLines),
///         unless setGroupsBacklogWrites(false). A line whose write fails is lost, counted and
///         reported, and nothing of it stays in the file where that can be helped; the next line
///         is tried as if nothing had happened.
/// Rolls   A file is brought to the disk when it is rolled. In the middle of a backlog that goes on
///         while the next file is being written, of one file at a time; it is over at the latest
///         when flush(), the completion of rollLogFile() or the logger's removal is.
///
/// Threads    maximumFileSize(), rollingFrequency() and their setters, rollLogFile() and the plain
///            settings any; the two getters wait for the global logging queue and the logger's,
///            and must not be called from either. All else as the logger's queue.
/// Ownership  must be held by a shared pointer. The destructor closes the file and does not
///            archive it.
/// Units      bytes and seconds.
/// Errors     none reach the caller: of all file loggers together the first ten failures go to the
///            system log. A file that cannot be opened is tried anew with each message, one that
///            has gone is made anew, and nothing is reported.
class DDFileLogger : public DDAbstractLogger, private HeldLines {
 public:
  struct Environment {
    std::shared_ptr<Clock> clock = systemClock();
    std::shared_ptr<Files> files = systemFiles();
    std::shared_ptr<FileWatcher> fileWatcher = systemFileWatcher();
    std::shared_ptr<TimerSources> timers = timerSources();
    std::shared_ptr<SystemLog> systemLog = processSystemLog();
  };

  static constexpr std::uint64_t kDefaultMaximumFileSize = 1024 * 1024;
  static constexpr double kDefaultRollingFrequency = 24 * 60 * 60;

  /// With a DDLogFileManagerDefault on its default folder, or with `manager`.
  static std::shared_ptr<DDFileLogger> create();
  static std::shared_ptr<DDFileLogger> create(std::shared_ptr<DDLogFileManager> manager);
  DDFileLogger(std::shared_ptr<DDLogFileManager> manager, Environment environment);
  explicit DDFileLogger(std::shared_ptr<DDLogFileManager> manager);
  ~DDFileLogger() override;

  const std::shared_ptr<DDLogFileManager>& logFileManager() const { return logFileManager_; }

  /// The size at which the file is rolled; 0 for never. A new value holds behind the messages that
  /// were logged before, and may roll the file at once. (A manager that names files by the minute
  /// hands out the same file again within it, which then goes on growing.)
  std::uint64_t maximumFileSize();
  void setMaximumFileSize(std::uint64_t sizeBytes);
  /// The age at which the file is rolled; 0 or less for never. A new value holds as above.
  double rollingFrequency();
  void setRollingFrequency(double seconds);

  /// Whether a new file is begun at start although the newest one could go on.
  bool doNotReuseLogFiles() const { return doNotReuseLogFiles_; }
  void setDoNotReuseLogFiles(bool value) { doNotReuseLogFiles_ = value; }
  /// Whether text that a formatter made gets a line end when it has none.
  bool automaticallyAppendNewlineForCustomFormatters() const { return appendsNewline_; }
  void setAutomaticallyAppendNewlineForCustomFormatters(bool value) { appendsNewline_ = value; }
  /// Whether lines are written together while a backlog is being drained; else each line is one
  /// write before the next message is taken, and a rolled file is on the disk before that, too.
  bool groupsBacklogWrites() const { return groupsBacklogWrites_; }
  void setGroupsBacklogWrites(bool value) { groupsBacklogWrites_ = value; }

  /// Rolls the file after the messages that were logged before, at once when called as the
  /// logger's queue; then `completion` runs on the main queue, that is when the program drains it
  /// (see MainQueue.h).
  void rollLogFile();
  void rollLogFileWithCompletionBlock(std::function<void()> completion);

  /// Lines that were not written, since their write failed or no file could be opened.
  std::uint64_t lostLines() const { return lostLines_; }

  // --- As the logger's queue ---

  /// The record of the file being written, found or made on demand.
  std::shared_ptr<DDLogFileInfo> currentLogFileInfo();
  /// The open file, opened on demand; null when it cannot be.
  FileHandle* currentLogFileHandle();

  void rollLogFileNow();
  void maybeRollLogFileDueToAge();
  void maybeRollLogFileDueToSize();
  void scheduleTimerToRollLogFileDueToAge();

  void logMessage(const DDLogMessage& message) override;
  void willRemoveLogger() override;
  /// Returns when the files that were rolled are on the disk.
  void flush() override { finishRolling(); }
  std::string loggerName() const override { return "kelvara.logging.fileLogger"; }
  HeldLines* heldLines() override { return this; }

 private:
  void allowHolding(bool allowed) override { mayHold_ = allowed; }
  std::size_t count() const override { return lineLengths_.size(); }
  void write() override;

  struct ForgetAtEnd;

  bool isDueForArchiving(DDLogFileInfo& info) const;
  bool mustWrite() const;
  void finishRolling();
  void writeAll();
  void writeAndRoll();
  void writeLineByLine(FileHandle& handle, std::uint64_t begin);
  /// Runs `work`; what it throws is counted and reported.
  template <class Work>
  void guarded(Work&& work);
  /// The same for the exception that is being handled.
  void reportCaught();
  void report(const char* what);
  /// Runs `work` guarded as the logger's queue if the logger is still there.
  std::function<void()> handler(void (DDFileLogger::*work)());

  const Environment environment_;
  const std::shared_ptr<DDLogFileManager> logFileManager_;
  std::atomic<bool> doNotReuseLogFiles_{false};
  std::atomic<bool> appendsNewline_{true};
  std::atomic<bool> groupsBacklogWrites_{true};
  std::atomic<std::uint64_t> lostLines_{0};

  // As the logger's queue only.
  std::uint64_t maximumFileSize_ = kDefaultMaximumFileSize;
  double rollingFrequency_ = kDefaultRollingFrequency;
  std::shared_ptr<DDLogFileInfo> currentLogFileInfo_;
  std::unique_ptr<FileHandle> currentLogFileHandle_;
  RolledFileCloser closer_;
  std::unique_ptr<FileWatch> currentLogFileVnode_;
  std::unique_ptr<TimerSource> rollingTimer_;
  /// A backlog is being drained.
  bool mayHold_ = false;
  /// Finished lines that are not written yet, and the length of each.
  std::string lines_;
  std::vector<std::size_t> lineLengths_;
};

}  // namespace kv
