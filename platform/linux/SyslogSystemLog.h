#pragma once

#include "platform/SystemLog.h"

namespace kv {

/// syslog(3) and standard error. Threads: any; one at a time in a process (openlog is global).
class SyslogSystemLog final : public SystemLog {
 public:
  /// `name` stands before each line.
  explicit SyslogSystemLog(const char* name);
  ~SyslogSystemLog() override;
  void write(std::string_view text) override;
};

}  // namespace kv
