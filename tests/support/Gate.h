#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "platform/SerialQueue.h"

namespace kv::test {

/// Something that happens once, and that others wait for.
class Event {
 public:
  void happen() {
    std::lock_guard lock(mutex_);
    happened_ = true;
    changed_.notify_all();
  }
  void await() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return happened_; });
  }
  bool hasHappened() {
    std::lock_guard lock(mutex_);
    return happened_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool happened_ = false;
};

/// Holds a queue until it is opened: what is put there meanwhile waits. Opens at its end.
class Gate {
 public:
  explicit Gate(SerialQueue& queue) : events_(std::make_shared<Events>()) {
    queue.async([events = events_] {
      events->closed.happen();
      events->open.await();
    });
    events_->closed.await();
  }
  ~Gate() { open(); }
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  void open() { events_->open.happen(); }

 private:
  struct Events {
    Event closed;
    Event open;
  };
  std::shared_ptr<Events> events_;
};

}  // namespace kv::test
