#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "logging/ApplicationName.h"
#include "logging/DDLog.h"
#include "logging/DDLogFileInfo.h"
#include "logging/DDLogFileManager.h"
#include "platform/Clock.h"
#include "platform/DateFormat.h"
#include "platform/Files.h"
#include "platform/ProcessFacts.h"
#include "platform/SerialQueue.h"
#include "platform/SystemLog.h"
#include "platform/SystemSeams.h"

namespace kv {

/// The folder of log files that belongs to this application.
///
/// Kelvara+ and the agent write one file each, under a fixed name that is no log file to the lists:
/// it is reopened at each start, and never deleted. Any other application's files bear its name and
/// the UTC minute in which they were made, "Sample 2024-05-01 13-07.log".
///
/// Files are deleted only when a limit has changed; neither making nor rolling one does it.
///
/// Threads    any; deleteOldLogFiles() runs as the global logging queue when a limit has changed.
/// Ownership  must be held by a shared pointer for a changed limit to have that effect; what waits
///            on the queue holds it too.
/// Units      the quota is in bytes.
/// Errors     as for DDLogFileManager; a folder that cannot be made is a line in the system log.
class DDLogFileManagerDefault : public DDLogFileManager,
                                public std::enable_shared_from_this<DDLogFileManagerDefault> {
 public:
  /// What a manager uses of the world; the system's own unless told otherwise.
  struct Environment {
    std::shared_ptr<Files> files = systemFiles();
    std::shared_ptr<const Clock> clock = systemClock();
    std::shared_ptr<SystemLog> systemLog = processSystemLog();
    ProcessFacts processFacts = ProcessFacts::current();
    /// Shared by the managers of a process. A test gives each manager a fresh one, so that each is
    /// another application's.
    std::shared_ptr<ApplicationName> applicationName = ApplicationName::ofProcess();
    /// Where files are deleted when a limit has changed.
    std::shared_ptr<SerialQueue> loggingQueue = DDLog::loggingQueue();
    /// Empty for a user without one.
    std::string userLibraryFolder = kv::userLibraryFolder();
    std::string temporaryFolder = kv::temporaryFolder();
  };

  static constexpr std::uint64_t kDefaultMaximumNumberOfLogFiles = 5;
  static constexpr std::uint64_t kDefaultLogFilesDiskQuota = 20 * 1024 * 1024;

  /// Without a folder, or with none: defaultLogsDirectory(). Nothing is made yet.
  static std::shared_ptr<DDLogFileManagerDefault> create(
      std::optional<std::string> logsDirectory = std::nullopt) {
    return std::make_shared<DDLogFileManagerDefault>(std::move(logsDirectory));
  }
  explicit DDLogFileManagerDefault(std::optional<std::string> logsDirectory = std::nullopt);
  DDLogFileManagerDefault(std::optional<std::string> logsDirectory, Environment environment);

  std::uint64_t maximumNumberOfLogFiles() const override { return maximumNumberOfLogFiles_; }
  std::uint64_t logFilesDiskQuota() const override { return logFilesDiskQuota_; }
  /// A value other than the present one has old files deleted, a little later.
  void setMaximumNumberOfLogFiles(std::uint64_t number) override;
  void setLogFilesDiskQuota(std::uint64_t sizeBytes) override;

  /// Logs/<process name> in the user's Library folder, or in the temporary folder for a user
  /// without one.
  std::string defaultLogsDirectory() const;
  /// Makes the folder when there is none.
  std::string logsDirectory() override;

  /// The bundle identifier of the application, or else its process name; settled once per process.
  const std::string& applicationName() const;

  /// Whether a file of this name, without folder, belongs to the lists: "<application name> <date>
  /// <time>.log", with one more word before ".log" at most.
  virtual bool isLogFile(std::string_view fileName);
  virtual std::string newLogFileName();
  std::string createNewLogFile() override;

  std::vector<std::string> unsortedLogFilePaths() override;
  std::vector<std::string> unsortedLogFileNames() override;
  std::vector<std::shared_ptr<DDLogFileInfo>> unsortedLogFileInfos() override;
  std::vector<std::string> sortedLogFilePaths() override;
  std::vector<std::string> sortedLogFileNames() override;
  std::vector<std::shared_ptr<DDLogFileInfo>> sortedLogFileInfos() override;

  /// Removes the oldest files until both limits are kept. The newest stays, whatever the limits,
  /// unless it is archived.
  void deleteOldLogFiles();

  /// The formatter of the dates in file names: minutes, UTC. One per thread, valid while that runs.
  static const DateFormat& logFileDateFormatter();

 private:
  void change(std::atomic<std::uint64_t>& limit, std::uint64_t value);

  const Environment environment_;
  const std::string logsDirectory_;
  std::atomic<std::uint64_t> maximumNumberOfLogFiles_{kDefaultMaximumNumberOfLogFiles};
  std::atomic<std::uint64_t> logFilesDiskQuota_{kDefaultLogFilesDiskQuota};
};

}  // namespace kv
