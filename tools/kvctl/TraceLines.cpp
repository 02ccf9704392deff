#include "tools/kvctl/TraceLines.h"

#include <algorithm>

namespace kv::kvctl {

void TraceLines::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t lineEnd = bytes.find('\n');
    const std::size_t length = std::min({lineEnd, bytes.size(), kLongestLine - unfinished_.size()});
    const std::string_view part = bytes.substr(0, length);
    const bool isEnded = length == lineEnd;
    const std::size_t taken = length + (isEnded ? 1 : 0);
    bytes.remove_prefix(taken);
    if (isEnded && unfinished_.empty()) {
      handOn(part, taken);
      continue;
    }
    unfinished_ += part;
    if (isEnded || unfinished_.size() == kLongestLine) {
      const std::string line = std::exchange(unfinished_, {});
      handOn(line, line.size() + (isEnded ? 1 : 0));
    }
  }
}

void TraceLines::finish() {
  if (unfinished_.empty()) return;
  const std::string line = std::exchange(unfinished_, {});
  handOn(line, line.size());
}

void TraceLines::handOn(std::string_view line, std::size_t length) {
  sink_(line);
  lineBegin_ += length;
}

}  // namespace kv::kvctl
