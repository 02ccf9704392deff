#include "platform/sdbus/BusHandles.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace kv {
namespace {

/// Whether the process at the other end is of this user: the address comes from the environment,
/// and what a stranger's bus says about callers is worth nothing.
bool isOwnBus(int descriptor) {
  ucred peer{};
  socklen_t length = sizeof peer;
  return ::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &peer, &length) == 0 &&
         peer.uid == ::geteuid();
}

}  // namespace

BusHandle beginConnection(const std::string& address, std::string& error) {
  error.clear();
  sd_bus* created = nullptr;
  int result = sd_bus_new(&created);
  BusHandle bus(created);
  if (result >= 0) result = sd_bus_set_address(created, address.c_str());
  if (result >= 0) result = sd_bus_set_bus_client(created, 1);
  if (result >= 0) result = sd_bus_start(created);
  if (result >= 0 && isOwnBus(sd_bus_get_fd(created))) return bus;
  if (result >= 0) {
    error = "it is another user's";
  } else if (result != -ENOENT) {
    error = std::strerror(-result);
  }
  return nullptr;
}

}  // namespace kv
