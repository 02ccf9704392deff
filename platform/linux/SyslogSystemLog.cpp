#include "platform/linux/SyslogSystemLog.h"

#include <syslog.h>

#include <algorithm>
#include <atomic>

namespace kv {
namespace {

constinit std::atomic<bool> isLogOpen = false;

}  // namespace

std::string withoutControlCharacters(std::string_view text) {
  std::string line(text);
  const auto isControl = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
  std::replace_if(line.begin(), line.end(), isControl, ' ');
  return line;
}

SyslogSystemLog::SyslogSystemLog(const char* name) {
  // LOG_PERROR: the same line, name and process id in front, goes to standard error.
  openlog(name, LOG_PID | LOG_PERROR, LOG_USER);
  isLogOpen = true;
}

SyslogSystemLog::~SyslogSystemLog() {
  openlog(nullptr, 0, LOG_USER);  // closelog() alone leaves LOG_PERROR in force
  closelog();
  isLogOpen = false;
}

void SyslogSystemLog::write(std::string_view text) {
  syslog(LOG_NOTICE, "%s", withoutControlCharacters(text).c_str());
}

bool SyslogSystemLog::isOpen() {
  return isLogOpen;
}

}  // namespace kv
