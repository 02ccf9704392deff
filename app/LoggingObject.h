#pragma once

#include <QJSValue>
#include <QObject>
#include <QString>
#include <QStringList>
#include <memory>

#include "app/ScriptEngine.h"
#include "app/ScriptLogValues.h"
#include "platform/Files.h"

namespace kv {

/// What stands behind a script's DDLog (script/logging.mjs), and what makes the objects behind its
/// loggers, formatters and managers.
///
/// Threads    the engine's, which must not be one of the loggers': a script may wait for them.
/// Ownership  belongs to the engine, and so does what it makes.
/// Errors     a C++ exception becomes a JavaScript one. Arguments have been checked before; all
///            must be given.
class LoggingObject final : public QObject {
  Q_OBJECT
 public:
  /// `rehearsalFiles` as Application::Environment has it.
  LoggingObject(ScriptEngine& engine, std::shared_ptr<Files> rehearsalFiles);

  /// A FormatterObject each.
  Q_INVOKABLE QObject* makeFormatterSch();
  Q_INVOKABLE QObject* makeFileFormatter();
  /// A LogFileManagerObject; null for the default folder.
  Q_INVOKABLE QObject* makeFileManager(const QJSValue& folder);
  /// A FileLoggerObject for a LogFileManagerObject.
  Q_INVOKABLE QObject* makeFileLogger(QObject* manager);
  /// A TerminalLoggerObject of the shared logger.
  Q_INVOKABLE QObject* makeTerminalLogger();

  Q_INVOKABLE void addLogger_withLevel(QObject* logger, double level);
  Q_INVOKABLE void removeLogger(QObject* logger);
  Q_INVOKABLE void removeAllLoggers();
  /// The identities of the loggers; see LoggerObject.
  Q_INVOKABLE QStringList allLoggers();
  Q_INVOKABLE void flushLog();

  /// `tag` is a text or null; `stack`, as Error.stack has it, tells where the script logs.
  Q_INVOKABLE void log(bool asynchronous, const QString& message, double level, double flag,
                       double context, const QJSValue& tag, const QString& stack);

  Q_INVOKABLE QStringList registeredClassNames();
  Q_INVOKABLE double levelForClassWithName(const QString& name);
  Q_INVOKABLE void setLevel_forClassWithName(double level, const QString& name);

 private:
  ScriptEngine& engine_;
  const std::shared_ptr<Files> rehearsalFiles_;
  const std::shared_ptr<ScriptTags> tags_ = std::make_shared<ScriptTags>();
};

}  // namespace kv
