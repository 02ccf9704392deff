#pragma once

#include <QJSValue>
#include <QObject>
#include <QString>
#include <memory>
#include <utility>

#include "app/ScriptEngine.h"
#include "logging/DDAbstractLogger.h"

namespace kv {

/// What stands behind a script's logger (script/logging.mjs): the operations that all have.
///
/// Threads    the engine's.
/// Ownership  belongs to the engine; the logger itself lives on while DDLog has it.
/// Errors     a C++ exception becomes a JavaScript one. Arguments have been checked before.
class LoggerObject : public QObject {
  Q_OBJECT
 public:
  LoggerObject(ScriptEngine& engine, std::shared_ptr<DDAbstractLogger> logger)
      : engine_(engine), logger_(std::move(logger)) {}

  /// `formatter` is a FormatterObject, or null for none.
  Q_INVOKABLE void setLogFormatter(QObject* formatter);
  Q_INVOKABLE QString loggerName();
  /// A text that no other living logger has.
  Q_INVOKABLE QString identity() { return identityOf(*logger_); }

  const std::shared_ptr<DDAbstractLogger>& logger() const { return logger_; }
  static QString identityOf(const DDLogger& logger);

 protected:
  ScriptEngine& engine_;

 private:
  const std::shared_ptr<DDAbstractLogger> logger_;
};

}  // namespace kv
