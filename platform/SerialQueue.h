#pragma once

#include <atomic>
#include <concepts>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "platform/QueueWork.h"

namespace kv {

/// Runs work one at a time, in the order in which it was put there.
///
/// Promises, each with a test:
///   (1) work on one queue runs in the order in which it was put there, one at a time;
///   (2) sync() returns after its work and all work before it;
///   (3) a Group's wait() returns when all its members are done;
///   (4) a queue's value for a key is visible only to work that runs as that queue.
///
/// A queue has a thread of its own, named after its label, which begins with the first work that
/// needs it. sync() on an idle queue runs the work on the caller's thread instead, as owner of the
/// queue: current queue, label and values are this queue's while it runs, and nothing else runs
/// as this queue meanwhile.
///
/// Threads    any. sync() from work that runs as this queue, or from work that such work waits for
///            on the same thread, would wait for itself: it ends the program with a message.
/// Ownership  held by shared pointers. When the last one goes, what was put on the queue still
///            runs, and then its thread ends; nobody waits for that.
/// Errors     an exception that leaves asynchronous work ends the program; one that leaves
///            synchronous work ends the program too, since it may run on another thread.
class SerialQueue {
 public:
  explicit SerialQueue(std::string_view label = {});
  ~SerialQueue();
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;

  const std::string& label() const;

  /// Puts work on the queue and returns at once.
  void async(std::function<void()> work);

  /// Puts work on the queue and returns when it has run.
  template <std::invocable Work>
  [[gnu::always_inline]] void sync(const Work& work) {
    // Inline: behind a system call the processor has forgotten where to return to, and guesses
    // wrong for each function that lies on the way back.
    QueueState& queue = *state_;
    if (queue.isRunningHere() || !queue.tryOwn()) return syncInTurn(work);
    {
      const QueueState::Running running(queue);
      [&]() noexcept { work(); }();
    }
    queue.release();
  }

  /// A value under the address `key`, for work that runs as this queue; null takes it away.
  void setSpecific(const void* key, void* value);
  void* specific(const void* key) const;

  /// True for work that runs as this queue, and not as another one within it.
  bool isCurrent() const;

  /// The label of the queue that the calling work runs as; "main-thread" on the main thread and
  /// empty on other threads when it runs as none. Valid as long as the work runs.
  static const std::string& currentLabel();
  /// The value of the queue that the calling work runs as; null when there is none.
  static void* currentSpecific(const void* key);

  /// For those who feed a queue with work of their own making: see QueueWork.h.
  QueueState& state() { return *state_; }

 private:
  void syncInTurn(const std::function<void()>& work);

  std::shared_ptr<QueueState> state_;
};

}  // namespace kv
