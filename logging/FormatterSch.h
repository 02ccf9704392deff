#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "logging/DDLogFormatter.h"
#include "platform/NumericDateFormat.h"

namespace kv {

/// "14:07:09 > text": the scheduler's compact lines, with the time in the user's zone.
///
/// Threads    one logger at a time, since its date formatter is not locked.
class FormatterSch final : public DDLogFormatter {
 public:
  FormatterSch();
  LogText formatLogMessage(const DDLogMessage& message) override;
  void didAddToLogger(DDLogger& logger) override;
  void willRemoveFromLogger(DDLogger& logger) override;

  /// How many loggers use this formatter.
  std::int32_t loggerCount() const { return loggerCount_; }

 private:
  std::int32_t loggerCount_ = 0;
  NumericDateFormat threadUnsafeDateFormatter_;
  double renderedSecond_;
  std::string rendered_;
  std::shared_ptr<std::string> line_;
};

}  // namespace kv
