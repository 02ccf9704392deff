#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/PropertyList.h"

namespace kv {

/// The joined task list: the records of both schedule documents, in order. An element that is no
/// dictionary keeps its place; it reads as a record without any field.
using TaskList = PropertyList::Array;

/// What the program asks of its host (the application's delegate): the six operations that only
/// the host can answer.
///
/// Threads    main thread only, synchronously; the scheduler has no time-out of its own.
/// Ownership  the program takes the host anew for each tick, each start of the timer and each
///            launch, and lets go of it afterwards.
/// Errors     none reach the program. An operation that fails answers nothing: false, no object.
///
/// A set name or path is absent (null) when the record lacks it; it may be any value that a
/// document holds, though it should be a string.
class Host {
 public:
  virtual ~Host() = default;

  /// Hands over the fresh task list, from which the host rebuilds its menu.
  virtual void reloadMenuNow(const TaskList& list) = 0;

  /// An object whose integer value is not 0 while a backup is running.
  virtual std::optional<PropertyList> checkRunningBackupStatus() = 0;

  /// An object whose integer value is not 0 while the backup application is open.
  virtual std::optional<PropertyList> checkBackupStatus() = 0;

  /// True when the destination at `path` is present. `fromSchedule` is 1: the scheduler asks.
  virtual bool checkIfDiskExists_fromSchedule(const PropertyList* path, int fromSchedule) = 0;

  /// Starts the backup application with the set.
  virtual void backupNow(const PropertyList* set) = 0;

  /// Asks the open backup application to back up the set.
  virtual void backupNowViaScript(const PropertyList* set) = 0;
};

}  // namespace kv
