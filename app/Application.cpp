#include "app/Application.h"

#include <utility>

#include "app/ApplicationObject.h"
#include "app/LauncherObject.h"
#include "app/LoggingObject.h"
#include "app/ScriptFile.h"
#include "app/TidyRunLoop.h"

namespace kv {

Application::Application(Environment environment, Bundle bundle)
    : environment_(std::move(environment)),
      bundle_(std::move(bundle)),
      engine_(environment_.systemLog),
      menus_(engine_) {
  environment_.scheduler.host = [this] { return host(); };
  environment_.scheduler.runLoop =
      std::make_shared<TidyRunLoop>(std::move(environment_.scheduler.runLoop), [this] {
        engine_.engine().collectGarbage();
        environment_.attend();
        environment_.releaseMemory();
      });
  engine_.setAfterCalls([this] {
    if (!menus_.takeChanged()) return;
    environment_.statusItem.statusBar->refreshMenus();
    environment_.menusChanged();
  });
  defineGlobals();
}

void Application::defineGlobals() {
  QJSEngine& engine = engine_.engine();
  QJSValue program = engine.newObject();
  program.setProperty("application", engine.newQObject(new ApplicationObject(*this)));
  program.setProperty("launcher",
                      engine.newQObject(new LauncherObject(engine_, environment_.launcher)));
  program.setProperty("system", engine.newQObject(new SystemKit(engine_, environment_.system)));
  program.setProperty("version", KV_VERSION);
  program.setProperty("bundlePath", QString::fromStdString(bundle_.path));
  program.setProperty("bundleIdentifier",
                      bundle_.identifier ? QJSValue(QString::fromStdString(*bundle_.identifier))
                                         : QJSValue(QJSValue::NullValue));
  const QJSValue global = engine.globalObject();
  program.setProperty("menus", menus_.object());
  importScriptFile(engine, "logging.mjs")
      .property("connect")
      .call({engine.newQObject(new LoggingObject(engine_, environment_.rehearsalFiles)),
             engine_.describe(), global});
  const QJSValue globals =
      importScriptFile(engine, "globals.mjs").property("connect").call({program, global});
  delegate_ = globals.property("delegate");
  delegateOrigin_ = globals.property("delegateOrigin");
}

void Application::loadScripts() {
  for (const Bundle::Script& script : bundle_.scripts) engine_.run(script);
  if (!delegate() && !exitStatus_) {
    environment_.systemLog->write(bundle_.path +
                                  ": warning: no host script has set application.delegate");
  }
}

void Application::finishLaunching() {
  isRunning_ = true;
  if (const auto host = delegate()) host->applicationDidFinishLaunching();
  engine_.touchMemory();
}

void Application::willTerminate() {
  if (!std::exchange(isRunning_, false)) return;
  if (const auto host = delegate()) host->applicationWillTerminate();
}

std::shared_ptr<ScriptHost> Application::delegate() {
  QJSValue object = delegate_.call();
  if (!object.isObject()) return nullptr;
  return std::make_shared<ScriptHost>(engine_, std::move(object),
                                      delegateOrigin_.call().toString());
}

std::shared_ptr<Host> Application::host() {
  std::shared_ptr<Host> found = delegate();
  return environment_.wrapHost ? environment_.wrapHost(std::move(found)) : found;
}

std::shared_ptr<KVTimer> Application::createScheduler() {
  auto scheduler = KVTimer::create(environment_.scheduler);
  scheduler_ = scheduler;
  return scheduler;
}

bool Application::isTracing() const {
  const auto latest = scheduler();
  return latest != nullptr && latest->isTracing();
}

std::optional<PropertyList> Application::describeState() {
  const auto host = delegate();
  return host == nullptr ? std::nullopt : host->describeState();
}

std::shared_ptr<TAV_StatusItemController> Application::createStatusItemController() {
  return TAV_StatusItemController::create(environment_.statusItem);
}

void Application::terminate(int status) {
  if (exitStatus_) return;
  exitStatus_ = status;
  environment_.quit();
}

}  // namespace kv
