#pragma once

#include <functional>

namespace kv {

/// The queue of the main thread: what is put there runs on the main thread, in order, one at a
/// time, when the program's event loop comes round to it.
///
/// An event loop sets a waker and calls drain() on the main thread each time it was woken. A
/// program without an event loop calls drain() whenever it suits it.
///
/// Threads    async() and setWaker() any; drain() the main thread only.
/// Errors     an exception that leaves the work leaves drain(); the work behind it stays.
class MainQueue {
 public:
  static void async(std::function<void()> work);

  /// `waker` is called, on any thread, when work was put on an empty queue; null for none. Called
  /// at once when work is waiting already.
  static void setWaker(std::function<void()> waker);

  /// Runs what is there, not what that puts there; the number of pieces of work that ran.
  static std::size_t drain();
};

}  // namespace kv
