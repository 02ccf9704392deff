#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "logging/DDAbstractLogger.h"

namespace kv::test {

/// A logger that remembers what it was called with, and may do something with each message first.
class RecordingLogger : public DDAbstractLogger {
 public:
  explicit RecordingLogger(std::function<void(const DDLogMessage&)> onMessage = nullptr)
      : onMessage_(std::move(onMessage)) {}

  void logMessage(const DDLogMessage& message) override {
    if (onMessage_) onMessage_(message);
    DDLogFormatter* const formatter = currentFormatter();
    const LogText text =
        formatter == nullptr ? message.message() : formatter->formatLogMessage(message);
    note(text == nullptr ? "(none)" : *text);
  }
  void didAddLogger() override { note("added as " + SerialQueue::currentLabel()); }
  void willRemoveLogger() override { note("removed as " + SerialQueue::currentLabel()); }
  void flush() override {
    if (onFlush) onFlush();
    note("flushed");
  }
  std::string loggerName() const override { return "recording"; }

  std::function<void()> onFlush;

  /// All texts so far, joined by blanks.
  std::string record() {
    std::lock_guard lock(mutex_);
    std::string all;
    for (const auto& text : texts_) all += (all.empty() ? "" : " ") + text;
    return all;
  }
  std::vector<std::string> texts() {
    std::lock_guard lock(mutex_);
    return texts_;
  }

 private:
  void note(std::string text) {
    std::lock_guard lock(mutex_);
    texts_.push_back(std::move(text));
  }

  std::function<void(const DDLogMessage&)> onMessage_;
  std::mutex mutex_;
  std::vector<std::string> texts_;
};

}  // namespace kv::test
