#include "logging/FormatterSch.h"

#include <cmath>
#include <limits>

#include "logging/RecycledText.h"

namespace kv {

FormatterSch::FormatterSch()
    : threadUnsafeDateFormatter_("HH:mm:ss"),
      renderedSecond_(std::numeric_limits<double>::quiet_NaN()) {}

LogText FormatterSch::formatLogMessage(const DDLogMessage& message) {
  const double seconds = message.timestamp().sinceReference.count();
  if (!(seconds >= renderedSecond_ && seconds < renderedSecond_ + 1.0)) {
    const double second = std::floor(seconds);
    rendered_ = threadUnsafeDateFormatter_.string({Seconds(second)}).value_or("");
    renderedSecond_ = second;
  }
  std::string& line = recycledText(line_);
  line.assign(rendered_).append(" > ").append(message.text());
  return line_;
}

void FormatterSch::didAddToLogger(DDLogger& /*logger*/) {
  ++loggerCount_;
}

void FormatterSch::willRemoveFromLogger(DDLogger& /*logger*/) {
  --loggerCount_;
}

}  // namespace kv
