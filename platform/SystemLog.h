#pragma once

#include <string_view>

namespace kv {

/// The system's own log: the place for what must be known although no logger is set up.
///
/// Threads    any.
/// Errors     none; a line that the system does not take is lost.
class SystemLog {
 public:
  virtual ~SystemLog() = default;
  /// Writes one line; `text` holds no line feed of its own.
  virtual void write(std::string_view text) = 0;
};

}  // namespace kv
