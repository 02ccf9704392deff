#pragma once

#include "logging/DDLogMessage.h"
#include "logging/LogText.h"

namespace kv {

class DDLogger;

/// Turns a message into the text of one log line.
///
/// Threads    the queue of the logger that it is attached to; one that is attached to several
///            loggers is called on several threads at once.
/// Ownership  held by its loggers.
/// Errors     an exception that leaves a formatter ends the program.
class DDLogFormatter {
 public:
  virtual ~DDLogFormatter() = default;

  /// The line, without a line end; null when the message is not to be written.
  virtual LogText formatLogMessage(const DDLogMessage& message) = 0;

  /// Optional: `logger` uses this formatter from now on, or no longer.
  virtual void didAddToLogger(DDLogger& /*logger*/) {}
  virtual void willRemoveFromLogger(DDLogger& /*logger*/) {}
};

}  // namespace kv
