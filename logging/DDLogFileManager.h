#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "logging/DDLogFileInfo.h"

namespace kv {

/// What a file logger asks of whoever owns the folder of log files: where the files are, which they
/// are, and which one to write next.
///
/// Threads    the file logger calls on its own queue; the limits may be set on any thread.
/// Ownership  held by its loggers, by shared pointer.
/// Errors     none reach the caller: lists stay empty, and a path is returned even when there is no
///            file to be had at it.
class DDLogFileManager {
 public:
  virtual ~DDLogFileManager() = default;

  /// How many log files are to be kept; 0 for any number.
  virtual std::uint64_t maximumNumberOfLogFiles() const = 0;
  virtual void setMaximumNumberOfLogFiles(std::uint64_t number) = 0;
  /// How many bytes the kept log files may take together; 0 for any number.
  virtual std::uint64_t logFilesDiskQuota() const = 0;
  virtual void setLogFilesDiskQuota(std::uint64_t sizeBytes) = 0;

  /// The full path of the folder.
  virtual std::string logsDirectory() = 0;

  /// The log files, in the order of the file system or with the newest first: full paths, bare
  /// names or records.
  virtual std::vector<std::string> unsortedLogFilePaths() = 0;
  virtual std::vector<std::string> unsortedLogFileNames() = 0;
  virtual std::vector<std::shared_ptr<DDLogFileInfo>> unsortedLogFileInfos() = 0;
  virtual std::vector<std::string> sortedLogFilePaths() = 0;
  virtual std::vector<std::string> sortedLogFileNames() = 0;
  virtual std::vector<std::shared_ptr<DDLogFileInfo>> sortedLogFileInfos() = 0;

  /// Makes the file to be written next, unless it is there, and returns its path.
  virtual std::string createNewLogFile() = 0;

  /// Optional: a file was found due at the start of a logger, or was rolled, and has been marked
  /// archived.
  virtual void didArchiveLogFile(const std::string& /*path*/) {}
  virtual void didRollAndArchiveLogFile(const std::string& /*path*/) {}
};

}  // namespace kv
