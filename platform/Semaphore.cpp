#include "platform/Semaphore.h"

#include <algorithm>
#include <chrono>
#include <new>

#include "platform/Processor.h"

namespace kv {

bool Semaphore::tryWait() {
  if (free_.fetch_sub(1, std::memory_order_acquire) > 0) return true;
  free_.fetch_add(1, std::memory_order_relaxed);
  return false;
}

void Semaphore::signal(std::int64_t places) {
  const auto before = free_.fetch_add(places, std::memory_order_seq_cst);
  if (before + places < wakeAt_ || sleepers_.load(std::memory_order_seq_cst) == 0) return;
  std::lock_guard lock(mutex_);
  freed_.notify_all();
}

void Semaphore::waitLong() {
  const auto isThereOne = [this] { return free_.load(std::memory_order_seq_cst) > 0 && tryWait(); };
  if (spinUntil(isThereOne)) return;
  constexpr std::chrono::microseconds kLongestStep(1000);
  std::chrono::microseconds step(50);
  std::unique_lock lock(mutex_);
  sleepers_.fetch_add(1, std::memory_order_seq_cst);
  while (!isThereOne()) {
    freed_.wait_for(lock, step);
    step = std::min(step * 2, kLongestStep);
  }
  sleepers_.fetch_sub(1, std::memory_order_relaxed);
}

void Semaphore::resetAfterFork(std::int64_t places) {
  free_ = places;
  sleepers_ = 0;
  new (&mutex_) std::mutex;
  new (&freed_) std::condition_variable;
}

}  // namespace kv
