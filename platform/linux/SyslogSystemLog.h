#pragma once

#include <string>

#include "platform/SystemLog.h"

namespace kv {

/// syslog(3) and standard error. A text becomes one line that draws nothing: set names and script
/// texts come from elsewhere, and must neither steer a terminal nor end the line early.
///
/// Threads    any; one at a time in a process (openlog is global).
class SyslogSystemLog final : public SystemLog {
 public:
  /// `name` stands before each line.
  explicit SyslogSystemLog(const char* name);
  ~SyslogSystemLog() override;
  void write(std::string_view text) override;

  /// Whether there is one now: what anybody gives to syslog(3) is shown on standard error then.
  static bool isOpen();
};

}  // namespace kv
