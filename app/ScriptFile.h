#pragma once

#include <QJSEngine>
#include <QJSValue>

namespace kv {

/// Where the program's own JavaScript files lie among its resources; stack frames in them are not
/// the host script's.
inline constexpr char kScriptFiles[] = "qrc:/kv/script/";

/// Runs script/`name`, one of the program's own files, and yields the value of its one expression.
/// Threads: the engine's. A fault in such a file is ours and ends the program.
QJSValue evaluateScriptFile(QJSEngine& engine, const char* name);

}  // namespace kv
