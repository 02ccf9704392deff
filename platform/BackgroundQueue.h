#pragma once

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <mutex>

namespace kv {

/// Runs work that nobody waits for, on threads of the lowest scheduling priority.
///
/// Threads    any thread may add work. Items begin in the order in which they were added, several
///            may run at once, and they may end in any order. A thread lives while there is work:
///            an idle queue has none and costs no wake-up.
/// Ownership  an item is dropped as soon as it has run. The destructor returns when all work that
///            was added has run.
/// Errors     an exception that leaves an item ends the program.
class BackgroundQueue {
 public:
  /// At most `threadLimit` items (at least 1) run at once.
  explicit BackgroundQueue(std::size_t threadLimit = 4);
  ~BackgroundQueue();
  BackgroundQueue(const BackgroundQueue&) = delete;
  BackgroundQueue& operator=(const BackgroundQueue&) = delete;

  void async(std::function<void()> work);

 private:
  void drain() noexcept;

  const std::size_t threadLimit_;
  std::mutex mutex_;
  std::condition_variable allEnded_;
  std::deque<std::function<void()>> work_;
  std::size_t threads_ = 0;
};

}  // namespace kv
