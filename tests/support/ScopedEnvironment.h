#pragma once

#include <optional>
#include <string>

#include <stdlib.h>

namespace kv::test {

/// Sets an environment variable (or removes it, when null) until the object dies.
class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, const char* value) : name_(name) {
    if (const char* old = ::getenv(name)) old_ = old;
    set(value);
  }
  ~ScopedEnvironment() { set(old_ ? old_->c_str() : nullptr); }
  ScopedEnvironment(const ScopedEnvironment&) = delete;
  ScopedEnvironment& operator=(const ScopedEnvironment&) = delete;

  void set(const char* value) {
    if (value != nullptr) {
      ::setenv(name_.c_str(), value, 1);
    } else {
      ::unsetenv(name_.c_str());
    }
  }

 private:
  std::string name_;
  std::optional<std::string> old_;
};

/// Central European rules, spelled out so that no zone database is needed.
inline constexpr const char* kBerlin = "CET-1CEST,M3.5.0,M10.5.0/3";

}  // namespace kv::test
