#include "app/ScriptFile.h"

#include <QString>

namespace kv {

QJSValue importScriptFile(QJSEngine& engine, const char* name) {
  const QJSValue module = engine.importModule(QString(":/kv/script/") + name);
  if (module.isError()) {
    qFatal("%s:%d: %s", name, module.property("lineNumber").toInt(), qPrintable(module.toString()));
  }
  return module;
}

}  // namespace kv
