#pragma once

#include <QJSEngine>
#include <QJSValue>

namespace kv {

/// Where the program's own JavaScript files lie among its resources; stack frames in them are not
/// the host script's. Those of a file that the build has compiled have the file's bare name.
inline constexpr char kScriptFiles[] = "qrc:/kv/script/";

/// Imports script/`name`, one of the program's own files, and yields the object with what it
/// exports. They are modules because the engine keeps the places of properties for a module's code,
/// which makes it faster, but looks up each anew in what is evaluated.
/// Threads: the engine's. A fault in such a file is ours and ends the program.
QJSValue importScriptFile(QJSEngine& engine, const char* name);

}  // namespace kv
