#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/DescriptorWatcher.h"
#include "platform/sdbus/BusHandles.h"

namespace kv {

/// Finds out whether a bus answers, and waits for that without holding anybody up: the first thing
/// to do before a library is asked for the bus that waits for it as long as it takes.
///
/// Threads    the thread of the event loop.
/// Errors     none: a bus that is not there, or that never answers, is never told of.
class BusGreeting {
 public:
  /// Calls `answered` once, from the event loop, when the bus at `address` (empty for none) has
  /// welcomed a client.
  BusGreeting(DescriptorWatcher& watcher, const std::string& address,
              std::function<void()> answered);

 private:
  void process();

  std::function<void()> answered_;
  BusHandle bus_;
  std::unique_ptr<DescriptorWatcher::Watch> watch_;  // goes before the descriptor
};

}  // namespace kv
