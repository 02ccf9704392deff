#pragma once

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "logging/DDLogMessage.h"
#include "logging/DDLogger.h"
#include "logging/LogClass.h"
#include "logging/LogLevel.h"
#include "logging/LogSite.h"
#include "platform/SerialQueue.h"

namespace kv {

class LogDispatcher;
class LogRecord;

/// The program's log: takes messages from any thread and hands each to every logger that was added
/// with a level that has the message's flag.
///
/// Messages are delivered one at a time, in the order in which they reached the global logging
/// queue; the loggers of one message run in parallel with each other, on a machine with a single
/// processor one after the other. With 1000 messages accepted and not delivered a log call waits
/// until one is: nothing is ever dropped.
///
/// At the normal end of the process (return from main, exit()) what was logged is delivered and
/// the loggers are flushed; a message that is logged later, by a static destructor, is delivered
/// before its call returns. A process that calls abort() gives the log a tenth of a second to
/// deliver what waits, unless it handles that signal itself. One that is killed or calls _exit()
/// loses what was not delivered yet. A forked child starts with no message waiting, and logs like
/// its parent.
///
/// Threads    all operations any. Never from a signal handler: they allocate and lock. Operations
///            that wait (a synchronous log call, allLoggers(), flushLog()) must not be called from
///            work that runs as the global logging queue or as a logger's queue.
/// Ownership  holds the loggers that were added.
/// Errors     null loggers and null formats are ignored; a failure of a logger is its own affair.
///
/// Programs log with the macros of Log.h.
class DDLog {
 public:
  DDLog() = delete;

  /// What a log call says besides its text. File and function are copied; null shows as "(null)".
  struct Site {
    std::uint64_t level = 0;
    std::uint64_t flag = 0;
    std::int64_t context = 0;
    const char* file = "";
    const char* function = "";
    std::uint64_t line = 0;
    LogTag tag = nullptr;
  };
  struct Entry {
    LogText message;
    std::uint64_t level = 0;
    std::uint64_t flag = 0;
    std::int64_t context = 0;
    const char* file = "";
    const char* function = "";
    std::uint64_t line = 0;
    LogTag tag = nullptr;
  };

  /// The global logging queue: runs with a non-null value for this key, the key itself.
  static const void* const GlobalLoggingQueueIdentityKey;  // NOLINT(readability-identifier-naming)
  static const std::shared_ptr<SerialQueue>& loggingQueue();

  /// For every message, or for those whose flag `level` has. A logger that is added twice receives
  /// each message twice. It receives what is logged after this call.
  static void addLogger(std::shared_ptr<DDLogger> logger);
  static void addLogger_withLevel(std::shared_ptr<DDLogger> logger, std::uint64_t level);
  /// Takes back one registration of `logger`, which is told a little later on its own queue:
  /// flushLog() does not wait for that.
  static void removeLogger(std::shared_ptr<DDLogger> logger);
  static void removeAllLoggers();
  /// In the order in which they were added.
  static std::vector<std::shared_ptr<DDLogger>> allLoggers();

  /// Logs a text formatted by fmt, checked at compile time.
  template <class... Arguments>
  static void log(bool asynchronous, const Site& site, fmt::format_string<Arguments...> format,
                  Arguments&&... arguments) {
    logFormatted(asynchronous, site, format, fmt::make_format_args(arguments...));
  }
  /// The same with arguments that were gathered before. A format that does not fit them is logged
  /// as it stands, with the fault in front; null logs nothing.
  static void log_args(bool asynchronous, const Site& site, const char* format,
                       fmt::format_args arguments);

  /// Logs a finished text, or a message of the caller's making.
  static void log(bool asynchronous, const Entry& entry);
  static void log_message(bool asynchronous, std::shared_ptr<const DDLogMessage> message);

  /// A message that is being made, and where its text begins.
  struct Draft {
    LogRecord& record;
    char* text;
  };

  /// For the macros: a finished text, which is copied.
  static void logAtSite(bool asynchronous, const LogSite& site, std::uint64_t level,
                        std::uint64_t flag, std::string_view text);
  /// Worth a call before the text of a message is made: what other processors have of the log is
  /// fetched meanwhile.
  static void expectMessage();
  /// For the macros: a message whose text is made in its place, of `textBytes` bytes. Who begins
  /// one ends it, without logging or throwing in between.
  static Draft beginAtSite(const LogSite& site, std::uint64_t level, std::uint64_t flag,
                           std::size_t textBytes);
  static void end(Draft draft, bool asynchronous);

  /// Returns when everything that was logged before is delivered, and every logger has flushed.
  static void flushLog();
  /// flushLog(), for programs that are told of their end. A normal end flushes by itself.
  static void applicationWillTerminate(const void* ignored = nullptr);

  // --- Classes that have a log level of their own; see LogClass.h ---

  static void registerClass(const LogClass& type) { LogClasses::add(type); }
  static bool isRegisteredClass(const LogClass& type) { return type.isComplete(); }
  static std::vector<LogClass> registeredClasses() { return LogClasses::registered(); }
  static std::vector<std::string> registeredClassNames();
  static std::uint64_t levelForClass(const LogClass& type);
  static std::uint64_t levelForClassWithName(std::string_view name);
  static void setLevel_forClass(std::uint64_t level, const LogClass& type);
  static void setLevel_forClassWithName(std::uint64_t level, std::string_view name);

  /// The same for a C++ class.
  template <class Type>
  static void registerClass(std::string_view name) {
    registerClass(LogClass::of<Type>(name));
  }
  template <class Type>
  static bool isRegisteredClass() {
    return isRegisteredClass(LogClass::of<Type>({}));
  }
  template <class Type>
  static std::uint64_t levelForClass() {
    return levelForClass(LogClass::of<Type>({}));
  }
  template <class Type>
  static void setLevel_forClass(std::uint64_t level) {
    setLevel_forClass(level, LogClass::of<Type>({}));
  }

 private:
  static void logFormatted(bool asynchronous, const Site& site, fmt::string_view format,
                           fmt::format_args arguments);
  static LogDispatcher& dispatcher();
  static LogDispatcher& madeDispatcher();
};

}  // namespace kv
