#include "app/ScriptReporter.h"

#include <QStringList>

namespace kv {

void ScriptReporter::missing() {
  engine_.guarded([&] { engine_.operationMissing(); });
}

void ScriptReporter::threw(const QString& text, const QString& stack) {
  engine_.guarded([&] { engine_.operationFailed(stack, text.toStdString()); });
}

void ScriptReporter::log(const QString& level, const QString& text, const QString& stack) {
  engine_.guarded([&] {
    std::string prefix = ScriptEngine::locationInScript(stack) + ": ";
    if (level == "warn") prefix += "warning: ";
    if (level == "error") prefix += "error: ";
    const QStringList lines = text.split('\n');
    for (const QString& line : lines) engine_.systemLog().write(prefix + line.toStdString());
  });
}

}  // namespace kv
