#include "platform/Group.h"

#include <new>
#include <utility>

#include "platform/Processor.h"

namespace kv {

void Group::leave() {
  // Who leaves last touches the group again only when somebody sleeps, who then stays for it.
  if (state_.fetch_sub(1, std::memory_order_acq_rel) != (kSleeper | 1)) return;
  std::lock_guard lock(mutex_);
  state_.fetch_and(~kSleeper, std::memory_order_relaxed);
  ++timesEmpty_;
  empty_.notify_all();
}

void Group::async(SerialQueue& queue, std::function<void()> work) {
  enter();
  queue.async([this, work = std::move(work)] {
    work();
    leave();
  });
}

void Group::wait() {
  if (spinUntil([this] { return isEmpty(); })) return;
  std::unique_lock lock(mutex_);
  const std::uint64_t before = state_.fetch_or(kSleeper, std::memory_order_acq_rel);
  if (before == 0) state_.fetch_and(~kSleeper, std::memory_order_relaxed);
  if ((before & ~kSleeper) == 0) return;
  empty_.wait(lock, [this, known = timesEmpty_] { return timesEmpty_ != known; });
}

void Group::resetAfterFork() {
  state_ = 0;
  new (&mutex_) std::mutex;
  new (&empty_) std::condition_variable;
}

}  // namespace kv
