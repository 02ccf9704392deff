#pragma once

#include <map>
#include <string>

#include "tools/kvbackup/DocumentStore.h"
#include "tools/kvbackup/History.h"

namespace kv {

/// What `kvbackup list` shows: every set of both documents, in joined order.
///
/// Errors     none; a record without a name is shown without one.
struct SetList {
  using LastRuns = std::map<std::string, History::LastRun>;

  /// A table for people, or one line that says that there is nothing.
  static std::string table(const DocumentStore::Documents& documents, const LastRuns& lastRuns);

  /// A JSON array for programs.
  static std::string json(const DocumentStore::Documents& documents, const LastRuns& lastRuns);
};

}  // namespace kv
