#include "logging/DDLog.h"

#include <atomic>
#include <cstdlib>
#include <exception>
#include <utility>

#include "logging/LogDispatcher.h"
#include "platform/AbortHandler.h"
#include "platform/ForkHandlers.h"
#include "platform/SystemSeams.h"
#include "platform/TimerSource.h"

namespace kv {
namespace {

constinit char gIdentity = 0;

/// The program's dispatcher, once there is one.
constinit std::atomic<LogDispatcher*> gDispatcher{nullptr};

/// The earliest that a program may ask for is what runs last, behind all destructors.
[[gnu::destructor(101)]] void standStillAtTheVeryEnd() {
  if (LogDispatcher* const made = gDispatcher) made->standStill();
}

std::string_view orNull(const char* text) {
  return text == nullptr ? "(null)" : text;
}

void fill(LogRecord& record, fmt::string_view format, fmt::format_args arguments) {
  fmt::memory_buffer text;
  try {
    fmt::vformat_to(fmt::appender(text), format, arguments);
  } catch (const std::exception& fault) {
    text.clear();
    fmt::format_to(fmt::appender(text), "({}) {}", fault.what(), format);
  }
  record.setText({text.data(), text.size()});
}

}  // namespace

const void* const DDLog::GlobalLoggingQueueIdentityKey = &gIdentity;

LogDispatcher& DDLog::dispatcher() {
  LogDispatcher* const made = gDispatcher.load(std::memory_order_acquire);
  return made != nullptr ? *made : madeDispatcher();
}

[[gnu::noinline]] LogDispatcher& DDLog::madeDispatcher() {
  // Never destroyed, so that the very last message finds it.
  static LogDispatcher& shared = []() -> LogDispatcher& {
    auto& made = *new LogDispatcher;
    std::atexit([] { dispatcher().processEnds(); });
    // Before a fork the handlers added last run first. Loggers must come to rest before the timers
    // and watches are locked, which they use.
    timerSources();
    systemFileWatcher();
    callBeforeAbort([] { dispatcher().awaitDeliveries(); });
    callAroundFork([] { dispatcher().prepareFork(); }, [] { dispatcher().resumeAfterFork(); },
                   [] { dispatcher().restartInChild(); });
    gDispatcher.store(&made, std::memory_order_release);
    return made;
  }();
  return shared;
}

const std::shared_ptr<SerialQueue>& DDLog::loggingQueue() {
  return dispatcher().loggingQueue();
}

void DDLog::addLogger(std::shared_ptr<DDLogger> logger) {
  addLogger_withLevel(std::move(logger), LogLevel::kAll);
}

void DDLog::addLogger_withLevel(std::shared_ptr<DDLogger> logger, std::uint64_t level) {
  dispatcher().addLogger_withLevel(std::move(logger), level);
}

void DDLog::removeLogger(std::shared_ptr<DDLogger> logger) {
  dispatcher().removeLogger(std::move(logger));
}

void DDLog::removeAllLoggers() {
  dispatcher().removeAllLoggers();
}

std::vector<std::shared_ptr<DDLogger>> DDLog::allLoggers() {
  return dispatcher().allLoggers();
}

void DDLog::log_args(bool asynchronous, const Site& site, const char* format,
                     fmt::format_args arguments) {
  if (format != nullptr) logFormatted(asynchronous, site, format, arguments);
}

void DDLog::logFormatted(bool asynchronous, const Site& site, fmt::string_view format,
                         fmt::format_args arguments) {
  LogDispatcher& shared = dispatcher();
  shared.expectRecord();
  LogRecord& record = shared.beginRecord();
  record.setSite(orNull(site.file), orNull(site.function), site.line);
  record.setKind(site.level, site.flag, site.context, site.tag);
  fill(record, format, arguments);
  shared.queueRecord(record, asynchronous);
}

void DDLog::log(bool asynchronous, const Entry& entry) {
  LogDispatcher& shared = dispatcher();
  LogRecord& record = shared.beginRecord();
  record.setSite(orNull(entry.file), orNull(entry.function), entry.line);
  record.setKind(entry.level, entry.flag, entry.context, entry.tag);
  record.setText(entry.message);
  shared.queueRecord(record, asynchronous);
}

void DDLog::log_message(bool asynchronous, std::shared_ptr<const DDLogMessage> message) {
  dispatcher().queueLogMessage_asynchronously(std::move(message), asynchronous);
}

void DDLog::expectMessage() {
  dispatcher().expectRecord();
}

void DDLog::logAtSite(bool asynchronous, const LogSite& site, std::uint64_t level,
                      std::uint64_t flag, std::string_view text) {
  LogDispatcher& shared = dispatcher();
  LogRecord& record = shared.beginRecord();
  record.setSite(site);
  record.setKind(level, flag, 0, nullptr);
  record.setText(text);
  shared.queueRecord(record, asynchronous);
}

DDLog::Draft DDLog::beginAtSite(const LogSite& site, std::uint64_t level, std::uint64_t flag,
                                std::size_t textBytes) {
  LogDispatcher& shared = dispatcher();
  shared.expectRecord();
  LogRecord& record = shared.beginRecord();
  record.setSite(site);
  record.setKind(level, flag, 0, nullptr);
  return {record, record.setTextOf(textBytes)};
}

void DDLog::end(Draft draft, bool asynchronous) {
  dispatcher().queueRecord(draft.record, asynchronous);
}

void DDLog::flushLog() {
  dispatcher().flushLog();
}

void DDLog::applicationWillTerminate(const void* /*ignored*/) {
  flushLog();
}

std::vector<std::string> DDLog::registeredClassNames() {
  std::vector<std::string> names;
  for (const LogClass& type : registeredClasses()) names.push_back(type.name);
  return names;
}

std::uint64_t DDLog::levelForClass(const LogClass& type) {
  return type.isComplete() ? type.level() : LogLevel::kAll;
}

std::uint64_t DDLog::levelForClassWithName(std::string_view name) {
  return levelForClass(LogClasses::find(name));
}

void DDLog::setLevel_forClass(std::uint64_t level, const LogClass& type) {
  if (type.isComplete()) type.setLevel(level);
}

void DDLog::setLevel_forClassWithName(std::uint64_t level, std::string_view name) {
  setLevel_forClass(level, LogClasses::find(name));
}

}  // namespace kv
