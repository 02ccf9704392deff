#include "app/StatusItemObject.h"

#include <utility>

namespace kv {

StatusItemObject::StatusItemObject(ScriptEngine& engine, ScriptMenus& menus,
                                   std::shared_ptr<TAV_StatusItemController> controller)
    : engine_(engine), menus_(menus), controller_(std::move(controller)) {}

void StatusItemObject::createStatusItemWithMenu() {
  engine_.guarded([&] { controller_->createStatusItemWithMenu(); });
}

void StatusItemObject::updateDisplay() {
  engine_.guarded([&] { controller_->updateDisplay(); });
}

void StatusItemObject::updateAnimation(int mode) {
  engine_.guarded([&] { controller_->updateAnimation(mode); });
}

void StatusItemObject::toggleIconAnimation(bool animates) {
  engine_.guarded([&] { controller_->toggleIconAnimation(animates); });
}

void StatusItemObject::updateIcon() {
  engine_.guarded([&] { controller_->updateIcon(); });
}

void StatusItemObject::releaseStatusItem() {
  engine_.guarded([&] { controller_->releaseStatusItem(); });
}

void StatusItemObject::setMenu(const QJSValue& menu) {
  engine_.guarded([&] {
    controller_->menu = menus_.menu(menu);
    menu_ = menu;
  });
}

void StatusItemObject::setDynmenu(const QJSValue& menu) {
  engine_.guarded([&] {
    controller_->dynmenu = menus_.menu(menu);
    dynmenu_ = menu;
  });
}

}  // namespace kv
