#include "app/ApplicationObject.h"

#include "app/SchedulerObject.h"
#include "app/StatusItemObject.h"

namespace kv {

void ApplicationObject::terminate(int status) {
  application_.scripts().guarded([&] { application_.terminate(status); });
}

QObject* ApplicationObject::createScheduler() {
  ScriptEngine& engine = application_.scripts();
  return engine.guarded(
      [&]() -> QObject* { return new SchedulerObject(engine, application_.createScheduler()); });
}

QObject* ApplicationObject::createStatusItemController() {
  ScriptEngine& engine = application_.scripts();
  return engine.guarded([&]() -> QObject* {
    return new StatusItemObject(engine, application_.menus(),
                                application_.createStatusItemController());
  });
}

}  // namespace kv
