#include "platform/qt/SessionBus.h"

#include <QFile>
#include <QtGlobal>

namespace kv {

bool hasSessionBus() {
  if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")) return true;
  const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
  return !runtime.isEmpty() && QFile::exists(runtime + "/bus");
}

}  // namespace kv
