#pragma once

#include <memory>

#include "app/LoggerObject.h"
#include "logging/DDFileLogger.h"

namespace kv {

/// What stands behind a script's DDFileLogger. See LoggerObject.
class FileLoggerObject final : public LoggerObject {
  Q_OBJECT
 public:
  FileLoggerObject(ScriptEngine& engine, std::shared_ptr<DDFileLogger> logger);

  Q_INVOKABLE double maximumFileSize();
  Q_INVOKABLE void setMaximumFileSize(double sizeBytes);
  Q_INVOKABLE double rollingFrequency();
  Q_INVOKABLE void setRollingFrequency(double seconds);
  Q_INVOKABLE bool doNotReuseLogFiles() { return logger_->doNotReuseLogFiles(); }
  Q_INVOKABLE void setDoNotReuseLogFiles(bool value) { logger_->setDoNotReuseLogFiles(value); }
  Q_INVOKABLE bool automaticallyAppendNewlineForCustomFormatters() {
    return logger_->automaticallyAppendNewlineForCustomFormatters();
  }
  Q_INVOKABLE void setAutomaticallyAppendNewlineForCustomFormatters(bool value) {
    logger_->setAutomaticallyAppendNewlineForCustomFormatters(value);
  }
  Q_INVOKABLE bool groupsBacklogWrites() { return logger_->groupsBacklogWrites(); }
  Q_INVOKABLE void setGroupsBacklogWrites(bool value) { logger_->setGroupsBacklogWrites(value); }
  Q_INVOKABLE double lostLines() { return static_cast<double>(logger_->lostLines()); }

  /// `completion` is a function, or null for none.
  Q_INVOKABLE void rollLogFileWithCompletionBlock(const QJSValue& completion);

 private:
  const std::shared_ptr<DDFileLogger> logger_;
};

}  // namespace kv
