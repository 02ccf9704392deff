#pragma once

#include <QJSValue>
#include <QList>
#include <QObject>
#include <QString>
#include <memory>

#include "app/ScriptEngine.h"
#include "scheduler/KVTimer.h"

namespace kv {

/// What stands behind a script's KVTimer object (script/globals.mjs).
///
/// Threads    the engine's.
/// Ownership  the engine's garbage collector deletes it when the script has dropped its KVTimer;
///            the scheduler itself lives on while its timer runs.
/// Errors     a C++ exception becomes a JavaScript one.
///
/// Texts are null where the script passed none; every argument must be given.
class SchedulerObject final : public QObject {
  Q_OBJECT
 public:
  SchedulerObject(ScriptEngine& engine, std::shared_ptr<KVTimer> timer);

  Q_INVOKABLE void runTimer();
  Q_INVOKABLE void stopTimer();
  Q_INVOKABLE void ScheduleTimer();
  Q_INVOKABLE QString getType(int type);
  Q_INVOKABLE QJSValue getDestPathFromArray_Set(const QJSValue& list, const QJSValue& set);
  /// The indexes of the chosen records in `list`.
  Q_INVOKABLE QList<int> sortArrayForNextBackup(const QJSValue& list);
  Q_INVOKABLE bool isTakingPart(const QJSValue& record);
  /// A Date, or null.
  Q_INVOKABLE QJSValue nextDue(const QJSValue& record);
  Q_INVOKABLE void launchKelvaraWithSet(const QJSValue& set);
  Q_INVOKABLE void launchKelvaraScriptWithSet(const QJSValue& set);
  Q_INVOKABLE bool append(const QString& text);
  Q_INVOKABLE void logString(const QJSValue& text);
  Q_INVOKABLE void logString_varstr(const QJSValue& text, const QJSValue& value);
  Q_INVOKABLE void logString_varnt(const QJSValue& text, int value);
  Q_INVOKABLE void logString_varflt(const QJSValue& text, double value);

  /// Null before the first timer, then whether the latest one is valid.
  Q_INVOKABLE QJSValue timer();
  Q_INVOKABLE QJSValue indexNum();
  Q_INVOKABLE QJSValue judgedSet();
  /// Milliseconds since 1970.
  Q_INVOKABLE double ndt();
  Q_INVOKABLE bool debugStarted();
  Q_INVOKABLE QJSValue dbugMenu();
  Q_INVOKABLE void setDbugMenu(const QJSValue& item);

 private:
  TaskList toList(const QJSValue& list);

  ScriptEngine& engine_;
  std::shared_ptr<KVTimer> timer_;
};

}  // namespace kv
