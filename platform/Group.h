#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

#include "platform/SerialQueue.h"

namespace kv {

/// Work that somebody waits for together, on whatever queues it runs.
///
/// Threads    any.
/// Ownership  may be destroyed as soon as wait() has returned.
class Group {
 public:
  /// A member begins, or is done.
  void enter() { state_.fetch_add(1, std::memory_order_relaxed); }
  void leave();

  /// Puts work on a queue as a member.
  void async(SerialQueue& queue, std::function<void()> work);

  /// Returns when no member is left. It looks for some microseconds before it sleeps.
  void wait();
  bool isEmpty() const { return (state_.load(std::memory_order_acquire) & ~kSleeper) == 0; }

  /// For the child of a fork: there are no members, and nobody waits.
  void resetAfterFork();

 private:
  /// Set while somebody sleeps until the group is empty; the other bits count the members.
  static constexpr std::uint64_t kSleeper = std::uint64_t{1} << 63;

  std::atomic<std::uint64_t> state_{0};
  std::mutex mutex_;
  std::condition_variable empty_;
  std::uint64_t timesEmpty_ = 0;
};

}  // namespace kv
