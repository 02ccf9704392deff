#include "platform/sdbus/BusGreeting.h"

#include <poll.h>

#include <utility>

namespace kv {

BusGreeting::BusGreeting(DescriptorWatcher& watcher, const std::string& address,
                         std::function<void()> answered)
    : answered_(std::move(answered)) {
  std::string unused;
  if (!address.empty()) bus_ = beginConnection(address, unused);
  if (bus_ == nullptr) return;
  watch_ = watcher.watch(sd_bus_get_fd(bus_.get()), [this] { process(); });
  watch_->setWanted(true, true);
}

void BusGreeting::process() {
  int result = 1;
  while (result > 0) result = sd_bus_process(bus_.get(), nullptr);
  const bool isWelcome = result >= 0 && sd_bus_is_ready(bus_.get()) > 0;
  const int events = result < 0 ? result : sd_bus_get_events(bus_.get());
  if (!isWelcome && events >= 0) {
    watch_->setWanted((events & POLLIN) != 0, (events & POLLOUT) != 0);
    return;
  }
  watch_.reset();
  bus_.reset();
  if (isWelcome) std::exchange(answered_, nullptr)();
}

}  // namespace kv
