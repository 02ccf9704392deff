#include "app/ScriptMenus.h"

#include "app/MenuNotice.h"
#include "app/ScriptFile.h"

namespace kv {
namespace {

/// The lines as linesOf() of menus.mjs answers them.
std::vector<MenuLine> toLines(const QJSValue& list) {
  enum Column { kId, kTitle, kIsChecked, kIsEnabled, kIsSeparator, kSubmenu };
  std::vector<MenuLine> lines;
  const quint32 count = list.property("length").toUInt();
  lines.reserve(count);
  for (quint32 index = 0; index < count; ++index) {
    const QJSValue line = list.property(index);
    const QJSValue submenu = line.property(kSubmenu);
    lines.push_back({.id = static_cast<std::int64_t>(line.property(kId).toNumber()),
                     .title = line.property(kTitle).toString().toStdString(),
                     .isChecked = line.property(kIsChecked).toBool(),
                     .isEnabled = line.property(kIsEnabled).toBool(),
                     .isSeparator = line.property(kIsSeparator).toBool(),
                     .hasSubmenu = submenu.isArray(),
                     .submenu = toLines(submenu)});
  }
  return lines;
}

}  // namespace

class ScriptMenus::ScriptMenu final : public Menu {
 public:
  ScriptMenu(ScriptMenus& menus, QJSValue object) : menus_(menus), object_(std::move(object)) {}

  std::vector<MenuLine> lines() override {
    return toLines(menus_.object_.property("linesOf").call({object_}));
  }

  void pick(std::int64_t id) override {
    const QJSValue action =
        menus_.object_.property("actionOf").call({object_, static_cast<double>(id)});
    if (action.isCallable()) menus_.engine_.invokeFunction("NSMenuItem.action", action);
  }

 private:
  ScriptMenus& menus_;
  QJSValue object_;
};

ScriptMenus::ScriptMenus(ScriptEngine& engine) : engine_(engine) {
  QJSEngine& scripts = engine.engine();
  const QJSValue notice = scripts.newQObject(new MenuNotice(hasChanged_));
  object_ = importScriptFile(scripts, "menus.mjs")
                .property("connect")
                .call({notice, scripts.globalObject()});
}

std::shared_ptr<Menu> ScriptMenus::menu(const QJSValue& object) {
  return object.isObject() ? std::make_shared<ScriptMenu>(*this, object) : nullptr;
}

}  // namespace kv
