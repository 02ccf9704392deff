#include "app/ScriptFile.h"

#include <QString>
#include <QtGlobal>

/// Else nothing refers to their code, and the linker leaves it out. In no namespace, as the macro
/// wants it.
static void keepCompiledScripts() {
  Q_INIT_RESOURCE(kv_compiled_scripts);
}

namespace kv {

QJSValue importScriptFile(QJSEngine& engine, const char* name) {
  keepCompiledScripts();
  const QJSValue module = engine.importModule(QString(":/kv/script/") + name);
  if (module.isError()) {
    qFatal("%s:%d: %s", name, module.property("lineNumber").toInt(), qPrintable(module.toString()));
  }
  return module;
}

}  // namespace kv
