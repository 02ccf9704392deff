#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "logging/DDLogFormatter.h"
#include "logging/DDLogger.h"

namespace kv {

/// The base of loggers: a serial queue of its own, and a formatter that is never exchanged while a
/// message is being formatted.
///
/// Threads    logFormatter() and setLogFormatter() any, save that reading waits for the global
///            logging queue and the logger's own and must not be called from either. The queue is
///            made, labelled loggerName(), when it is first asked for.
/// Ownership  must be held by a shared pointer.
class DDAbstractLogger : public DDLogger, public std::enable_shared_from_this<DDAbstractLogger> {
 public:
  DDAbstractLogger() = default;
  DDAbstractLogger(const DDAbstractLogger&) = delete;
  DDAbstractLogger& operator=(const DDAbstractLogger&) = delete;

  /// Does nothing.
  void logMessage(const DDLogMessage& message) override;

  /// The present formatter. Sees every setLogFormatter() of this thread.
  std::shared_ptr<DDLogFormatter> logFormatter();
  /// Takes effect after every message that is already on the global logging queue and before any
  /// later one. Null for none. Setting the present one changes nothing and tells nobody.
  void setLogFormatter(std::shared_ptr<DDLogFormatter> formatter);

  std::shared_ptr<SerialQueue> loggerQueue() override;
  /// For a logger that is not added yet: the dispatcher asks for the queue once per registration.
  /// isOnInternalLoggerQueue() does not know the new queue. With null the dispatcher makes a queue
  /// for each registration, and a change of the formatter takes effect as the global one.
  void setLoggerQueue(std::shared_ptr<SerialQueue> queue);

  /// The name of the object's class.
  std::string loggerName() const override;

  /// Whether the calling work runs as the global logging queue, or as this logger's own.
  bool isOnGlobalLoggingQueue() const;
  bool isOnInternalLoggerQueue() const;

 protected:
  /// The formatter, for work that runs as the logger's queue.
  DDLogFormatter* currentFormatter() const { return logFormatter_.get(); }

  /// Exchanges the formatter as setLogFormatter() does, at once: as the logger's queue, or while
  /// nobody else has the logger.
  void exchangeFormatter(std::shared_ptr<DDLogFormatter> formatter);

  /// Runs `work` as the logger's queue, put there by way of the global logging queue, so that it
  /// comes between the messages before and those after this call. The logger is held until then.
  void asyncBetweenMessages(std::function<void()> work);
  /// The same, and returns when it has run.
  void syncBetweenMessages(const std::function<void()>& work);

 private:
  std::shared_ptr<DDLogFormatter> logFormatter_;
  std::mutex queueMutex_;
  std::shared_ptr<SerialQueue> loggerQueue_;
  bool isQueueSet_ = false;
};

}  // namespace kv
