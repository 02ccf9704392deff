#pragma once

#include <QJSValue>
#include <QObject>
#include <memory>

#include "app/ScriptEngine.h"
#include "app/ScriptMenus.h"
#include "statusitem/TAV_StatusItemController.h"

namespace kv {

/// What stands behind a script's TAV_StatusItemController object (script/globals.mjs).
///
/// Threads    the engine's.
/// Ownership  the engine's garbage collector deletes it when the script has dropped its object;
///            the controller itself lives on while it animates, and its icon stays.
/// Errors     a C++ exception becomes a JavaScript one.
class StatusItemObject final : public QObject {
  Q_OBJECT
 public:
  StatusItemObject(ScriptEngine& engine, ScriptMenus& menus,
                   std::shared_ptr<TAV_StatusItemController> controller);

  Q_INVOKABLE void createStatusItemWithMenu();
  Q_INVOKABLE void updateDisplay();
  Q_INVOKABLE void updateAnimation(int mode);
  Q_INVOKABLE void toggleIconAnimation(bool animates);
  Q_INVOKABLE void updateIcon();
  Q_INVOKABLE void releaseStatusItem();

  /// NSMenu objects, or null.
  Q_INVOKABLE QJSValue menu() { return menu_; }
  Q_INVOKABLE void setMenu(const QJSValue& menu);
  Q_INVOKABLE QJSValue dynmenu() { return dynmenu_; }
  Q_INVOKABLE void setDynmenu(const QJSValue& menu);

  Q_INVOKABLE bool hasStatusItem() { return controller_->statusItem() != nullptr; }
  Q_INVOKABLE bool isAnimating() { return controller_->animationTimer() != nullptr; }
  Q_INVOKABLE int updateCount() { return controller_->updateCount(); }

 private:
  ScriptEngine& engine_;
  ScriptMenus& menus_;
  std::shared_ptr<TAV_StatusItemController> controller_;
  QJSValue menu_{QJSValue::NullValue};
  QJSValue dynmenu_{QJSValue::NullValue};
};

}  // namespace kv
