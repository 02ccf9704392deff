#include "platform/TimerSource.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "platform/ForkHandlers.h"
#include "platform/ThreadFacts.h"

namespace kv {
namespace {

using SteadyClock = std::chrono::steady_clock;

/// Shared by the source, the thread that waits and the work on the queue.
struct Timer {
  std::shared_ptr<SerialQueue> queue;
  std::function<void()> handler;
  std::atomic<bool> isCancelled{false};
};

/// The moment at which a delay from now ends; nothing for never.
std::optional<SteadyClock::time_point> endOf(Seconds delay) {
  constexpr Seconds kNever = std::chrono::hours(24 * 365 * 290);
  const auto now = SteadyClock::now();
  if (!(delay > Seconds(0))) return now;
  if (delay >= kNever - Seconds(now.time_since_epoch())) return std::nullopt;
  return now + std::chrono::duration_cast<SteadyClock::duration>(delay);
}

class ThreadTimerSources;
ThreadTimerSources& threadTimerSources();

class ThreadTimerSources final : public TimerSources,
                                 public std::enable_shared_from_this<ThreadTimerSources> {
 public:
  std::unique_ptr<TimerSource> fireOnce(Seconds delay, std::shared_ptr<SerialQueue> queue,
                                        std::function<void()> handler) override {
    auto timer = std::make_shared<Timer>();
    timer->queue = std::move(queue);
    timer->handler = std::move(handler);
    if (const auto end = endOf(delay)) add(*end, timer);
    return std::make_unique<Source>(shared_from_this(), std::move(timer));
  }

  /// In the child of a fork nothing waits until the next timer is added; then all go on.
  static void surviveForks() {
    callAroundFork([] { threadTimerSources().mutex_.lock(); },
                   [] { threadTimerSources().mutex_.unlock(); },
                   [] {
                     threadTimerSources().hasThread_ = false;
                     new (&threadTimerSources().changed_) std::condition_variable;
                     threadTimerSources().mutex_.unlock();
                   });
  }

 private:
  struct Source final : TimerSource {
    Source(std::shared_ptr<ThreadTimerSources> owner, std::shared_ptr<Timer> ownTimer)
        : sources(std::move(owner)), timer(std::move(ownTimer)) {}
    ~Source() override { sources->cancel(*timer); }
    std::shared_ptr<ThreadTimerSources> sources;
    std::shared_ptr<Timer> timer;
  };

  void add(SteadyClock::time_point end, const std::shared_ptr<Timer>& timer) {
    std::lock_guard lock(mutex_);
    const auto place = timers_.emplace(end, timer);
    if (!hasThread_) {
      startThread();
    } else if (place == timers_.begin()) {
      changed_.notify_one();
    }
  }

  void startThread() {
    std::thread([self = shared_from_this()] { self->wait(); }).detach();
    hasThread_ = true;
  }

  void cancel(Timer& timer) {
    timer.isCancelled = true;
    std::lock_guard lock(mutex_);
    std::erase_if(timers_, [&](const auto& entry) { return entry.second.get() == &timer; });
  }

  void wait() {
    nameThisThread("kelvara.timers");
    leaveSignalsToOtherThreads();
    std::unique_lock lock(mutex_);
    for (;;) {
      if (timers_.empty()) {
        changed_.wait(lock);
        continue;
      }
      const auto first = timers_.begin();
      if (first->first > SteadyClock::now()) {
        const auto end = first->first;  // cancel() may free the entry during the wait
        changed_.wait_until(lock, end);
        continue;
      }
      const auto timer = first->second;
      timers_.erase(first);
      timer->queue->async([timer] {
        if (!timer->isCancelled) timer->handler();
      });
    }
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::multimap<SteadyClock::time_point, std::shared_ptr<Timer>> timers_;
  bool hasThread_ = false;
};

const std::shared_ptr<ThreadTimerSources>& sharedSources() {
  static const auto& sources = []() -> const std::shared_ptr<ThreadTimerSources>& {
    const auto& made =
        *new std::shared_ptr<ThreadTimerSources>(std::make_shared<ThreadTimerSources>());
    ThreadTimerSources::surviveForks();
    return made;
  }();
  return sources;
}

ThreadTimerSources& threadTimerSources() {
  return *sharedSources();
}

}  // namespace

std::shared_ptr<TimerSources> timerSources() {
  return sharedSources();
}

}  // namespace kv
