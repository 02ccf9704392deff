#include "app/FileLoggerObject.h"

#include <cstdint>

namespace kv {

FileLoggerObject::FileLoggerObject(ScriptEngine& engine, std::shared_ptr<DDFileLogger> logger)
    : LoggerObject(engine, logger), logger_(std::move(logger)) {}

double FileLoggerObject::maximumFileSize() {
  return engine_.guarded([&] { return static_cast<double>(logger_->maximumFileSize()); });
}

void FileLoggerObject::setMaximumFileSize(double sizeBytes) {
  engine_.guarded([&] { logger_->setMaximumFileSize(static_cast<std::uint64_t>(sizeBytes)); });
}

double FileLoggerObject::rollingFrequency() {
  return engine_.guarded([&] { return logger_->rollingFrequency(); });
}

void FileLoggerObject::setRollingFrequency(double seconds) {
  engine_.guarded([&] { logger_->setRollingFrequency(seconds); });
}

void FileLoggerObject::rollLogFileWithCompletionBlock(const QJSValue& completion) {
  engine_.guarded([&] {
    if (completion.isNull()) {
      logger_->rollLogFile();
    } else {
      logger_->rollLogFileWithCompletionBlock(
          engine_.postponed("rollLogFileWithCompletionBlock", completion));
    }
  });
}

}  // namespace kv
