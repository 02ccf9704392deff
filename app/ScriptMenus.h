#pragma once

#include <QJSValue>
#include <memory>
#include <utility>

#include "app/ScriptEngine.h"
#include "platform/Menu.h"

namespace kv {

/// The menus that a host script makes (script/menus.mjs), as the program sees them.
///
/// Threads    the engine's.
/// Ownership  must not be used after the engine; a menu keeps the script's object alive.
/// Errors     none: a menu that cannot be read is empty.
class ScriptMenus {
 public:
  explicit ScriptMenus(ScriptEngine& engine);

  /// The functions that script/menus.mjs answers with.
  const QJSValue& object() const { return object_; }

  /// A script's NSMenu; null for null.
  std::shared_ptr<Menu> menu(const QJSValue& object);

  /// Whether any menu or item has changed since the last time.
  bool takeChanged() { return std::exchange(*hasChanged_, false); }

 private:
  class ScriptMenu;

  ScriptEngine& engine_;
  std::shared_ptr<bool> hasChanged_ = std::make_shared<bool>(false);
  QJSValue object_;
};

}  // namespace kv
