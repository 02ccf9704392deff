#pragma once

#include <QJSValue>
#include <functional>
#include <memory>
#include <optional>

#include "app/Bundle.h"
#include "app/ScriptEngine.h"
#include "app/ScriptHost.h"
#include "app/ScriptMenus.h"
#include "app/SystemKit.h"
#include "launcher/UtilsSch.h"
#include "scheduler/KVTimer.h"
#include "statusitem/TAV_StatusItemController.h"

namespace kv {

/// The application as its host script sees it: the global objects, the delegate, the bundle, and
/// the way from start to end.
///
/// Loading ──scripts have run──► Loaded ──finishLaunching──► Running ──willTerminate──► Ended
///
/// terminate() asks for the end in any state; whoever runs the event loop looks at exitStatus()
/// before it begins.
///
/// Threads    the thread of the application object.
/// Ownership  owns the script engine. A scheduler that the script made calls back into this object
///            from its timer: the run loop must drop its timers before this object dies.
/// Errors     loadScripts() throws StartupError; a fault of a script after that goes to the system
///            log.
class Application {
 public:
  struct Environment {
    /// Of its members `host` is set by the application.
    KVTimer::Environment scheduler;
    UtilsSch::Environment launcher;
    TAV_StatusItemController::Environment statusItem;
    SystemKit::Environment system;
    std::shared_ptr<SystemLog> systemLog;
    /// Gives back what memory is free inside of the process. After each tick: nearly a minute of
    /// idling follows.
    std::function<void()> releaseMemory = [] {};
    /// After each tick too.
    std::function<void()> attend = [] {};
    /// What the script shows in its menus has changed, and it is done with changing it.
    std::function<void()> menusChanged = [] {};
    /// Stands between the scheduler and the delegate; null for nothing between.
    std::function<std::shared_ptr<Host>(std::shared_ptr<Host>)> wrapHost = nullptr;
    /// Null, save in a rehearsal: the file system for the script's log files. The script may make
    /// loggers then, but none is added, so that nothing is logged.
    std::shared_ptr<Files> rehearsalFiles = nullptr;
    /// Makes the event loop return; without effect before it runs.
    std::function<void()> quit;
  };

  Application(Environment environment, Bundle bundle);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  /// Runs the bundle's scripts in order. Without a delegate afterwards the system log warns.
  void loadScripts();

  /// Tells the delegate that the event loop runs.
  void finishLaunching();

  /// Tells the delegate of the end, when it was told of the beginning.
  void willTerminate();

  /// The delegate of this moment; null when the script has set no object.
  std::shared_ptr<ScriptHost> delegate();

  /// A new scheduler, already running; the script's KVTimer constructor.
  std::shared_ptr<KVTimer> createScheduler();

  /// The scheduler that was made last; null when it is gone or none was.
  std::shared_ptr<KVTimer> scheduler() const { return scheduler_.lock(); }

  /// Whether the scheduler that was made last, if it is still there, writes the trace.
  bool isTracing() const;

  /// What the host tells of itself when it is asked (docs/host-script.md); nothing when it does
  /// not.
  std::optional<PropertyList> describeState();

  /// The script's TAV_StatusItemController constructor.
  std::shared_ptr<TAV_StatusItemController> createStatusItemController();

  /// Ends the application with `status`; of several calls the first counts.
  void terminate(int status);

  /// Present once the end has been asked for.
  std::optional<int> exitStatus() const { return exitStatus_; }

  ScriptEngine& scripts() { return engine_; }
  ScriptMenus& menus() { return menus_; }

 private:
  void defineGlobals();
  std::shared_ptr<Host> host();

  Environment environment_;
  Bundle bundle_;
  ScriptEngine engine_;
  ScriptMenus menus_;
  QJSValue delegate_;
  QJSValue delegateOrigin_;
  std::weak_ptr<KVTimer> scheduler_;
  std::optional<int> exitStatus_;
  bool isRunning_ = false;
};

}  // namespace kv
