#pragma once

#include <memory>
#include <string_view>

#include "logging/DDLogMessage.h"
#include "logging/LogSite.h"
#include "platform/QueueWork.h"

namespace kv {

class LogDispatcher;

/// A message of the dispatcher's own, which is its place in the queue and is used again.
///
/// Free ──take()──► Filling ──push──► Queued ──run()──► Delivered ──recycle()──► Free
///
/// Free       in the pool or in a thread's small stock; it holds no text and no tag, but keeps the
///            memory of both strings.
/// Delivered  a logger that keeps the message holds a reference: then the record is left to it,
///            and the pool makes a new one when it needs one.
///
/// Threads    take(), recycle() and putBack() any.
class LogRecord final : public DDLogMessage, public QueueWork {
 public:
  /// A blank record. The pool has as many as were ever in use at once.
  static LogRecord& take();
  /// The record is not needed any more. Of several at once the cost is that of one.
  static void recycle(LogRecord& record);
  /// The same by the thread that took it: it takes the same one again next time.
  static void putBack(LogRecord& record);

  /// Around a fork, which must not find the pool in the middle of a change.
  static void lockPool();
  static void unlockPool();

  void setSite(const LogSite& site);
  void setSite(std::string_view file, std::string_view function, std::uint64_t line);
  /// Copies the text into the record.
  void setText(std::string_view text);
  /// The place of a text of so many bytes, which is made there.
  char* setTextOf(std::size_t bytes);
  /// Keeps the caller's text.
  void setText(LogText text);
  void setKind(std::uint64_t level, std::uint64_t flag, std::int64_t context, LogTag tag);
  /// Takes down the calling thread.
  void setMoment(Date now) { takeDownCaller(now); }
  void setDispatcher(LogDispatcher& dispatcher) {
    if (dispatcher_ != &dispatcher) dispatcher_ = &dispatcher;
  }

  void run() override;
  bool joinsBatch() const override { return true; }

 private:
  friend class LogRecordPool;
  LogRecord() = default;
  void clear();
  void fetchNext() const;
  const char* textMemory() const { return ownText_.data(); }
  std::shared_ptr<DDLogMessage>& self() { return self_; }

  // These change with each message, like those of DDLogMessage that they follow.
  LogRecord* nextFree_ = nullptr;
  const char* nextText_ = nullptr;
  LogRecord* nextPortion_ = nullptr;

  /// Stays as it is as long as the record is used again.
  LogDispatcher* dispatcher_ = nullptr;
};

}  // namespace kv
