#include "app/ApplicationObject.h"

#include "app/SchedulerObject.h"

namespace kv {

void ApplicationObject::terminate(int status) {
  application_.scripts().guarded([&] { application_.terminate(status); });
}

QObject* ApplicationObject::createScheduler() {
  ScriptEngine& engine = application_.scripts();
  return engine.guarded(
      [&]() -> QObject* { return new SchedulerObject(engine, application_.createScheduler()); });
}

}  // namespace kv
