#pragma once

#include <fmt/compile.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "logging/DDLog.h"
#include "logging/PlainFormat.h"

#ifdef LOG_INFO
#error "logging/Log.h and <syslog.h> have macros of the same names: use them in different files"
#endif

/// Logs a text formatted by fmt and checked at compile time, with the place of the call:
///
///   LOG_WARN("{}: no answer for {} s", name, seconds);
///
/// Errors are delivered before the call returns, everything else is delivered later. Not for
/// signal handlers. Not in a file that includes <syslog.h>, which has macros of the same names.
///
/// A call whose flag the level KV_LOG_LEVEL does not have costs one load and one branch, and
/// evaluates no argument. KV_LOG_LEVEL is an expression that yields a level; a file or a class
/// sets its own:
///
///   static constinit kv::LogLevelVariable level(kv::LogLevel::kWarning);
///   #undef KV_LOG_LEVEL
///   #define KV_LOG_LEVEL level
#define LOG_ERROR(...) KV_LOG(false, ::kv::LogFlag::kError, __VA_ARGS__)
#define LOG_WARN(...) KV_LOG(true, ::kv::LogFlag::kWarning, __VA_ARGS__)
#define LOG_INFO(...) KV_LOG(true, ::kv::LogFlag::kInfo, __VA_ARGS__)
#define LOG_DEBUG(...) KV_LOG(true, ::kv::LogFlag::kDebug, __VA_ARGS__)
#define LOG_VERBOSE(...) KV_LOG(true, ::kv::LogFlag::kVerbose, __VA_ARGS__)

#define KV_LOG_LEVEL ::kv::gLogLevel

#define KV_LOG(asynchronous, messageFlag, ...)                                                  \
  do {                                                                                          \
    if (const std::uint64_t kvLevel = (KV_LOG_LEVEL); (kvLevel & (messageFlag)) != 0) {         \
      static constexpr ::kv::LogSite kSite(__FILE__, __func__, __LINE__);                       \
      ::kv::detail::logFrom(asynchronous, kSite, kvLevel, messageFlag, KV_FORMAT(__VA_ARGS__)); \
    }                                                                                           \
  } while (false)

/// The format, compiled where the call stands, and its arguments.
#define KV_FORMAT(format, ...) FMT_COMPILE(format) __VA_OPT__(, ) __VA_ARGS__

namespace kv {

/// A level that may be changed while it is looked at.
///
/// Threads    any; reading costs a plain load.
class LogLevelVariable {
 public:
  constexpr explicit LogLevelVariable(std::uint64_t level) : level_(level) {}
  operator std::uint64_t() const { return level_.load(std::memory_order_relaxed); }
  LogLevelVariable& operator=(std::uint64_t level) {
    level_.store(level, std::memory_order_relaxed);
    return *this;
  }

 private:
  std::atomic<std::uint64_t> level_;
};

/// The level of all that has none of its own.
inline constinit LogLevelVariable gLogLevel(LogLevel::kAll);

namespace detail {

/// The text is formatted by code that was made for this very format: straight into the message
/// where its length is known in time.
template <class Format, class... Arguments>
void logFrom(bool asynchronous, const LogSite& site, std::uint64_t level, std::uint64_t flag,
             const Format& format, const Arguments&... arguments) {
  if constexpr (isPlain<Format, Arguments...>()) {
    const std::size_t bytes = plainTextBytes<Format>(arguments...);
    const DDLog::Draft draft = DDLog::beginAtSite(site, level, flag, bytes);
    makePlainText<Format>(std::index_sequence_for<Arguments...>(), draft.text, arguments...);
    DDLog::end(draft, asynchronous);
  } else {
    DDLog::expectMessage();
    fmt::memory_buffer text;
    fmt::format_to(fmt::appender(text), format, arguments...);
    DDLog::logAtSite(asynchronous, site, level, flag, {text.data(), text.size()});
  }
}

}  // namespace detail
}  // namespace kv
