#pragma once

#include <string>
#include <vector>

#include "platform/SystemLog.h"

namespace kv::test {

/// Keeps what is written. Threads: one at a time.
class RecordingSystemLog final : public SystemLog {
 public:
  void write(std::string_view text) override { lines.emplace_back(text); }
  std::vector<std::string> lines;
};

}  // namespace kv::test
