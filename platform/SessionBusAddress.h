#pragma once

#include <string>

namespace kv {

/// The address that the environment gives for the session's bus: of DBUS_SESSION_BUS_ADDRESS the
/// first that is a socket, else (when that is not set) $XDG_RUNTIME_DIR/bus. Empty for none. Only
/// sockets count: the other kinds of address look up hosts or start programs, and wait for that.
///
/// Threads    any, while none changes the environment.
std::string sessionBusAddress();

}  // namespace kv
