#include "app/ScriptHost.h"

#include <utility>

#include "app/ScriptError.h"

namespace kv {

ScriptHost::ScriptHost(ScriptEngine& engine, QJSValue delegate, QString origin)
    : engine_(engine), delegate_(std::move(delegate)), origin_(std::move(origin)) {}

void ScriptHost::reloadMenuNow(const TaskList& list) {
  const auto reload = operation("reloadMenuNow");
  try {
    engine_.invoke(delegate_, reload, engine_.values().fromList(list));
  } catch (const ScriptError& error) {
    engine_.reportFault(reload, error.what());
  }
}

std::optional<PropertyList> ScriptHost::checkRunningBackupStatus() {
  return ask(question("checkRunningBackupStatus"));
}

std::optional<PropertyList> ScriptHost::checkBackupStatus() {
  return ask(question("checkBackupStatus"));
}

bool ScriptHost::checkIfDiskExists_fromSchedule(const PropertyList* path, int fromSchedule) {
  const auto check = question("checkIfDiskExists_fromSchedule");
  try {
    const auto answer =
        engine_.invoke(delegate_, check, engine_.values().fromPropertyList(path), fromSchedule);
    return answer && answer->toBool();
  } catch (const ScriptError& error) {
    engine_.reportFault(check, error.what());
    return false;
  }
}

void ScriptHost::backupNow(const PropertyList* set) {
  tell("backupNow", set);
}

void ScriptHost::backupNowViaScript(const PropertyList* set) {
  tell("backupNowViaScript", set);
}

void ScriptHost::applicationDidFinishLaunching() {
  notify("applicationDidFinishLaunching");
}

void ScriptHost::applicationWillTerminate() {
  notify("applicationWillTerminate");
}

std::optional<PropertyList> ScriptHost::describeState() {
  return ask(optional("describeState"));
}

std::optional<PropertyList> ScriptHost::ask(const ScriptEngine::Operation& asked) {
  const auto answer = engine_.invoke(delegate_, asked);
  if (!answer) return std::nullopt;
  try {
    return engine_.values().toPropertyList(*answer);
  } catch (const ScriptError& error) {
    engine_.reportFault(asked, error.what());
    return std::nullopt;
  }
}

void ScriptHost::tell(const char* name, const PropertyList* set) {
  const auto told = operation(name);
  try {
    engine_.invoke(delegate_, told, engine_.values().fromPropertyList(set));
  } catch (const ScriptError& error) {
    engine_.reportFault(told, error.what());
  }
}

void ScriptHost::notify(const char* name) {
  engine_.invoke(delegate_, optional(name));
}

}  // namespace kv
