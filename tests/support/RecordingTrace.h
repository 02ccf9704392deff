#pragma once

#include <string>
#include <vector>

#include "scheduler/Trace.h"

namespace kv::test {

/// Keeps the lines of a trace, without time stamps.
class RecordingTrace final : public Trace {
 public:
  void logString(OptionalText text) override { lines.emplace_back(text.value_or("(null)")); }
  void logString_varstr(OptionalText text, OptionalText value) override {
    lines.push_back(std::string(text.value_or("(null)")) + std::string(value.value_or("(null)")));
  }
  bool isTracing() const override { return true; }

  std::vector<std::string> lines;
};

}  // namespace kv::test
