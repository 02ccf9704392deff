#include "tools/kvbackup/History.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <utility>

#include "platform/linux/FileTail.h"
#include "tools/kvbackup/LocalCalendar.h"
#include "tools/kvbackup/Text.h"

namespace kv {
namespace {

constexpr std::size_t kTailBytes = 1 << 20;

/// Enough to say why; programs that fail may be talkative.
constexpr std::size_t kLongestMessage = 500;

std::string lineOf(const RunReport& report) {
  const nlohmann::ordered_json line = {
      {"set", report.set},
      {"start", utcStamp(report.start)},
      {"end", utcStamp(report.end)},
      {"result", resultName(report.result)},
      {"bytes", report.bytes},
      {"message", std::string(firstCharacters(report.message, kLongestMessage))},
  };
  // A name that came in as broken text is kept as far as JSON can.
  return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

/// True when the file ends within a line, as a full disk or a power cut may leave it.
bool endsWithinLine(int descriptor, off_t size) {
  char last = '\n';
  return size > 0 && ::pread(descriptor, &last, 1, size - 1) == 1 && last != '\n';
}

bool appendLine(int descriptor, std::string line) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) return false;
  if (endsWithinLine(descriptor, status.st_size)) line.insert(0, 1, '\n');
  return ::write(descriptor, line.data(), line.size()) == static_cast<ssize_t>(line.size());
}

/// A text field of a line; nothing when it is missing or something else.
std::optional<std::string> textField(const nlohmann::json& line, const char* key) {
  const auto field = line.find(key);
  if (field == line.end() || !field->is_string()) return std::nullopt;
  return field->get<std::string>();
}

}  // namespace

const char* resultName(RunReport::Result result) {
  switch (result) {
    case RunReport::Result::kOk:
      return "ok";
    case RunReport::Result::kInterrupted:
      return "interrupted";
    case RunReport::Result::kFailed:
      break;
  }
  return "failed";
}

bool History::append(const RunReport& report) const {
  const int descriptor =
      ::open(path_.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC | O_NONBLOCK, 0600);
  if (descriptor < 0) return false;
  const bool isWritten = appendLine(descriptor, lineOf(report));
  ::close(descriptor);
  return isWritten;
}

std::map<std::string, History::LastRun> History::lastRuns() const {
  std::map<std::string, LastRun> runs;
  std::istringstream lines(readTail(path_, kTailBytes).value_or(""));
  for (std::string text; std::getline(lines, text);) {
    const auto line = nlohmann::json::parse(text, nullptr, false);
    if (!line.is_object()) continue;
    const auto set = textField(line, "set");
    const auto end = dateFromUtcStamp(textField(line, "end").value_or(""));
    const auto result = textField(line, "result");
    if (!set || !end || !result) continue;
    const auto start = dateFromUtcStamp(textField(line, "start").value_or(""));
    runs[*set] = {.end = *end,
                  .result = *result,
                  .start = start.value_or(*end),
                  .message = textField(line, "message").value_or("")};
  }
  return runs;
}

}  // namespace kv
