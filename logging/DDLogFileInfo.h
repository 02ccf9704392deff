#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/Clock.h"
#include "platform/Date.h"
#include "platform/Files.h"
#include "platform/SystemLog.h"
#include "platform/SystemSeams.h"

namespace kv {

/// One log file: its path, and what the file system says of it, asked when it is first wanted and
/// kept from then on.
///
/// The archived mark is not kept here: it is an extended attribute of the file, so it survives the
/// program, and every record and every process sees the same.
///
/// Threads    one at a time.
/// Units      sizes in bytes, ages in seconds.
/// Errors     none reach the caller: what cannot be read is absent, 0 or false, and what cannot be
///            changed is a line in the system log.
class DDLogFileInfo final {
 public:
  /// What a record uses of the world; the system's own unless told otherwise.
  struct Environment {
    std::shared_ptr<Files> files = systemFiles();
    std::shared_ptr<const Clock> clock = systemClock();
    std::shared_ptr<SystemLog> systemLog = processSystemLog();
  };

  /// The extended attribute that marks an archived file.
  static constexpr const char* kArchivedAttribute = "kelvara.log.archived";

  static std::shared_ptr<DDLogFileInfo> logFileWithPath(std::string path);

  /// The file need not be there; nothing is looked at yet.
  explicit DDLogFileInfo(std::string filePath);
  DDLogFileInfo(std::string filePath, Environment environment);

  const std::string& filePath() const { return filePath_; }
  /// The last component of the path.
  const std::string& fileName();
  /// Absent as long as there is no file. Links are not followed.
  const std::optional<FileAttributes>& fileAttributes();
  std::optional<Date> creationDate();
  std::optional<Date> modificationDate();
  /// A size other than 0 is kept for good, reset() included; 0 is asked again each time.
  std::uint64_t fileSize();
  /// Seconds since the file was created; 0 when it is not known, negative when the clock was set
  /// back.
  double age();

  bool isArchived();
  void setIsArchived(bool archived);

  /// Forgets what is kept, save the size.
  void reset();

  /// Gives the file another name within its folder, in place of a file that has it already. From
  /// then on the record is that of the new path, even when the file could not be moved.
  void renameFile(const std::string& newFileName);

  /// Extended attributes of the file, or of what a link leads to. Their values are empty.
  bool hasExtendedAttributeWithName(const std::string& attributeName);
  void addExtendedAttributeWithName(const std::string& attributeName);
  /// An attribute that is not there is no failure.
  void removeExtendedAttributeWithName(const std::string& attributeName);

  /// Whether `other` is a record of the same path, letter by letter. False for null.
  bool isEqual(const DDLogFileInfo* other) const;
  bool isEqual(const DDLogFileInfo& other) const { return isEqual(&other); }
  bool isEqual(const std::shared_ptr<DDLogFileInfo>& other) const { return isEqual(other.get()); }

  /// 1 when this file is older than `other`, -1 when it is newer, else 0: sorting by it puts the
  /// newest first. A file without a date counts as older than any with one.
  int reverseCompareByCreationDate(DDLogFileInfo& other);
  int reverseCompareByModificationDate(DDLogFileInfo& other);

  /// All that is known, in braces, one "key = value;" to the line, keys in ascending order and
  /// those of the attributes indented once more. A value that is not a plain word (ASCII letters,
  /// digits, "_") stands in double quotes, with "\" before a quote or a backslash and "\n" for a
  /// line feed; an absent one is "". Dates are UTC, booleans 1 or 0.
  std::string description();

 private:
  void report(const char* call, const std::string& attributeName, const FileResult& result);

  const Environment environment_;
  std::string filePath_;
  std::optional<std::string> fileName_;
  std::optional<FileAttributes> fileAttributes_;
  std::optional<Date> creationDate_;
  std::optional<Date> modificationDate_;
  std::uint64_t fileSize_ = 0;
};

}  // namespace kv
