#include "platform/qt/desktop/QtStatusItem.h"

#include <QCursor>
#include <QObject>
#include <QPixmap>
#include <functional>
#include <utility>

#include "platform/qt/desktop/ImageFiles.h"
#include "platform/qt/desktop/MenuMirror.h"

namespace kv {
namespace {

/// What is shown for no icon: a tray icon without any picture would not be kept in the tray.
const QIcon& noIcon() {
  static const QIcon icon = [] {
    constexpr int kPixels = 22;
    QPixmap nothing(kPixels, kPixels);
    nothing.fill(Qt::transparent);
    return QIcon(nothing);
  }();
  return icon;
}

}  // namespace

/// The item in the tray.
struct QtStatusItem::Shown : public QObject {
  Shown(MenuMirror::ShownBy shownBy, const std::function<void(std::int64_t)>& pick)
      : trayMenu(shownBy, pick), clickMenu(MenuMirror::ShownBy::kQt, pick) {}

  /// The menu that the tray shows.
  MenuMirror trayMenu;
  /// The menu of a left click, which this program shows itself.
  MenuMirror clickMenu;
  /// Declared last: it refers to the tray's menu.
  QSystemTrayIcon trayIcon;
};

void QtStatusItem::DeleteLater::operator()(Shown* shown) const {
  shown->disconnect();
  shown->trayIcon.hide();
  shown->deleteLater();
}

QtStatusItem::QtStatusItem() = default;
QtStatusItem::~QtStatusItem() = default;

void QtStatusItem::showBy(TrayWatch::Road road) {
  const bool isByBus = road == TrayWatch::Road::kBus;
  shown_.reset(new Shown(isByBus ? MenuMirror::ShownBy::kBus : MenuMirror::ShownBy::kQt,
                         [this](std::int64_t id) { pick(id); }));
  shownLines_ = menu_ ? menu_->lines() : std::vector<MenuLine>();
  shown_->trayMenu.show(shownLines_);
  QSystemTrayIcon& trayIcon = shown_->trayIcon;
  trayIcon.setIcon(icon_.isNull() ? noIcon() : icon_);
  trayIcon.setToolTip(toolTip_);
  trayIcon.setContextMenu(&shown_->trayMenu.menu());
  QObject::connect(&trayIcon, &QSystemTrayIcon::activated, &trayIcon,
                   [this](QSystemTrayIcon::ActivationReason reason) { clicked(reason); });
  trayIcon.show();
}

void QtStatusItem::withdraw() {
  shown_.reset();
}

void QtStatusItem::setMenu(std::shared_ptr<Menu> menu) {
  menu_ = std::move(menu);
  refreshMenu();
}

void QtStatusItem::refreshMenu() {
  if (shown_ == nullptr) return;
  auto lines = menu_ ? menu_->lines() : std::vector<MenuLine>();
  if (lines == shownLines_) return;
  shownLines_ = std::move(lines);
  shown_->trayMenu.show(shownLines_);
  if (shown_->clickMenu.menu().isVisible()) shown_->clickMenu.show(shownLines_);
}

void QtStatusItem::setImage(std::shared_ptr<const Image> image) {
  // All images of a status item come from the status bar that made it.
  icon_ = image ? static_cast<const QtImage&>(*image).icon() : QIcon();
  if (shown_) shown_->trayIcon.setIcon(icon_.isNull() ? noIcon() : icon_);
}

void QtStatusItem::setToolTip(const std::string& text) {
  const QString toolTip = QString::fromStdString(text);
  if (toolTip == toolTip_) return;
  toolTip_ = toolTip;
  if (shown_) shown_->trayIcon.setToolTip(toolTip_);
}

void QtStatusItem::clicked(QSystemTrayIcon::ActivationReason reason) {
  if (reason != QSystemTrayIcon::Trigger || shownLines_.empty()) return;
  shown_->clickMenu.show(shownLines_);
  shown_->clickMenu.menu().popup(QCursor::pos());
}

void QtStatusItem::pick(std::int64_t id) {
  const auto menu = menu_;  // picking may change everything here
  if (menu != nullptr) menu->pick(id);
}

}  // namespace kv
