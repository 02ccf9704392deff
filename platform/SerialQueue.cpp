#include "platform/SerialQueue.h"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

#include "platform/Processor.h"
#include "platform/ThreadFacts.h"

namespace kv {
namespace {

class AsyncWork final : public QueueWork {
 public:
  explicit AsyncWork(std::function<void()> work) : work_(std::move(work)) {}
  void run() noexcept override {
    work_();
    delete this;
  }

 private:
  std::function<void()> work_;
};

/// Lives on the stack of the thread that waits for it.
class SyncWork final : public QueueWork {
 public:
  explicit SyncWork(const std::function<void()>& work) : work_(work) {}

  void run() noexcept override {
    work_();
    // Under the lock: who waits destroys this as soon as it is done.
    std::lock_guard lock(mutex_);
    isDone_.store(true, std::memory_order_release);
    done_.notify_one();
  }

  void wait() {
    spinUntil([this] { return isDone_.load(std::memory_order_acquire); });
    std::unique_lock lock(mutex_);
    done_.wait(lock, [this] { return isDone_.load(std::memory_order_acquire); });
  }

 private:
  const std::function<void()>& work_;
  std::atomic<bool> isDone_{false};
  std::mutex mutex_;
  std::condition_variable done_;
};

[[noreturn]] void stopWaitingForItself(const std::string& label) {
  std::fprintf(stderr, "sync on queue \"%s\" from work that runs as it: it would wait for itself\n",
               label.c_str());
  std::abort();
}

}  // namespace

SerialQueue::SerialQueue(std::string_view label) : state_(std::make_shared<QueueState>(label)) {}

SerialQueue::~SerialQueue() {
  state_->close();
}

const std::string& SerialQueue::label() const {
  return state_->label();
}

void SerialQueue::async(std::function<void()> work) {
  state_->push(*new AsyncWork(std::move(work)));
}

void SerialQueue::syncInTurn(const std::function<void()>& work) {
  QueueState& queue = *state_;
  if (queue.isRunningHere()) stopWaitingForItself(queue.label());
  SyncWork queued(work);
  queue.push(queued);
  queue.hurry();
  queued.wait();
}

void SerialQueue::setSpecific(const void* key, void* value) {
  state_->setSpecific(key, value);
}

void* SerialQueue::specific(const void* key) const {
  return state_->specific(key);
}

bool SerialQueue::isCurrent() const {
  return QueueState::current() == state_.get();
}

const std::string& SerialQueue::currentLabel() {
  static const auto& none = *new std::string();
  static const auto& mainThread = *new std::string("main-thread");
  const QueueState* const queue = QueueState::current();
  if (queue != nullptr) return queue->label();
  return isMainThread() ? mainThread : none;
}

void* SerialQueue::currentSpecific(const void* key) {
  const QueueState* const queue = QueueState::current();
  return queue == nullptr ? nullptr : queue->specific(key);
}

}  // namespace kv
