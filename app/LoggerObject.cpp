#include "app/LoggerObject.h"

#include "app/FormatterObject.h"
#include "app/ScriptLogValues.h"

namespace kv {

void LoggerObject::setLogFormatter(QObject* formatter) {
  engine_.guarded([&] {
    logger_->setLogFormatter(
        formatter == nullptr ? nullptr : objectFromScript<FormatterObject>(formatter).formatter());
  });
}

QString LoggerObject::loggerName() {
  return engine_.guarded([&] { return QString::fromStdString(logger_->loggerName()); });
}

QString LoggerObject::identityOf(const DDLogger& logger) {
  return QString::number(reinterpret_cast<quintptr>(&logger), 16);
}

}  // namespace kv
