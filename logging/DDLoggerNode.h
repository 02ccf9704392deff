#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "logging/DDLogger.h"
#include "platform/SerialQueue.h"

namespace kv {

/// One registration of a logger: who, for which flags, and the queue on which it is called.
///
/// Threads    the global logging queue. Ownership: holds the logger and the queue.
class DDLoggerNode {
 public:
  DDLoggerNode(std::shared_ptr<DDLogger> logger, std::shared_ptr<SerialQueue> loggerQueue,
               std::uint64_t level)
      : logger_(std::move(logger)), level_(level), loggerQueue_(std::move(loggerQueue)) {}

  static std::shared_ptr<DDLoggerNode> nodeWithLogger_loggerQueue_level(
      std::shared_ptr<DDLogger> logger, std::shared_ptr<SerialQueue> loggerQueue,
      std::uint64_t level) {
    return std::make_shared<DDLoggerNode>(std::move(logger), std::move(loggerQueue), level);
  }

  const std::shared_ptr<DDLogger>& logger() const { return logger_; }
  std::uint64_t level() const { return level_; }
  const std::shared_ptr<SerialQueue>& loggerQueue() const { return loggerQueue_; }

 private:
  std::shared_ptr<DDLogger> logger_;
  std::uint64_t level_;
  std::shared_ptr<SerialQueue> loggerQueue_;
};

}  // namespace kv
