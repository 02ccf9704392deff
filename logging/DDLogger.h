#pragma once

#include <memory>
#include <string>

#include "logging/DDLogMessage.h"
#include "platform/SerialQueue.h"

namespace kv {

class HeldLines;

/// What the dispatcher calls on a logger. Only logMessage() is required; the others do nothing by
/// default.
///
/// Threads    each call is made as the logger's own queue: loggerQueue(), or one that the
///            dispatcher makes when that yields none, for each registration. loggerQueue() is asked
///            once per registration. A logger may log asynchronously. Logging synchronously, or
///            asking the dispatcher for anything that waits, from within a call would wait for
///            itself.
/// Ownership  held by the dispatcher from DDLog::addLogger() until its removal has run.
/// Errors     an exception that leaves a call ends the program.
class DDLogger {
 public:
  virtual ~DDLogger() = default;

  /// One message. The dispatcher's records are used again: who needs a message longer keeps
  /// `message.shared_from_this()` or a copy.
  virtual void logMessage(const DDLogMessage& message) = 0;

  virtual std::shared_ptr<SerialQueue> loggerQueue() { return nullptr; }
  /// Labels the queue that the dispatcher makes.
  virtual std::string loggerName() const { return {}; }
  virtual void didAddLogger() {}
  virtual void willRemoveLogger() {}
  /// Brings what the logger keeps back to where it belongs.
  virtual void flush() {}

  /// The lines that this logger may keep back while a backlog is being drained; null for a logger
  /// that never does. Asked once per registration.
  virtual HeldLines* heldLines() { return nullptr; }
};

/// Lines that a logger keeps back while more messages wait, in order to write them together.
///
/// Nobody can tell from outside, save by the number of writes: the dispatcher writes them when no
/// message waits, at kMostLines or kMostBytes, before anything else runs as the logger's queue,
/// before it waits for another logger, and before it lets go of the messages' places.
///
/// Threads    as the logger's queue.
class HeldLines {
 public:
  static constexpr std::size_t kMostLines = 256;
  static constexpr std::size_t kMostBytes = 64 * 1024;

  /// Whether logMessage() may hold its line back from now on.
  virtual void allowHolding(bool allowed) = 0;
  /// Lines held now.
  virtual std::size_t count() const = 0;
  /// Writes them. Errors are the logger's affair.
  virtual void write() = 0;

 protected:
  ~HeldLines() = default;
};

}  // namespace kv
