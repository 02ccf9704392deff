#pragma once

#include <QObject>
#include <QString>
#include <QStringList>

#include "app/ScriptEngine.h"
#include "launcher/UtilsSch.h"

namespace kv {

/// What stands behind a script's UtilsSch (script/globals.mjs).
/// Threads: the engine's. Belongs to the engine. A C++ exception becomes a JavaScript one.
class LauncherObject final : public QObject {
  Q_OBJECT
 public:
  LauncherObject(ScriptEngine& engine, UtilsSch::Environment environment);

  Q_INVOKABLE QString getTmSTring();
  Q_INVOKABLE QString runAppAlone(const QStringList& list);
  Q_INVOKABLE QString runApp(const QStringList& list);
  Q_INVOKABLE QString runScript(const QStringList& list);

 private:
  using Operation = std::string (*)(const UtilsSch::Environment&, UtilsSch::ArgumentList);
  QString launch(Operation operation, const QStringList& list);

  ScriptEngine& engine_;
  UtilsSch::Environment environment_;
};

}  // namespace kv
