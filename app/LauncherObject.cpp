#include "app/LauncherObject.h"

#include <utility>

namespace kv {

LauncherObject::LauncherObject(ScriptEngine& engine, UtilsSch::Environment environment)
    : engine_(engine), environment_(std::move(environment)) {}

QString LauncherObject::getTmSTring() {
  return engine_.guarded(
      [&] { return QString::fromStdString(UtilsSch::getTmSTring(environment_)); });
}

QString LauncherObject::runAppAlone(const QStringList& list) {
  return launch(&UtilsSch::runAppAlone, list);
}

QString LauncherObject::runApp(const QStringList& list) {
  return launch(&UtilsSch::runApp, list);
}

QString LauncherObject::runScript(const QStringList& list) {
  return launch(&UtilsSch::runScript, list);
}

QString LauncherObject::launch(Operation operation, const QStringList& list) {
  return engine_.guarded([&] {
    UtilsSch::ArgumentList arguments;
    for (const QString& argument : list) arguments.push_back(argument.toStdString());
    return QString::fromStdString(operation(environment_, std::move(arguments)));
  });
}

}  // namespace kv
