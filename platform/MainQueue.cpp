#include "platform/MainQueue.h"

#include <deque>
#include <mutex>
#include <utility>

#include "platform/QueueWork.h"

namespace kv {
namespace {

struct State {
  /// What its work runs as, for the current queue's label.
  std::shared_ptr<QueueState> identity = std::make_shared<QueueState>("main-thread");
  std::mutex mutex;
  std::deque<std::function<void()>> work;
  std::function<void()> waker;
};

/// Never destroyed: the last line of a program may still put work here.
State& state() {
  static State& state = *new State;
  return state;
}

}  // namespace

void MainQueue::async(std::function<void()> work) {
  State& queue = state();
  std::function<void()> waker;
  {
    std::lock_guard lock(queue.mutex);
    if (queue.work.empty()) waker = queue.waker;
    queue.work.push_back(std::move(work));
  }
  if (waker) waker();
}

void MainQueue::setWaker(std::function<void()> waker) {
  State& queue = state();
  std::function<void()> wakeNow;
  {
    std::lock_guard lock(queue.mutex);
    queue.waker = std::move(waker);
    if (!queue.work.empty()) wakeNow = queue.waker;
  }
  if (wakeNow) wakeNow();
}

std::size_t MainQueue::drain() {
  State& queue = state();
  const QueueState::Running running(*queue.identity);
  std::unique_lock lock(queue.mutex);
  const std::size_t waiting = queue.work.size();
  for (std::size_t done = 0; done < waiting; ++done) {
    const auto work = std::move(queue.work.front());
    queue.work.pop_front();
    lock.unlock();
    work();
    lock.lock();
    if (queue.work.empty()) return done + 1;
  }
  // Work came while there was some, so its putter woke nobody.
  const auto waker = queue.work.empty() ? nullptr : queue.waker;
  lock.unlock();
  if (waker) waker();
  return waiting;
}

}  // namespace kv
