#include "app/ScriptFile.h"

#include <QFile>
#include <QString>

namespace kv {

QJSValue evaluateScriptFile(QJSEngine& engine, const char* name) {
  const QString path = QString(":/kv/script/") + name;  // its URL begins with kScriptFiles
  QFile file(path);
  if (!file.open(QIODevice::ReadOnly)) qFatal("%s is missing", name);
  QJSValue value = engine.evaluate(QString::fromUtf8(file.readAll()), path);
  if (value.isError()) {
    qFatal("%s:%d: %s", name, value.property("lineNumber").toInt(), qPrintable(value.toString()));
  }
  return value;
}

}  // namespace kv
