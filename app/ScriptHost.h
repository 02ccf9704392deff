#pragma once

#include <QJSValue>
#include <QString>

#include "app/Host.h"
#include "app/ScriptEngine.h"

namespace kv {

/// The host as a script defines it: one object that has the six operations.
///
/// It is bound to the object that was the delegate when it was made: a script that sets another
/// one in the middle of a tick changes the next tick, not this one.
///
/// Threads    the engine's.
/// Ownership  keeps the object alive; must not be called after the engine is gone.
/// Errors     see Host: an operation that is missing or throws answers nothing, and the system
///            log says which one, in which file and line.
class ScriptHost final : public Host {
 public:
  /// `origin` is the stack at which the script set the delegate.
  ScriptHost(ScriptEngine& engine, QJSValue delegate, QString origin);

  void reloadMenuNow(const TaskList& list) override;
  std::optional<PropertyList> checkRunningBackupStatus() override;
  std::optional<PropertyList> checkBackupStatus() override;
  bool checkIfDiskExists_fromSchedule(const PropertyList* path, int fromSchedule) override;
  void backupNow(const PropertyList* set) override;
  void backupNowViaScript(const PropertyList* set) override;

  // Not asked for by the scheduler but by the application; a delegate need not have them.
  void applicationDidFinishLaunching();
  void applicationWillTerminate();
  /// What the host tells other programs of itself; nothing when it does not.
  std::optional<PropertyList> describeState();

 private:
  ScriptEngine::Operation operation(const char* name) const { return {name, origin_}; }
  ScriptEngine::Operation optional(const char* name) const { return {name, origin_, true}; }
  ScriptEngine::Operation question(const char* name) const { return {name, origin_, false, true}; }
  std::optional<PropertyList> ask(const ScriptEngine::Operation& asked);
  void tell(const char* name, const PropertyList* set);
  void notify(const char* name);

  ScriptEngine& engine_;
  QJSValue delegate_;
  QString origin_;
};

}  // namespace kv
