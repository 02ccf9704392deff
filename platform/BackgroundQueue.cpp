#include "platform/BackgroundQueue.h"

#include <algorithm>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/ThreadPriority.h"

namespace kv {

BackgroundQueue::BackgroundQueue(std::size_t threadLimit)
    : threadLimit_(std::max<std::size_t>(threadLimit, 1)) {}

BackgroundQueue::~BackgroundQueue() {
  std::unique_lock lock(mutex_);
  allEnded_.wait(lock, [this] { return threads_ == 0; });
}

void BackgroundQueue::async(std::function<void()> work) {
  {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    if (threads_ == threadLimit_) return;
    ++threads_;
  }
  try {
    std::thread([this] {
      lowerThisThreadsPriority();
      drain();
    }).detach();
  } catch (const std::system_error&) {
    // The system gives no further thread. Work must not be lost, so it is done here and now.
    drain();
  }
}

void BackgroundQueue::drain() noexcept {
  std::unique_lock lock(mutex_);
  while (!work_.empty()) {
    auto work = std::move(work_.front());
    work_.pop_front();
    lock.unlock();
    work();
    work = nullptr;
    lock.lock();
  }
  --threads_;
  if (threads_ == 0) allEnded_.notify_all();
}

}  // namespace kv
