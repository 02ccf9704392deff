#include "app/LogFileManagerObject.h"

#include <cstdint>
#include <utility>

namespace kv {

LogFileManagerObject::LogFileManagerObject(ScriptEngine& engine,
                                           std::shared_ptr<DDLogFileManagerDefault> manager)
    : engine_(engine), manager_(std::move(manager)) {}

double LogFileManagerObject::maximumNumberOfLogFiles() {
  return static_cast<double>(manager_->maximumNumberOfLogFiles());
}

void LogFileManagerObject::setMaximumNumberOfLogFiles(double number) {
  engine_.guarded(
      [&] { manager_->setMaximumNumberOfLogFiles(static_cast<std::uint64_t>(number)); });
}

double LogFileManagerObject::logFilesDiskQuota() {
  return static_cast<double>(manager_->logFilesDiskQuota());
}

void LogFileManagerObject::setLogFilesDiskQuota(double sizeBytes) {
  engine_.guarded([&] { manager_->setLogFilesDiskQuota(static_cast<std::uint64_t>(sizeBytes)); });
}

QString LogFileManagerObject::logsDirectory() {
  return engine_.guarded([&] { return QString::fromStdString(manager_->logsDirectory()); });
}

QString LogFileManagerObject::applicationName() {
  return engine_.guarded([&] { return QString::fromStdString(manager_->applicationName()); });
}

QString LogFileManagerObject::newLogFileName() {
  return engine_.guarded([&] { return QString::fromStdString(manager_->newLogFileName()); });
}

QString LogFileManagerObject::createNewLogFile() {
  return engine_.guarded([&] { return QString::fromStdString(manager_->createNewLogFile()); });
}

bool LogFileManagerObject::isLogFile(const QString& fileName) {
  return engine_.guarded([&] { return manager_->isLogFile(fileName.toStdString()); });
}

QStringList LogFileManagerObject::unsortedLogFilePaths() {
  return list(&DDLogFileManagerDefault::unsortedLogFilePaths);
}

QStringList LogFileManagerObject::unsortedLogFileNames() {
  return list(&DDLogFileManagerDefault::unsortedLogFileNames);
}

QStringList LogFileManagerObject::sortedLogFilePaths() {
  return list(&DDLogFileManagerDefault::sortedLogFilePaths);
}

QStringList LogFileManagerObject::sortedLogFileNames() {
  return list(&DDLogFileManagerDefault::sortedLogFileNames);
}

QStringList LogFileManagerObject::list(List operation) {
  return engine_.guarded([&] {
    QStringList texts;
    for (const std::string& text : ((*manager_).*operation)()) {
      texts.append(QString::fromStdString(text));
    }
    return texts;
  });
}

}  // namespace kv
