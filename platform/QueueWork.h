#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "platform/Processor.h"

namespace kv {

/// One piece of work, which is its own place in the queue: nothing is allocated to put it there.
///
/// Ownership  the queue refers to it from push() until run() begins; from then on it belongs to
///            itself and may be destroyed or used again.
class QueueWork {
 public:
  QueueWork() = default;
  virtual ~QueueWork() = default;
  QueueWork(const QueueWork&) = delete;
  QueueWork& operator=(const QueueWork&) = delete;

  /// Runs as the queue.
  virtual void run() = 0;
  /// Whether the work belongs to a batch; see QueueState::setBatchEnd().
  virtual bool joinsBatch() const { return false; }

 private:
  friend class QueueState;
  QueueWork* next_ = nullptr;
};

/// What a queue is made of, for code that feeds it with work of its own making or runs work on
/// behalf of it. Everybody else uses SerialQueue.
///
/// Free ──tryOwn()──► Owned ──release()──► Free
///                      │ ▲
///               lend() ▼ │ takeBack()
///                      Lent ──the queue's worker steals it──► Owned (by the worker)
///
/// Free   nothing runs as this queue.
/// Owned  one thread runs work as this queue, or is about to. The worker owns the queue while it
///        drains it.
/// Lent   the owner has something else to do. Its next piece of work for this queue is laid out as
///        the loan, and the worker may take both: at once when other work was put on the queue,
///        else when it finds the same loan again the next time it looks.
///
/// Invariant  work that was put on the queue is run by its worker alone, in order.
///
/// In the child of a fork no worker runs, and what waits in a queue belongs to the parent: every
/// queue is empty and free there, and begins a worker of its own with its first work.
///
/// Threads    any, save where a member says otherwise.
class QueueState : public std::enable_shared_from_this<QueueState> {
 public:
  explicit QueueState(std::string_view label);
  ~QueueState();
  QueueState(const QueueState&) = delete;
  QueueState& operator=(const QueueState&) = delete;

  const std::string& label() const { return label_; }

  /// Puts work at the end. It wakes the worker unless that is about to look by itself.
  void push(QueueWork& work);
  /// A push comes soon: fetches the memory that it touches, which the worker had last.
  void expectPush() const {
    prefetchForWriting(&pushed_);
    __builtin_prefetch(&worker_);
  }
  /// Makes a worker that is about to look again look at once.
  void hurry();

  /// Owns the queue when it is free and nothing waits in it.
  bool tryOwn();
  /// True when other work waits in the queue. Exact for the owner.
  bool hasPending() const {
    return pushed_.load(std::memory_order_acquire) != nullptr ||
           isPartlyDrained_.load(std::memory_order_relaxed);
  }
  void release();

  /// The owner's offer: `loan` runs as this queue on its worker if that takes it. It must stay
  /// valid until it was run or takeBack() succeeded.
  void lend(QueueWork& loan);
  /// True when the caller owns the queue again; false when the loan has begun, or is done.
  bool takeBack();

  /// For work that runs as this queue and will never return, since it ends the process: runs all
  /// that waits.
  void drainFromWithin() { drain(); }

  /// From now on the worker looks again by itself for a while after the last work, in short steps,
  /// and push() does not wake it meanwhile: a burst of work pays for one wake-up.
  void linger() { lingers_ = true; }

  /// The owner calls `batchEnd`, as this queue, after a run of work that joins batches: before any
  /// other work, and when nothing is left. Set before the first work.
  void setBatchEnd(std::function<void()> batchEnd) { batchEnd_ = std::move(batchEnd); }

  /// The last handle has gone: the worker ends when nothing is left.
  void close();

  void setSpecific(const void* key, void* value);
  void* specific(const void* key) const;

  /// While it lives the calling thread's work runs as a queue.
  class Running {
   public:
    explicit Running(QueueState& queue);
    ~Running();
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;

   private:
    friend class QueueState;
    QueueState& queue_;
    Running* outer_;
  };
  /// The queue that the calling thread's work runs as; null for none.
  static QueueState* current();
  /// Whether the calling thread runs work as this queue, other queues' work within it included.
  bool isRunningHere() const;

  /// Owns the queue between two pieces of its work, though more waits; release() gives it back.
  /// False when the present piece does not end within a second.
  bool ownBetweenWork();

 private:
  enum class Owner : std::uint32_t { kFree, kOwned, kLent };
  enum class Worker : std::uint32_t { kNone, kAwake, kLingering, kAsleep };

  void wake(bool evenLingering);
  bool startWorker();
  void work();
  /// What a look brought the worker: nothing, the sight of a loan that is new since the last look,
  /// or work that it did.
  enum class Turn { kNothing, kWatched, kTaken };
  Turn takeTurn(std::uint64_t& knownLoan);
  void drain();
  QueueWork* takePushed();
  bool waitForWork(Turn last);
  void endBatch();
  void forgetAfterFork();
  struct Registry;
  static Registry& registry();

  // What pushing reads and nobody changes any more shares no line of memory with what draining
  // changes all the time.
  const std::string label_;
  bool lingers_ = false;
  std::function<void()> batchEnd_;

  /// Touched by the owner only: what was taken and has not run yet, oldest first.
  alignas(64) QueueWork* ready_ = nullptr;
  bool isBatchOpen_ = false;

  /// What was pushed and not taken yet, newest first.
  alignas(64) std::atomic<QueueWork*> pushed_{nullptr};
  alignas(64) std::atomic<Owner> owner_{Owner::kFree};
  std::atomic<Worker> worker_{Worker::kNone};
  /// Somebody waits to own the queue between two pieces of work.
  std::atomic<bool> isPauseWanted_{false};
  /// The owner stopped for a pause, with work left in `ready_`.
  std::atomic<bool> isPartlyDrained_{false};
  QueueWork* loan_ = nullptr;
  std::atomic<std::uint64_t> loans_{0};

  std::mutex mutex_;
  std::condition_variable awake_;
  bool isClosed_ = false;
  std::uint64_t signals_ = 0;

  mutable std::mutex specificsMutex_;
  std::vector<std::pair<const void*, void*>> specifics_;
};

}  // namespace kv
