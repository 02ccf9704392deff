#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kv {

/// A class as the log knows it: its name, and its level where it has one that can be read and set,
/// by `static std::uint64_t ddLogLevel()` and `static void ddSetLogLevel(std::uint64_t)`.
struct LogClass {
  std::string name;
  std::uint64_t (*level)() = nullptr;
  void (*setLevel)(std::uint64_t) = nullptr;

  bool isComplete() const { return level != nullptr && setLevel != nullptr; }

  template <class Type>
  static LogClass of(std::string_view name) {
    LogClass type;
    type.name = name;
    if constexpr (requires { Type::ddLogLevel(); }) type.level = &Type::ddLogLevel;
    if constexpr (requires { Type::ddSetLogLevel(std::uint64_t{}); }) {
      type.setLevel = &Type::ddSetLogLevel;
    }
    return type;
  }
};

/// The classes that told the log of themselves, so that their levels can be found by name.
///
/// Threads    any. A class that is added again under its name replaces the earlier one.
class LogClasses {
 public:
  static void add(const LogClass& type);
  /// Those whose level can be read and set, in the order in which they were added.
  static std::vector<LogClass> registered();
  /// Complete or not; one without a name and operations when there is none.
  static LogClass find(std::string_view name);
};

}  // namespace kv
