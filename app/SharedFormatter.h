#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include "logging/DDLogFormatter.h"

namespace kv {

/// A formatter that a script may give to several loggers: they use it one at a time. The
/// formatters themselves lock nothing.
///
/// Threads    any. Ownership: holds the formatter.
class SharedFormatter final : public DDLogFormatter {
 public:
  explicit SharedFormatter(std::shared_ptr<DDLogFormatter> formatter)
      : formatter_(std::move(formatter)) {}

  LogText formatLogMessage(const DDLogMessage& message) override {
    std::lock_guard lock(mutex_);
    return formatter_->formatLogMessage(message);
  }
  void didAddToLogger(DDLogger& logger) override {
    std::lock_guard lock(mutex_);
    formatter_->didAddToLogger(logger);
  }
  void willRemoveFromLogger(DDLogger& logger) override {
    std::lock_guard lock(mutex_);
    formatter_->willRemoveFromLogger(logger);
  }

 private:
  std::mutex mutex_;
  const std::shared_ptr<DDLogFormatter> formatter_;
};

}  // namespace kv
