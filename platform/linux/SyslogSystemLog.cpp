#include "platform/linux/SyslogSystemLog.h"

#include <syslog.h>

#include <atomic>

#include "platform/HarmlessText.h"

namespace kv {
namespace {

constinit std::atomic<bool> isLogOpen = false;

}  // namespace

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
  syslog(LOG_NOTICE, "%s", harmless(text, ' ').c_str());
}

bool SyslogSystemLog::isOpen() {
  return isLogOpen;
}

}  // namespace kv
