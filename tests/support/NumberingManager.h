#pragma once

#include <fmt/format.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "logging/DDLogFileManagerDefault.h"

namespace kv::test {

/// Files "Sample 1.log", "Sample 2.log" and so on.
class NumberingManager final : public DDLogFileManagerDefault {
 public:
  using DDLogFileManagerDefault::DDLogFileManagerDefault;
  bool isLogFile(std::string_view name) override { return name.starts_with("Sample "); }
  std::string newLogFileName() override { return fmt::format("Sample {}.log", ++number); }
  void didArchiveLogFile(const std::string& path) override { archived.push_back(path); }
  void didRollAndArchiveLogFile(const std::string& path) override {
    rolled.push_back(path);
    if (onRoll) onRoll();
  }
  int number = 0;
  std::vector<std::string> archived;
  std::vector<std::string> rolled;
  std::function<void()> onRoll;
};

}  // namespace kv::test
