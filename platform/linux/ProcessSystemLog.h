#pragma once

#include "platform/SystemLog.h"

namespace kv {

/// syslog(3) as the program has it set up, and a line "name[pid]: text" on standard error.
///
/// A library must not call openlog(3), which would change the name and the options of a program
/// that uses it. So the line for standard error is made here, unless the program has a
/// SyslogSystemLog, which shows there what goes to syslog(3).
///
/// Threads    any.
class ProcessSystemLog final : public SystemLog {
 public:
  void write(std::string_view text) override;
};

}  // namespace kv
