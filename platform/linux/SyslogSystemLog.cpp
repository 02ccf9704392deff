#include "platform/linux/SyslogSystemLog.h"

#include <syslog.h>

#include <algorithm>
#include <string>

namespace kv {

SyslogSystemLog::SyslogSystemLog(const char* name) {
  // LOG_PERROR: the same line, name and process id in front, goes to standard error.
  openlog(name, LOG_PID | LOG_PERROR, LOG_USER);
}

SyslogSystemLog::~SyslogSystemLog() {
  closelog();
}

void SyslogSystemLog::write(std::string_view text) {
  // Set names and script texts come from elsewhere: they must not draw on the terminal, nor end
  // the line early.
  std::string line(text);
  const auto isControl = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
  std::replace_if(line.begin(), line.end(), isControl, ' ');
  syslog(LOG_NOTICE, "%s", line.c_str());
}

}  // namespace kv
