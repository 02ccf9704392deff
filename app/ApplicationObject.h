#pragma once

#include <QObject>

#include "app/Application.h"

namespace kv {

/// What stands behind a script's `application`, and its constructors of KVTimer and
/// TAV_StatusItemController (script/globals.mjs).
/// Threads: the engine's. Belongs to the engine. A C++ exception becomes a JavaScript one.
class ApplicationObject final : public QObject {
  Q_OBJECT
 public:
  explicit ApplicationObject(Application& application) : application_(application) {}

  Q_INVOKABLE void terminate(int status);
  /// A SchedulerObject, which belongs to the engine.
  Q_INVOKABLE QObject* createScheduler();
  /// A StatusItemObject, which belongs to the engine.
  Q_INVOKABLE QObject* createStatusItemController();

 private:
  Application& application_;
};

}  // namespace kv
