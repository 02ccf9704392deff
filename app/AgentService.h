#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/DecisionRecord.h"
#include "platform/Date.h"
#include "platform/DescriptorWatcher.h"
#include "platform/PropertyList.h"
#include "platform/SystemLog.h"
#include "platform/sdbus/BusService.h"

namespace kv {

/// What the agent tells other programs about itself, on the user's session bus (docs/dbus.md): what
/// it is, what its host says of the backups, and what the last tick decided. It takes no orders.
///
/// Nothing is collected before somebody asks.
///
/// Threads    the thread of the event loop.
/// Ownership  what `describeState` and `isTracing` use must outlive it.
/// Errors     none; see BusService.
class AgentService {
 public:
  static constexpr const char* kName = "com.kelvara.KVScheduler";
  static constexpr const char* kPath = "/com/kelvara/KVScheduler";
  static constexpr const char* kInterface = "com.kelvara.KVScheduler1";

  struct Environment {
    std::shared_ptr<DescriptorWatcher> watcher;
    std::shared_ptr<SystemLog> systemLog;
    std::shared_ptr<DecisionRecord> decisions;
    /// What the host says of itself (see docs/host-script.md); nothing when it does not.
    std::function<std::optional<PropertyList>()> describeState;
    std::function<bool()> isTracing;
    /// Where the bus is; empty for nowhere.
    std::function<std::string()> address;
    /// What does not change: Version, ProcessId, StartedAt, Home, Documents, TracePath, Bundle.
    PropertyList::Dictionary facts;
  };

  explicit AgentService(Environment environment);

  /// To be called after each tick, when the process is awake anyway: connects where there is no
  /// connection, and tells of decisions that differ from those before.
  void attend();

  /// What the host shows has changed.
  void noteChange() { service_.noteChange(); }

  /// All properties at this moment.
  PropertyList::Dictionary values() const;

  std::string introspection() const { return service_.introspection(); }

 private:
  const Environment environment_;
  BusService service_;
};

}  // namespace kv
