#pragma once

#include <string>

#include "app/Host.h"
#include "platform/Files.h"

namespace kv {

/// The two property-list documents in which the backup application keeps its sets.
struct ScheduleDocuments {
  static constexpr const char* kFirst = "Library/Application Support/Kelvara/kelvara.plist";
  static constexpr const char* kSecond = "Library/Application Support/Kelvara/kvsets.plist";

  /// The records of the first document, then those of the second, read afresh. A document that
  /// is missing, unreadable, no property list or no array contributes nothing.
  static TaskList load(Files& files, const std::string& homeFolder);

  /// The records of one document; empty when it contributes nothing.
  static TaskList loadOne(Files& files, const std::string& path);
};

}  // namespace kv
