#pragma once

#include <systemd/sd-bus.h>

#include <memory>
#include <string>

namespace kv {

/// Let go of libsystemd's objects. A connection is closed without waiting for what it still has to
/// send.
struct BusRelease {
  void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using BusHandle = std::unique_ptr<sd_bus, BusRelease>;
using BusMessageHandle = std::unique_ptr<sd_bus_message, BusRelease>;

/// A connection to the bus at `address`, which must be a socket, that is only being made: nothing
/// here waits. Null when there is nobody, or the bus is another user's; `error` then tells why, and
/// is empty when nothing stands at the address at all.
///
/// Threads    the connection belongs to the thread that uses it first.
BusHandle beginConnection(const std::string& address, std::string& error);

}  // namespace kv
