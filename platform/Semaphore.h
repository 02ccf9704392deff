#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>

#include "platform/Processor.h"

namespace kv {

/// Counts places. Made for a stream of work that is bounded: taking a place that is free and
/// giving many back at once cost one atomic step each.
///
/// Who finds no place looks for some microseconds, then sleeps, looks again by itself in growing
/// steps of up to a millisecond, and is woken when half of many places are free: it costs the giver
/// a system call only once in a while, and what is left to do lasts until the woken caller is back.
///
/// Threads    any.
class Semaphore {
 public:
  explicit Semaphore(std::int64_t places) : free_(places), wakeAt_(wakeThreshold(places)) {}

  /// Takes a place, without time limit. `whenFull` is called, once, when there is none at first.
  template <class WhenFull>
  void wait(WhenFull&& whenFull) {
    if (tryWait()) return;
    whenFull();
    waitLong();
  }
  void wait() {
    wait([] {});
  }
  bool tryWait();
  /// A place is wanted soon: fetches the memory that it touches.
  void expectWait() const { prefetchForWriting(&free_); }
  void signal(std::int64_t places = 1);

  /// Places that are free at this moment. Safe in a signal handler.
  std::int64_t freePlaces() const { return free_.load(std::memory_order_acquire); }

  /// For the child of a fork: all places are free, and nobody waits.
  void resetAfterFork(std::int64_t places);

 private:
  static std::int64_t wakeThreshold(std::int64_t places) { return places < 128 ? 1 : places / 2; }
  void waitLong();

  alignas(64) std::atomic<std::int64_t> free_;
  alignas(64) std::atomic<std::int64_t> sleepers_{0};
  const std::int64_t wakeAt_;
  std::mutex mutex_;
  std::condition_variable freed_;
};

}  // namespace kv
