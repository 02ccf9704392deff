#include "platform/qt/desktop/QtStatusBar.h"

#include <algorithm>
#include <utility>

namespace kv {

QtStatusBar::QtStatusBar(std::string images, DesktopModule::GreetBus greetBus)
    : images_(std::move(images)), greetBus_(std::move(greetBus)) {}

QtStatusBar::~QtStatusBar() {
  for (const auto& item : items_) item->withdraw();
}

std::shared_ptr<StatusItem> QtStatusBar::statusItemWithLength(double /*length*/) {
  const auto item = items_.emplace_back(std::make_shared<QtStatusItem>());
  if (road_) {
    item->showBy(*road_);
  } else if (!watch_) {
    const auto show = [this](TrayWatch::Road road) {
      road_ = road;
      for (const auto& waiting : items_) waiting->showBy(road);
    };
    watch_.emplace(show, greetBus_);
  }
  return item;
}

void QtStatusBar::removeStatusItem(const StatusItem& item) {
  const auto found = std::find_if(items_.begin(), items_.end(),
                                  [&item](const auto& known) { return known.get() == &item; });
  if (found == items_.end()) return;
  (*found)->withdraw();
  items_.erase(found);
}

std::shared_ptr<const Image> QtStatusBar::imageNamed(const std::string& name) {
  return images_.named(name);
}

void QtStatusBar::refreshMenus() {
  for (const auto& item : items_) item->refreshMenu();
}

}  // namespace kv
