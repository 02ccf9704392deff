#include "platform/linux/ProcessSystemLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "platform/HarmlessText.h"
#include "platform/ProcessFacts.h"
#include "platform/linux/SyslogSystemLog.h"

namespace kv {
namespace {

/// In one piece, so that the lines of several threads do not mix.
void writeToStandardError(std::string_view line) {
  while (!line.empty()) {
    const ssize_t written = ::write(STDERR_FILENO, line.data(), line.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(written));
  }
}

}  // namespace

void ProcessSystemLog::write(std::string_view text) {
  const std::string line = harmless(text, ' ');
  syslog(LOG_USER | LOG_NOTICE, "%s", line.c_str());
  if (SyslogSystemLog::isOpen()) return;
  const ProcessFacts facts = ProcessFacts::current();
  writeToStandardError(facts.name + "[" + std::to_string(facts.pid) + "]: " + line + "\n");
}

}  // namespace kv
