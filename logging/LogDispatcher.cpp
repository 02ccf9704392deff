#include "logging/LogDispatcher.h"

#include <algorithm>
#include <chrono>
#include <future>
#include <mutex>
#include <new>
#include <thread>
#include <utility>

#include "logging/DDLog.h"
#include "platform/AbortHandler.h"

namespace kv {
namespace {

/// Places that may be owed at most before held lines are written: the callers need them.
constexpr std::int64_t kMostOwed = HeldLines::kMostLines;

}  // namespace

/// A caller's own message on its way through the global queue.
class LogDispatcher::QueuedMessage final : public QueueWork {
 public:
  QueuedMessage(LogDispatcher& dispatcher, std::shared_ptr<const DDLogMessage> message)
      : dispatcher_(dispatcher), message_(std::move(message)) {}
  void run() override {
    dispatcher_.deliverQueued(*message_);
    delete this;
  }
  bool joinsBatch() const override { return true; }

 private:
  LogDispatcher& dispatcher_;
  std::shared_ptr<const DDLogMessage> message_;
};

LogDispatcher::LogDispatcher(Environment environment)
    : environment_(std::move(environment)),
      loggingQueue_(std::make_shared<SerialQueue>("kelvara.logging")),
      queueSemaphore_(environment_.bound) {
  loggingQueue_->setSpecific(DDLog::GlobalLoggingQueueIdentityKey,
                             const_cast<void*>(DDLog::GlobalLoggingQueueIdentityKey));
  loggingQueue_->state().linger();
  loggingQueue_->state().setBatchEnd([this] { endBatch(); });
  constexpr std::size_t kUsualLoggers = 4;
  loggers_.reserve(kUsualLoggers);
}

LogDispatcher::~LogDispatcher() {
  loggingQueue_->sync([this] { lt_removeAllLoggers(); });
}

void LogDispatcher::addLogger_withLevel(std::shared_ptr<DDLogger> logger, std::uint64_t level) {
  if (logger == nullptr) return;
  loggingQueue_->async(
      [this, logger = std::move(logger), level] { lt_addLogger_level(logger, level); });
}

void LogDispatcher::removeLogger(std::shared_ptr<DDLogger> logger) {
  if (logger == nullptr) return;
  loggingQueue_->async([this, logger = std::move(logger)] { lt_removeLogger(*logger); });
}

void LogDispatcher::removeAllLoggers() {
  loggingQueue_->async([this] { lt_removeAllLoggers(); });
}

std::vector<std::shared_ptr<DDLogger>> LogDispatcher::allLoggers() {
  std::vector<std::shared_ptr<DDLogger>> loggers;
  loggingQueue_->sync([&] { loggers = lt_allLoggers(); });
  return loggers;
}

void LogDispatcher::flushLog() {
  moveOn();
  loggingQueue_->sync([this] { lt_flush(); });
}

// --- Taking messages ---

LogRecord& LogDispatcher::beginRecord() {
  LogRecord& record = LogRecord::take();
  record.setMoment(environment_.clock->now());
  record.setDispatcher(*this);
  return record;
}

void LogDispatcher::queueRecord(LogRecord& record, bool asynchronously) {
  if (isSilent_.load(std::memory_order_relaxed)) {
    LogRecord::recycle(record);
    return;
  }
  // A worker that looks by itself now and then must not keep a caller waiting for a place.
  queueSemaphore_.wait([this] { loggingQueue_->state().hurry(); });
  if (isPutOff(asynchronously)) {
    loggingQueue_->state().push(record);
    settleAtEnd();
    return;
  }
  loggingQueue_->sync([&] { lt_log(record); });
  LogRecord::putBack(record);
  deliverEchoes();
}

void LogDispatcher::queueLogMessage_asynchronously(std::shared_ptr<const DDLogMessage> message,
                                                   bool asynchronously) {
  if (message == nullptr || isSilent_) return;
  queueSemaphore_.wait([this] { loggingQueue_->state().hurry(); });
  if (isPutOff(asynchronously)) {
    loggingQueue_->state().push(*new QueuedMessage(*this, std::move(message)));
    settleAtEnd();
    return;
  }
  loggingQueue_->sync([&] { lt_log(*message); });
  deliverEchoes();
}

// --- Delivering them ---

/// Inline, like the two that follow, for the sake of those who wait: see SerialQueue::sync().
[[gnu::always_inline]] inline void LogDispatcher::deliverAlone(LogLane& lane,
                                                               const DDLogMessage& message) {
  if (own(lane)) {
    const QueueState::Running running(lane.state());
    lane.deliver(message);
  } else {
    lane.push(message);
    awaitGroup();
  }
}

[[gnu::always_inline]] inline void LogDispatcher::deliverNow(const DDLogMessage& message) {
  hit_.clear();
  for (const auto& lane : lanes_) {
    if (lane->wants(message.flag())) hit_.push_back(lane.get());
  }
  if (hit_.size() == 1) {
    deliverAlone(*hit_.front(), message);
  } else if (hit_.size() > 1 && environment_.processors >= 2) {
    deliverInParallel(message);
  } else if (hit_.size() > 1) {
    deliverInTurn(message);
  }
}

[[gnu::always_inline]] inline void LogDispatcher::lt_log(const DDLogMessage& message) {
  deliverNow(message);
  releaseLanes();
  queueSemaphore_.signal();
}

void LogDispatcher::deliverQueued(const DDLogMessage& message) {
  mayHold_ = true;
  deliverNow(message);
  ++owedPlaces_;
  if (owedPlaces_ >= kMostOwed) writeHeldLines();
  if (isHoldingLines()) return;
  queueSemaphore_.signal(std::exchange(owedPlaces_, 0));
}

void LogDispatcher::deliverInTurn(const DDLogMessage& message) {
  // The order is that of the registrations, also of those that share a queue.
  for (const auto& node : loggers_) {
    LogLane& lane = laneOf(node->loggerQueue());
    if ((node->level() & message.flag()) == 0 || lane.isMuted()) continue;
    if (own(lane)) {
      const QueueState::Running running(lane.state());
      lane.deliver(*node, message);
    } else {
      writeHeldLines();
      node->loggerQueue()->sync([&] { lane.deliver(*node, message); });
    }
  }
}

void LogDispatcher::deliverInParallel(const DDLogMessage& message) {
  // Who is busy with other work gets the message behind that.
  const auto busy =
      std::stable_partition(hit_.begin(), hit_.end(), [this](LogLane* lane) { return own(*lane); });
  std::for_each(busy, hit_.end(), [&](LogLane* lane) { lane->push(message); });
  hit_.erase(busy, hit_.end());

  for (std::size_t index = 0; index + 1 < hit_.size(); ++index) hit_[index]->lend(&message);
  for (std::size_t left = hit_.size(); left > 0; --left) {
    LogLane& lane = *hit_[left - 1];
    if (!lane.takeBack()) continue;
    {
      const QueueState::Running running(lane.state());
      lane.deliver(message);
    }
    // While the others run, what this one holds and what waits for it is at hand.
    if (left > 1) lane.lend(nullptr);
  }
  for (LogLane* lane : hit_) lane->takeBack();
  awaitGroup();
}

void LogDispatcher::awaitGroup() {
  if (loggingGroup_.isEmpty()) return;
  writeHeldLines();
  loggingGroup_.wait();
}

bool LogDispatcher::own(LogLane& lane) {
  if (lane.isOwned) {
    if (!lane.state().hasPending()) return true;
    // What was put on the queue comes before this message, and after those that were delivered.
    giveUp(lane);
    return false;
  }
  if (!lane.state().tryOwn()) return false;
  lane.isOwned = true;
  lane.allowHolding(mayHold_);
  return true;
}

bool LogDispatcher::isHoldingLines() const {
  return std::any_of(lanes_.begin(), lanes_.end(),
                     [](const auto& lane) { return lane->isOwned && lane->isHolding(); });
}

void LogDispatcher::writeHeldLines() {
  for (const auto& lane : lanes_) {
    if (!lane->isOwned) continue;
    const QueueState::Running running(lane->state());
    lane->writeHeldLines();
  }
}

/// Lets go of a queue that the dispatcher owns, with no line left behind.
void LogDispatcher::giveUp(LogLane& lane) {
  {
    const QueueState::Running running(lane.state());
    lane.writeHeldLines();
  }
  lane.allowHolding(false);
  lane.isOwned = false;
  lane.state().release();
}

void LogDispatcher::releaseLanes() {
  for (const auto& lane : lanes_) {
    if (lane->isOwned) giveUp(*lane);
  }
}

void LogDispatcher::endBatch() {
  releaseLanes();
  mayHold_ = false;
  if (owedPlaces_ > 0) queueSemaphore_.signal(std::exchange(owedPlaces_, 0));
}

// --- The list of loggers ---

LogLane& LogDispatcher::laneOf(const std::shared_ptr<SerialQueue>& queue) {
  const auto found = std::find_if(lanes_.begin(), lanes_.end(),
                                  [&](const auto& lane) { return lane->queue() == queue; });
  if (found != lanes_.end()) return **found;
  const std::lock_guard lock(lanesMutex_);
  return *lanes_.emplace_back(std::make_unique<LogLane>(queue, loggingGroup_));
}

void LogDispatcher::lt_addLogger_level(std::shared_ptr<DDLogger> logger, std::uint64_t level) {
  auto queue = logger->loggerQueue();
  if (queue == nullptr) queue = std::make_shared<SerialQueue>(logger->loggerName());
  const auto node = DDLoggerNode::nodeWithLogger_loggerQueue_level(logger, queue, level);
  loggers_.push_back(node);
  laneOf(queue).add(node);
  queue->async([logger] { logger->didAddLogger(); });
}

void LogDispatcher::lt_removeLogger(const DDLogger& logger) {
  const auto found = std::find_if(loggers_.begin(), loggers_.end(), [&](const auto& node) {
    return node->logger().get() == &logger;
  });
  if (found == loggers_.end()) return;
  const auto node = *found;
  node->loggerQueue()->async([removed = node->logger()] { removed->willRemoveLogger(); });
  loggers_.erase(found);
  laneOf(node->loggerQueue()).remove(*node);
  const std::lock_guard lock(lanesMutex_);
  std::erase_if(lanes_, [](const auto& lane) { return lane->isEmpty(); });
}

void LogDispatcher::lt_removeAllLoggers() {
  for (const auto& node : loggers_) {
    node->loggerQueue()->async([logger = node->logger()] { logger->willRemoveLogger(); });
  }
  loggers_.clear();
  const std::lock_guard lock(lanesMutex_);
  lanes_.clear();
}

std::vector<std::shared_ptr<DDLogger>> LogDispatcher::lt_allLoggers() const {
  std::vector<std::shared_ptr<DDLogger>> loggers;
  loggers.reserve(loggers_.size());
  for (const auto& node : loggers_) loggers.push_back(node->logger());
  return loggers;
}

/// True when loggers have logged meanwhile, or others: those messages wait.
bool LogDispatcher::lt_flush() {
  for (const auto& node : loggers_) {
    if (laneOf(node->loggerQueue()).isMuted()) continue;
    loggingGroup_.async(*node->loggerQueue(), [logger = node->logger()] { logger->flush(); });
  }
  loggingGroup_.wait();
  return queueSemaphore_.freePlaces() < environment_.bound;
}

// --- The end of the process ---

/// Whether a message is only pushed by its caller. While the process ends that is so for work of
/// the log's queues alone, which would wait for itself. Who ends the process in the middle of a
/// message has that logger muted and can wait for the others.
bool LogDispatcher::isPutOffAtEnd() {
  moveOn();
  if (loggingQueue_->state().isRunningHere()) return true;
  const std::lock_guard lock(lanesMutex_);
  return std::any_of(lanes_.begin(), lanes_.end(), [](const auto& lane) {
    return lane->state().isRunningHere() && !lane->isMuted();
  });
}

/// After a message was pushed: returns when it is delivered if the process ends, unless the caller
/// is work of the log's queues that will return to them.
void LogDispatcher::settleAtEnd() {
  // Either the flush at the end sees what was pushed before, or we see that it has begun.
  if (!isTerminating_.load(std::memory_order_seq_cst)) return;
  if (!isPutOff(true)) {
    loggingQueue_->sync([] {});
    return;
  }
  // Static destructors log on the thread that has ended the process.
  if (std::this_thread::get_id() != endingThread_) return;
  if (isEndedFromWithin_) {
    // What loggers log meanwhile comes in its turn.
    if (std::exchange(isDrainingFromWithin_, true)) return;
    loggingQueue_->state().drainFromWithin();
    isDrainingFromWithin_ = false;
  } else if (!loggingQueue_->state().isRunningHere()) {
    endingThread_ = std::thread::id();
    flushWithEchoes();
    endingThread_ = std::this_thread::get_id();
  }
}

/// While the process ends: what loggers logged because of a message is delivered like that.
void LogDispatcher::deliverEchoes() {
  if (isTerminating_.load(std::memory_order_relaxed)) loggingQueue_->sync([] {});
}

void LogDispatcher::processEnds() {
  isTerminating_.store(true, std::memory_order_seq_cst);
  if (loggingQueue_->state().isRunningHere()) {
    endFromWithin();
  } else {
    flushWithEchoes();
  }
  endingThread_ = std::this_thread::get_id();
}

/// Flushes, and once more what loggers logged because of messages or while they were flushed.
void LogDispatcher::flushWithEchoes() {
  if (flushAtEnd()) flushAtEnd();
}

/// The logger's queue that the calling work runs as; null when there is none that anybody waits
/// for. exit() may be called by a logger in the middle of a message, which then does not return:
/// that logger is muted.
std::shared_ptr<SerialQueue> LogDispatcher::loggerQueueRunningHere() {
  const std::lock_guard lock(lanesMutex_);
  std::shared_ptr<SerialQueue> found;
  for (const auto& lane : lanes_) {
    if (!lane->state().isRunningHere()) continue;
    if (lane->isDelivering()) lane->mute();
    if (!lane->isMuted()) found = lane->queue();
  }
  return found;
}

/// The work that ends the process may occupy a logger's queue, between two messages: what the log
/// has for that logger is done from here.
/// True when there is more to flush.
bool LogDispatcher::flushAtEnd() {
  bool isMore = false;
  if (QueueState::current() == nullptr) {
    moveOn();
    loggingQueue_->sync([&] { isMore = lt_flush(); });
    return isMore;
  }
  loggerQueueRunningHere();
  std::atomic<bool> isFlushed{false};
  loggingQueue_->async([this, &isFlushed, &isMore] {
    isMore = lt_flush();
    isFlushed = true;
  });
  while (!isFlushed) {
    // Asked each time: the logger may become one of the log's only now.
    if (const auto queue = loggerQueueRunningHere()) queue->state().drainFromWithin();
    std::this_thread::yield();
  }
  return isMore;
}

/// The very work that drains the global queue ends the process: the rest of it is done from here.
/// First the message under way, which some loggers may not have yet.
void LogDispatcher::endFromWithin() {
  loggerQueueRunningHere();
  for (const auto& lane : lanes_) lane->finishLoan();
  loggingGroup_.wait();
  QueueState& queue = loggingQueue_->state();
  bool isMore = true;
  for (int time = 0; time < 2 && isMore; ++time) {  // the second for what loggers logged then
    queue.drainFromWithin();
    endBatch();
    lt_flush();
    isMore = queue.hasPending();
  }
  isEndedFromWithin_ = true;
}

void LogDispatcher::standStill() {
  if (isSilent_) return;
  holdQueues(heldAtEnd_);
  standingThread_ = std::this_thread::get_id();
}

/// What is destroyed even later may log, too.
void LogDispatcher::moveOn() {
  if (std::this_thread::get_id() != standingThread_) return;
  standingThread_ = std::thread::id();
  for (QueueState* queue : std::exchange(heldAtEnd_, {})) queue->release();
}

/// Owns the queues of the log, each between two pieces of its work. False when one of them did not
/// come to an end in time; then those before it are held.
bool LogDispatcher::holdQueues(std::vector<QueueState*>& held) {
  bool isQuiet = true;
  const auto hold = [&](QueueState& queue) {
    isQuiet = isQuiet && !queue.isRunningHere() && queue.ownBetweenWork();
    if (isQuiet) held.push_back(&queue);
  };
  hold(loggingQueue_->state());
  // With the global queue in hand nobody changes the lanes.
  for (std::size_t index = 0; isQuiet && index < lanes_.size(); ++index) {
    hold(lanes_[index]->state());
  }
  return isQuiet;
}

void LogDispatcher::awaitDeliveries() const {
  if (loggingQueue_->state().isRunningHere()) return;  // the drainer itself aborts
  constexpr int kPauses = 1000;                        // a tenth of a second
  for (int pause = 0; pause < kPauses; ++pause) {
    if (queueSemaphore_.freePlaces() >= environment_.bound) return;
    pauseInSignalHandler();
  }
}

// --- Forks ---

/// Whether nothing waits. Then no thread need be started to find that out, least of all in a child
/// that forks again on its way to another program.
bool LogDispatcher::isAtRest() {
  QueueState& queue = loggingQueue_->state();
  if (!queue.tryOwn()) return false;
  const bool isWaiting = std::any_of(lanes_.begin(), lanes_.end(),
                                     [](const auto& lane) { return lane->state().hasPending(); });
  queue.release();
  return !isWaiting;
}

void LogDispatcher::awaitEarlierWork() {
  if (QueueState::current() != nullptr) return;  // work of a queue might wait for itself
  if (isAtRest()) return;
  constexpr std::chrono::seconds kPatience(1);
  const auto passed = std::make_shared<std::promise<void>>();
  const auto isPassed = passed->get_future();
  loggingQueue_->async([this, passed] {
    for (const auto& lane : lanes_) loggingGroup_.async(*lane->queue(), [] {});
    loggingGroup_.wait();
    passed->set_value();
  });
  isPassed.wait_for(kPatience);
}

void LogDispatcher::prepareFork() {
  awaitEarlierWork();
  isQuietForFork_ = holdQueues(held_);
  LogRecord::lockPool();
}

void LogDispatcher::resumeAfterFork() {
  LogRecord::unlockPool();
  for (QueueState* queue : std::exchange(held_, {})) queue->release();
}

void LogDispatcher::restartInChild() {
  LogRecord::unlockPool();
  held_.clear();
  isSilent_ = !isQuietForFork_;
  queueSemaphore_.resetAfterFork(environment_.bound);
  loggingGroup_.resetAfterFork();
  new (&lanesMutex_) std::mutex;
  for (const auto& lane : lanes_) lane->forgetAfterFork();
  owedPlaces_ = 0;
  mayHold_ = false;
}

}  // namespace kv
