#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/DescriptorWatcher.h"
#include "platform/PropertyList.h"
#include "platform/SystemLog.h"
#include "platform/sdbus/BusHandles.h"

namespace kv {

/// One object with one interface on the user's session bus: properties that can be read, and the
/// signal Changed. Nothing can be set or done through it.
///
/// Closed ──attend(), and a bus takes connections──► Open ──the bus ends or lets us wait──► Closed
///
/// Closed  no connection, nothing watched.
/// Open    a connection that is being made or stands; its descriptor is watched.
///
/// Nothing here waits for the bus, and no timer is set: the event loop is woken by what arrives
/// only. Whatever a bus is late with is noticed by attend(), which is to be called now and then.
/// Each call is answered when the bus has said that its caller is of this user, and refused else.
///
/// Threads    the thread of the event loop.
/// Ownership  the watcher must outlive it.
/// Errors     none reach the caller. A bus that is there and cannot be used is told to the system
///            log, once.
class BusService {
 public:
  struct Property {
    const char* name;
    /// One of those that appendBusValue() knows.
    const char* type;
  };
  struct Names {
    std::string service;
    std::string path;
    std::string interface;
    std::vector<Property> properties;
  };
  struct Environment {
    std::shared_ptr<DescriptorWatcher> watcher;
    std::shared_ptr<SystemLog> systemLog;
    /// The values at this moment by name; what is not known is left out. Called for each call that
    /// asks for any.
    std::function<PropertyList::Dictionary()> values;
    /// Where the bus is; empty for nowhere.
    std::function<std::string()> address;
  };

  /// Callers whose user the bus has not told yet; more are refused.
  static constexpr std::size_t kMostWaiting = 64;

  BusService(Names names, Environment environment);
  ~BusService();
  BusService(const BusService&) = delete;
  BusService& operator=(const BusService&) = delete;

  /// Connects when there is no connection, and gives up what has taken too long.
  void attend();

  /// What the values say has changed. The signal goes out at a turn of the loop at which the bus
  /// takes it: one for all changes until then, and none while there is no bus.
  void noteChange();

  /// What a program can ask the object about itself: its interfaces, as XML.
  std::string introspection() const;

 private:
  struct Waiting;

  void open();
  void close(const std::string& reason);
  void process();
  void sendChange();
  void received(sd_bus_message* call);
  int answer(sd_bus_message* call) const;
  int answerOne(sd_bus_message* call) const;
  int answerAll(sd_bus_message* call) const;
  bool isOurs(const char* interface) const;

  const Names names_;
  const Environment environment_;
  BusHandle bus_;
  std::unique_ptr<DescriptorWatcher::Watch> watch_;
  std::size_t waiting_ = 0;
  bool hasChanged_ = false;
  bool isSilent_ = false;  ///< nothing is to be told of a bus any more
};

}  // namespace kv
