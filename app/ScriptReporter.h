#pragma once

#include <QObject>
#include <QString>

#include "app/ScriptEngine.h"

namespace kv {

/// The program's side of script/calls.mjs: hears of faults and of what the console is told.
/// Threads: the engine's. Belongs to the engine.
class ScriptReporter final : public QObject {
  Q_OBJECT
 public:
  explicit ScriptReporter(ScriptEngine& engine) : engine_(engine) {}

  Q_INVOKABLE void missing();
  Q_INVOKABLE void threw(const QString& text, const QString& stack);
  Q_INVOKABLE void log(const QString& level, const QString& text, const QString& stack);

 private:
  ScriptEngine& engine_;
};

}  // namespace kv
