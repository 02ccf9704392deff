#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "logging/DDLogMessage.h"
#include "logging/DDLogger.h"
#include "logging/DDLoggerNode.h"
#include "logging/LogLane.h"
#include "logging/LogRecord.h"
#include "platform/Clock.h"
#include "platform/Group.h"
#include "platform/ProcessFacts.h"
#include "platform/Semaphore.h"
#include "platform/SerialQueue.h"
#include "platform/SystemSeams.h"

namespace kv {

/// What stands behind DDLog: takes messages from any thread, and hands each to every logger whose
/// level lets its flag through.
///
/// Promises, each with a test:
///   (1) one message at a time, in the order in which they reached the global queue;
///   (2) the loggers of a message run in parallel with each other, each as its own queue;
///   (3) a synchronous call returns when every logger is done with its message;
///   (4) at most `bound` messages are accepted and not delivered: the next caller waits;
///   (5) what is put on a logger's queue comes after the messages that were delivered before.
///
/// How a message gets through at the price of a few stores:
///
/// - Messages are recycled records, which are their own places in the global queue.
/// - The thread that drains the global queue owns the queues of the loggers too, and runs a lone
///   logger itself. Of several it runs one, and lends the others' queues meanwhile with the
///   message as the loan; it takes back what no worker has taken, and runs it. So a fast logger
///   costs no hand-over, and a slow one holds up nobody.
/// - A logger may hold its lines back (HeldLines). Its queue stays with the drainer as long as
///   lines are held, so nothing can come between; the places of the messages are given back after
///   the lines are written.
///
/// Threads    the public members any; those that begin with `lt_` as the global queue.
/// Ownership  holds its loggers. The destructor returns when all that was logged is delivered;
///            the program's own dispatcher is never destroyed.
/// Errors     none; null loggers are ignored.
class LogDispatcher {
 public:
  struct Environment {
    std::shared_ptr<Clock> clock = quickClock();
    unsigned processors = ProcessFacts::current().processors;
    std::int64_t bound = 1000;
  };

  explicit LogDispatcher(Environment environment);
  LogDispatcher() : LogDispatcher(Environment()) {}
  ~LogDispatcher();
  LogDispatcher(const LogDispatcher&) = delete;
  LogDispatcher& operator=(const LogDispatcher&) = delete;

  const std::shared_ptr<SerialQueue>& loggingQueue() const { return loggingQueue_; }

  void addLogger_withLevel(std::shared_ptr<DDLogger> logger, std::uint64_t level);
  void removeLogger(std::shared_ptr<DDLogger> logger);
  void removeAllLoggers();
  std::vector<std::shared_ptr<DDLogger>> allLoggers();
  void flushLog();

  /// A message comes soon, as soon as its text is made: fetches what other threads had meanwhile.
  void expectRecord() const {
    queueSemaphore_.expectWait();
    loggingQueue_->state().expectPush();
  }
  /// A blank record with the moment and the thread of this call, to be filled and given to
  /// queueRecord().
  LogRecord& beginRecord();
  void queueRecord(LogRecord& record, bool asynchronously);
  void queueLogMessage_asynchronously(std::shared_ptr<const DDLogMessage> message,
                                      bool asynchronously);

  /// Flushes. From now on every message is delivered before its call returns: the process ends, and
  /// nobody would wait for what is put off.
  void processEnds();

  /// The very last of the process, behind all static destructors: no thread is in the middle of a
  /// line when the system takes them all. Who logs from now on waits for that end, save the calling
  /// thread.
  void standStill();

  /// Before abort(): gives the drainer a while to deliver what waits. Safe in a signal handler.
  void awaitDeliveries() const;

  /// Around a fork: no message is under way, and no logger works. In the child the messages that
  /// waited are the parent's. When a logger does not come to an end in time, or forks itself, the
  /// child logs nothing.
  void prepareFork();
  void resumeAfterFork();
  void restartInChild();

  /// For LogRecord: one message of the queue, whose place is given back in time.
  void deliverQueued(const DDLogMessage& message);

 private:
  class QueuedMessage;

  void lt_addLogger_level(std::shared_ptr<DDLogger> logger, std::uint64_t level);
  void lt_removeLogger(const DDLogger& logger);
  void lt_removeAllLoggers();
  std::vector<std::shared_ptr<DDLogger>> lt_allLoggers() const;
  void lt_log(const DDLogMessage& message);
  bool lt_flush();

  void deliverNow(const DDLogMessage& message);
  void deliverAlone(LogLane& lane, const DDLogMessage& message);
  /// One processor has them all.
  void deliverInTurn(const DDLogMessage& message);
  void deliverInParallel(const DDLogMessage& message);
  bool own(LogLane& lane);
  void awaitGroup();
  void endBatch();
  void writeHeldLines();
  bool isHoldingLines() const;
  void giveUp(LogLane& lane);
  void releaseLanes();
  std::shared_ptr<SerialQueue> loggerQueueRunningHere();
  bool flushAtEnd();
  void flushWithEchoes();
  void endFromWithin();
  bool isPutOff(bool asynchronously) {
    return isTerminating_.load(std::memory_order_seq_cst) ? isPutOffAtEnd() : asynchronously;
  }
  bool isPutOffAtEnd();
  void settleAtEnd();
  void deliverEchoes();
  /// What was asked of the log before, loggers to be added above all, is not to be missing in the
  /// child of a fork.
  void awaitEarlierWork();
  bool isAtRest();
  bool holdQueues(std::vector<QueueState*>& held);
  void moveOn();
  LogLane& laneOf(const std::shared_ptr<SerialQueue>& queue);

  const Environment environment_;
  const std::shared_ptr<SerialQueue> loggingQueue_;
  Group loggingGroup_;
  Semaphore queueSemaphore_;
  std::atomic<bool> isTerminating_{false};
  std::atomic<bool> isSilent_{false};
  /// The thread that ends the process, once it has flushed.
  std::atomic<std::thread::id> endingThread_{};
  /// The thread behind standStill(), and the queues that it holds.
  std::atomic<std::thread::id> standingThread_{};
  std::vector<QueueState*> heldAtEnd_;
  /// The work that ends the process runs as the global queue.
  bool isEndedFromWithin_ = false;
  /// And what was logged since is being delivered.
  bool isDrainingFromWithin_ = false;

  // As the global queue only, save that the end of the process looks at the lanes too.
  std::vector<std::shared_ptr<DDLoggerNode>> loggers_;
  std::mutex lanesMutex_;
  std::vector<std::unique_ptr<LogLane>> lanes_;
  std::vector<LogLane*> hit_;
  /// Whether the present message may leave lines held back: others follow it.
  bool mayHold_ = false;
  /// The queues that are held for a fork.
  std::vector<QueueState*> held_;
  bool isQuietForFork_ = false;
  /// Places of messages that are delivered, save for lines held back.
  std::int64_t owedPlaces_ = 0;
};

}  // namespace kv
