#include <chrono>
#include <new>
#include <set>
#include <system_error>
#include <thread>

#include "platform/ForkHandlers.h"
#include "platform/Processor.h"
#include "platform/QueueWork.h"
#include "platform/ThreadFacts.h"

namespace kv {
namespace {

using SteadyClock = std::chrono::steady_clock;

/// How long a worker goes on looking by itself after the last work, and in which steps: of a queue
/// that lingers, and of one that only watches for loans that nobody takes back. With each look the
/// memory that pushing touches moves to the worker's processor, so the next push takes longer.
constexpr std::chrono::microseconds kLingering(2000);
constexpr std::chrono::microseconds kLingeringStep(200);
constexpr std::chrono::microseconds kLoanStep(100);

/// How long the owner leaves the list of pushed work alone after a batch when more has come: who
/// pushes is faster meanwhile, and the next batch is larger. Some microseconds.
constexpr std::size_t kGatheringRounds = 100;

constinit thread_local QueueState::Running* tInnermost = nullptr;

}  // namespace

QueueState::Running::Running(QueueState& queue) : queue_(queue), outer_(tInnermost) {
  tInnermost = this;
}

QueueState::Running::~Running() {
  tInnermost = outer_;
}

QueueState* QueueState::current() {
  return tInnermost == nullptr ? nullptr : &tInnermost->queue_;
}

bool QueueState::isRunningHere() const {
  for (const Running* running = tInnermost; running != nullptr; running = running->outer_) {
    if (&running->queue_ == this) return true;
  }
  return false;
}

/// The queues of the process, for the child of a fork.
struct QueueState::Registry {
  std::mutex mutex;
  std::set<QueueState*> queues;
};

QueueState::Registry& QueueState::registry() {
  static Registry& registry = []() -> Registry& {
    auto& made = *new Registry;
    callAroundFork([] { QueueState::registry().mutex.lock(); },
                   [] { QueueState::registry().mutex.unlock(); },
                   [] {
                     Registry& known = QueueState::registry();
                     for (QueueState* queue : known.queues) queue->forgetAfterFork();
                     known.mutex.unlock();
                   });
    return made;
  }();
  return registry;
}

QueueState::QueueState(std::string_view label) : label_(label) {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  known.queues.insert(this);
}

QueueState::~QueueState() {
  Registry& known = registry();
  const std::lock_guard lock(known.mutex);
  known.queues.erase(this);
}

void QueueState::forgetAfterFork() {
  // A thread that is not here any more may have held them.
  new (&mutex_) std::mutex;
  new (&specificsMutex_) std::mutex;
  new (&awake_) std::condition_variable;
  pushed_ = nullptr;
  ready_ = nullptr;
  isPartlyDrained_ = false;
  isBatchOpen_ = false;
  isPauseWanted_ = false;
  owner_ = Owner::kFree;
  worker_ = Worker::kNone;
}

void QueueState::push(QueueWork& work) {
  QueueWork* newest = pushed_.load(std::memory_order_relaxed);
  do {
    work.next_ = newest;
  } while (!pushed_.compare_exchange_weak(newest, &work, std::memory_order_seq_cst,
                                          std::memory_order_relaxed));
  // A worker that is about to sleep says so before it looks for the last time, so one of the two
  // sees the other. Work that lies there already has had its waking.
  if (newest == nullptr) wake(!lingers_);
}

void QueueState::hurry() {
  wake(true);
}

void QueueState::wake(bool evenLingering) {
  const Worker worker = worker_.load(std::memory_order_seq_cst);
  if (worker == Worker::kAwake || (worker == Worker::kLingering && !evenLingering)) return;
  std::unique_lock lock(mutex_);
  ++signals_;
  if (worker_.load(std::memory_order_relaxed) != Worker::kNone) {
    awake_.notify_one();
  } else if (!startWorker()) {
    // The system gives no further thread. Work must not be lost, so it is done here and now.
    lock.unlock();
    std::uint64_t knownLoan = 0;
    takeTurn(knownLoan);
  }
}

bool QueueState::startWorker() {
  try {
    std::thread([self = shared_from_this()] { self->work(); }).detach();
  } catch (const std::system_error&) {
    return false;
  }
  worker_.store(Worker::kAwake, std::memory_order_relaxed);
  return true;
}

bool QueueState::tryOwn() {
  if (hasPending()) return false;
  auto expected = Owner::kFree;
  if (!owner_.compare_exchange_strong(expected, Owner::kOwned, std::memory_order_seq_cst)) {
    return false;
  }
  // What was pushed meanwhile came first.
  if (!hasPending()) return true;
  release();
  return false;
}

void QueueState::release() {
  owner_.store(Owner::kFree, std::memory_order_seq_cst);
  if (pushed_.load(std::memory_order_seq_cst) != nullptr || isPartlyDrained_) wake(true);
}

bool QueueState::ownBetweenWork() {
  constexpr std::chrono::seconds kPatience(1);
  const auto end = SteadyClock::now() + kPatience;
  isPauseWanted_ = true;
  auto expected = Owner::kFree;
  while (!owner_.compare_exchange_strong(expected, Owner::kOwned) && SteadyClock::now() < end) {
    expected = Owner::kFree;
    std::this_thread::yield();
  }
  isPauseWanted_ = false;
  return expected == Owner::kFree;
}

void QueueState::lend(QueueWork& loan) {
  loan_ = &loan;
  loans_.store(loans_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
  owner_.store(Owner::kLent, std::memory_order_seq_cst);
  const bool isPending = pushed_.load(std::memory_order_seq_cst) != nullptr;
  wake(isPending);
}

bool QueueState::takeBack() {
  auto expected = Owner::kLent;
  return owner_.compare_exchange_strong(expected, Owner::kOwned, std::memory_order_acquire);
}

void QueueState::close() {
  std::lock_guard lock(mutex_);
  isClosed_ = true;
  ++signals_;
  awake_.notify_one();
}

void QueueState::work() {
  nameThisThread(label_);
  leaveSignalsToOtherThreads();
  makeThisThreadsTimersPrecise();
  std::uint64_t knownLoan = 0;
  while (waitForWork(takeTurn(knownLoan))) {
  }
}

/// Runs what there is to run.
QueueState::Turn QueueState::takeTurn(std::uint64_t& knownLoan) {
  Owner owner = owner_.load(std::memory_order_seq_cst);
  const std::uint64_t loan = loans_.load(std::memory_order_relaxed);
  const bool isSameLoan = loan == std::exchange(knownLoan, loan);
  const bool isWanted = owner != Owner::kOwned && !isPauseWanted_.load(std::memory_order_relaxed) &&
                        (hasPending() || (owner == Owner::kLent && isSameLoan));
  const bool isLent = owner == Owner::kLent;
  if (!isWanted || !owner_.compare_exchange_strong(owner, Owner::kOwned)) {
    return isSameLoan ? Turn::kNothing : Turn::kWatched;
  }
  if (isLent) {
    const Running running(*this);
    loan_->run();
  }
  drain();
  release();
  return Turn::kTaken;
}

void QueueState::drain() {
  const Running running(*this);
  isPartlyDrained_.store(false, std::memory_order_relaxed);
  for (;;) {
    if (isPauseWanted_.load(std::memory_order_relaxed)) {
      if (isBatchOpen_) endBatch();
      isPartlyDrained_ = ready_ != nullptr;
      return;
    }
    if (ready_ == nullptr) ready_ = takePushed();
    if (ready_ == nullptr) {
      if (!isBatchOpen_) return;
      endBatch();
      if (hasPending()) pauseBriefly(kGatheringRounds);
      continue;
    }
    QueueWork& work = *ready_;
    ready_ = work.next_;
    __builtin_prefetch(ready_);
    if (work.joinsBatch()) {
      isBatchOpen_ = true;
    } else if (isBatchOpen_) {
      endBatch();
    }
    work.run();
  }
}

QueueWork* QueueState::takePushed() {
  if (pushed_.load(std::memory_order_relaxed) == nullptr) return nullptr;
  QueueWork* newest = pushed_.exchange(nullptr, std::memory_order_seq_cst);
  QueueWork* oldest = nullptr;
  while (newest != nullptr) {
    QueueWork* const next = newest->next_;
    newest->next_ = oldest;
    oldest = newest;
    newest = next;
  }
  return oldest;
}

void QueueState::endBatch() {
  isBatchOpen_ = false;
  batchEnd_();
}

/// Returns when there may be something to do; false when the worker is to end.
bool QueueState::waitForWork(Turn last) {
  thread_local SteadyClock::time_point lingersUntil;
  const auto mayTakeTurn = [this] {
    return hasPending() && owner_.load(std::memory_order_seq_cst) != Owner::kOwned;
  };
  if (last == Turn::kTaken && spinUntil(mayTakeTurn)) return true;

  std::unique_lock lock(mutex_);
  const auto now = SteadyClock::now();
  const bool mayLinger = lingers_ || loans_.load(std::memory_order_relaxed) != 0;
  if (last != Turn::kNothing && mayLinger) lingersUntil = now + kLingering;
  const auto signalsBefore = signals_;
  const auto isSignalled = [&] { return signals_ != signalsBefore; };
  if (now < lingersUntil) {
    worker_.store(Worker::kLingering, std::memory_order_seq_cst);
    if (!mayTakeTurn()) awake_.wait_for(lock, lingers_ ? kLingeringStep : kLoanStep, isSignalled);
  } else {
    worker_.store(Worker::kAsleep, std::memory_order_seq_cst);
    const bool isLent = owner_.load(std::memory_order_seq_cst) == Owner::kLent;
    if (!mayTakeTurn() && !isLent) {
      if (isClosed_ && !hasPending()) return false;
      awake_.wait(lock, isSignalled);
    }
  }
  worker_.store(Worker::kAwake, std::memory_order_seq_cst);
  return true;
}

void QueueState::setSpecific(const void* key, void* value) {
  std::lock_guard lock(specificsMutex_);
  std::erase_if(specifics_, [key](const auto& entry) { return entry.first == key; });
  if (value != nullptr) specifics_.emplace_back(key, value);
}

void* QueueState::specific(const void* key) const {
  std::lock_guard lock(specificsMutex_);
  for (const auto& [known, value] : specifics_) {
    if (known == key) return value;
  }
  return nullptr;
}

}  // namespace kv
