#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "logging/LogText.h"
#include "platform/Date.h"
#include "platform/Processor.h"
#include "platform/ThreadFacts.h"

namespace kv {

/// An object of the caller's choosing that travels with a message; the terminal logger keys
/// colours on it. Which object it is counts, not what it holds.
using LogTag = std::shared_ptr<const void>;

/// One log message, with the facts that only the caller's thread knows at the moment of the call.
///
/// Threads    made on the logging thread; read by loggers on several threads at once.
/// Ownership  whoever needs a message beyond the call that hands it over keeps shared_from_this()
///            or a copy. The texts that the views show live as long as the message.
/// Units      the timestamp is wall-clock time; thread numbers are the system's, in lower-case
///            hexadecimal.
class DDLogMessage : public std::enable_shared_from_this<DDLogMessage> {
 public:
  struct Fields {
    LogText message;
    std::uint64_t level = 0;
    std::uint64_t flag = 0;
    std::int64_t context = 0;
    std::string_view file = {};
    std::string_view function = {};
    std::uint64_t line = 0;
    LogTag tag = nullptr;
    std::int64_t options = 0;
    /// Absent: the present moment.
    std::optional<Date> timestamp = std::nullopt;
  };

  /// Keeps the text as it is, copies `file` and `function`, and takes down the calling thread, its
  /// queue and, where none is given, the time.
  explicit DDLogMessage(const Fields& fields);
  /// A message with all fields of `other`, sharing its text and tag. Nothing is taken down anew.
  DDLogMessage(const DDLogMessage& other);
  DDLogMessage& operator=(const DDLogMessage&) = delete;
  virtual ~DDLogMessage();

  /// The finished text; null when the caller gave none. Always the same object for one message.
  LogText message() const;
  /// The same for who only reads it; "(null)" for none.
  std::string_view text() const {
    if (hasOwnText_) return ownText_;
    return given_ == nullptr ? std::string_view("(null)") : std::string_view(*given_);
  }
  /// Whether `text` is the object that message() yields; cheaper than asking for that.
  bool isOwnText(const LogText& text) const {
    return text.get() == (hasOwnText_ ? &ownText_ : given_.get());
  }
  std::uint64_t level() const { return level_; }
  std::uint64_t flag() const { return flag_; }
  std::int64_t context() const { return context_; }
  std::string_view file() const { return file_; }
  /// The last component of `file` up to its last ".".
  std::string_view fileName() const { return fileName_; }
  std::string_view function() const { return function_; }
  std::uint64_t line() const { return line_; }
  const LogTag& tag() const { return tag_; }
  std::int64_t options() const { return options_; }
  Date timestamp() const { return timestamp_; }
  std::string_view threadID() const { return {thread_.id.data(), thread_.idLength}; }
  /// Empty for a thread that bears the program's name, as threads do that nobody names. Of a
  /// thread that is named anew DDLog may show the former name for another ten milliseconds.
  std::string_view threadName() const { return {thread_.name.data(), thread_.nameLength}; }
  /// The label of the queue that the caller's work ran as; see SerialQueue::currentLabel().
  std::string_view queueLabel() const { return queueLabel_; }

 private:
  friend class LogRecord;
  DDLogMessage() = default;
  void keepNames(std::string_view file, std::string_view function);
  void takeDownCaller(Date now);

  /// A recycled message's reference to itself, which is its pool's while it is not in use.
  std::shared_ptr<DDLogMessage> self_;

  // In a recycled message these are often what they were: then they are left alone, and their part
  // of memory stays in the caches of the thread that logs and of the one that delivers.
  std::uint64_t level_ = 0;
  std::uint64_t flag_ = 0;
  std::int64_t context_ = 0;
  std::uint64_t line_ = 0;
  std::int64_t options_ = 0;
  std::string_view file_;
  std::string_view fileName_;
  std::string_view function_;
  /// Holds `file` and `function` where they do not live as long as the program.
  std::string names_;
  std::string queueLabel_;
  ThreadFacts thread_;

  // These change with each message, and share no line of memory with what does not.
  alignas(kCacheLine) Date timestamp_;
  LogText given_;
  LogTag tag_;
  /// Holds a recycled message's text, whose memory stays from one use to the next.
  std::string ownText_;
  bool hasOwnText_ = false;
};

/// The last component of a path up to its last "."; the whole of it when it has none.
constexpr std::string_view fileNameWithoutExtension(std::string_view path) {
  while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
  const auto slash = path.rfind('/');
  if (slash != std::string_view::npos && path.size() > 1) path.remove_prefix(slash + 1);
  return path.substr(0, path.rfind('.'));
}

/// The name of a source file without folders and extension, for paths whose last "." lies in the
/// file name; null for null and for what is not UTF-8. With `copy` the result holds its bytes,
/// without it shows the caller's, which must outlive it.
///
/// Errors     std::length_error when the last "." lies before the last "/".
extern "C" std::shared_ptr<const std::string_view> DDExtractFileNameWithoutExtension(
    const char* filePath, bool copy);

}  // namespace kv
