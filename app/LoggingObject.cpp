#include "app/LoggingObject.h"

#include <optional>
#include <string>
#include <utility>

#include "app/FileLoggerObject.h"
#include "app/FormatterObject.h"
#include "app/LogFileManagerObject.h"
#include "app/SharedFormatter.h"
#include "app/TerminalLoggerObject.h"
#include "logging/DDLog.h"
#include "logging/DDLogFileFormatterDefault.h"
#include "logging/FormatterSch.h"

namespace kv {
namespace {

template <class Formatter>
QObject* makeFormatter() {
  return new FormatterObject(std::make_shared<SharedFormatter>(std::make_shared<Formatter>()));
}

}  // namespace

LoggingObject::LoggingObject(ScriptEngine& engine, std::shared_ptr<Files> rehearsalFiles)
    : engine_(engine), rehearsalFiles_(std::move(rehearsalFiles)) {}

QObject* LoggingObject::makeFormatterSch() {
  return engine_.guarded([] { return makeFormatter<FormatterSch>(); });
}

QObject* LoggingObject::makeFileFormatter() {
  return engine_.guarded([] { return makeFormatter<DDLogFileFormatterDefault>(); });
}

QObject* LoggingObject::makeFileManager(const QJSValue& folder) {
  return engine_.guarded([&]() -> QObject* {
    std::optional<std::string> path;
    if (!folder.isNull()) path = folder.toString().toStdString();
    DDLogFileManagerDefault::Environment environment;
    if (rehearsalFiles_) {
      environment.files = rehearsalFiles_;
      environment.processFacts.name = "KVScheduler";  // whose log it is
    }
    return new LogFileManagerObject(
        engine_, std::make_shared<DDLogFileManagerDefault>(path, std::move(environment)));
  });
}

QObject* LoggingObject::makeFileLogger(QObject* manager) {
  return engine_.guarded([&]() -> QObject* {
    return new FileLoggerObject(
        engine_, DDFileLogger::create(objectFromScript<LogFileManagerObject>(manager).manager()));
  });
}

QObject* LoggingObject::makeTerminalLogger() {
  return engine_.guarded([&]() -> QObject* {
    return new TerminalLoggerObject(engine_, DDTTYLogger::sharedInstance(), tags_);
  });
}

void LoggingObject::addLogger_withLevel(QObject* logger, double level) {
  engine_.guarded([&] {
    if (rehearsalFiles_) return;
    DDLog::addLogger_withLevel(objectFromScript<LoggerObject>(logger).logger(),
                               maskFromScript(level));
  });
}

void LoggingObject::removeLogger(QObject* logger) {
  engine_.guarded([&] { DDLog::removeLogger(objectFromScript<LoggerObject>(logger).logger()); });
}

void LoggingObject::removeAllLoggers() {
  engine_.guarded([] { DDLog::removeAllLoggers(); });
}

QStringList LoggingObject::allLoggers() {
  return engine_.guarded([] {
    QStringList identities;
    for (const auto& logger : DDLog::allLoggers()) {
      identities.append(LoggerObject::identityOf(*logger));
    }
    return identities;
  });
}

void LoggingObject::flushLog() {
  engine_.guarded([] { DDLog::flushLog(); });
}

void LoggingObject::log(bool asynchronous, const QString& message, double level, double flag,
                        double context, const QJSValue& tag, const QString& stack) {
  engine_.guarded([&] {
    if (rehearsalFiles_) return;  // no logger listens, and no thread need begin for it
    const auto place = ScriptEngine::placeInScript(stack).value_or(ScriptEngine::Place());
    DDLog::log(asynchronous, {.message = makeLogText(message.toStdString()),
                              .level = maskFromScript(level),
                              .flag = maskFromScript(flag),
                              .context = static_cast<std::int64_t>(context),
                              .file = place.file.c_str(),
                              .function = place.function.c_str(),
                              .line = place.line,
                              .tag = tags_->tagFor(tag)});
  });
}

QStringList LoggingObject::registeredClassNames() {
  return engine_.guarded([] {
    QStringList names;
    for (const std::string& name : DDLog::registeredClassNames()) {
      names.append(QString::fromStdString(name));
    }
    return names;
  });
}

double LoggingObject::levelForClassWithName(const QString& name) {
  return engine_.guarded(
      [&] { return maskToScript(DDLog::levelForClassWithName(name.toStdString())); });
}

void LoggingObject::setLevel_forClassWithName(double level, const QString& name) {
  engine_.guarded(
      [&] { DDLog::setLevel_forClassWithName(maskFromScript(level), name.toStdString()); });
}

}  // namespace kv
