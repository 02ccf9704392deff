#pragma once

#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

#include "app/ScriptEngine.h"
#include "logging/DDLogFileManagerDefault.h"

namespace kv {

/// What stands behind a script's DDLogFileManagerDefault (script/logging.mjs).
///
/// Threads    the engine's.
/// Ownership  belongs to the engine; file loggers hold the manager itself.
/// Errors     a C++ exception becomes a JavaScript one. Arguments have been checked before.
class LogFileManagerObject final : public QObject {
  Q_OBJECT
 public:
  LogFileManagerObject(ScriptEngine& engine, std::shared_ptr<DDLogFileManagerDefault> manager);

  Q_INVOKABLE double maximumNumberOfLogFiles();
  Q_INVOKABLE void setMaximumNumberOfLogFiles(double number);
  Q_INVOKABLE double logFilesDiskQuota();
  Q_INVOKABLE void setLogFilesDiskQuota(double sizeBytes);
  Q_INVOKABLE QString logsDirectory();
  Q_INVOKABLE QString applicationName();
  Q_INVOKABLE QString newLogFileName();
  Q_INVOKABLE QString createNewLogFile();
  Q_INVOKABLE bool isLogFile(const QString& fileName);
  Q_INVOKABLE QStringList unsortedLogFilePaths();
  Q_INVOKABLE QStringList unsortedLogFileNames();
  Q_INVOKABLE QStringList sortedLogFilePaths();
  Q_INVOKABLE QStringList sortedLogFileNames();

  const std::shared_ptr<DDLogFileManagerDefault>& manager() const { return manager_; }

 private:
  using List = std::vector<std::string> (DDLogFileManagerDefault::*)();
  QStringList list(List operation);

  ScriptEngine& engine_;
  const std::shared_ptr<DDLogFileManagerDefault> manager_;
};

}  // namespace kv
