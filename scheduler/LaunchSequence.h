#pragma once

#include "app/Host.h"
#include "platform/PropertyList.h"
#include "scheduler/TaskRecord.h"
#include "scheduler/Trace.h"

namespace kv {

/// Where a rule found a task due. The sequence is the same everywhere; the texts differ.
enum class CallSite { kWeeklyOnceADay, kWeeklyNormal, kDailyOnceADay, kDailyNormal, kInterval };

/// What becomes of a due task.
enum class LaunchVerdict {
  kNoVolume,            ///< the destination is not there
  kBackupRunning,       ///< another backup is running
  kAlreadyLaunched,     ///< this tick has launched another set
  kLaunchApplication,   ///< to be started through the closed backup application
  kAskOpenApplication,  ///< to be started by asking the open backup application
};

/// Asks the host whether a due task can be launched now and by which route, and traces why. The
/// caller then takes the route. A null host answers nothing, so its destinations are missing.
///
/// Threads    main thread only.
LaunchVerdict decideLaunch(CallSite site, const TaskRecord& record, bool launchedAlready,
                           Host* host, Trace& trace);

}  // namespace kv
