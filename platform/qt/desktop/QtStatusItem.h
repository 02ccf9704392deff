#pragma once

#include <QIcon>
#include <QString>
#include <QSystemTrayIcon>
#include <memory>
#include <vector>

#include "platform/StatusBar.h"
#include "platform/qt/desktop/TrayWatch.h"

namespace kv {

/// An item of the tray. Until somebody can show it, it only keeps what it is to show.
///
/// Threads    main thread only.
/// Ownership  the status bar's; see StatusItem.
class QtStatusItem final : public StatusItem {
 public:
  QtStatusItem();
  ~QtStatusItem() override;
  QtStatusItem(const QtStatusItem&) = delete;
  QtStatusItem& operator=(const QtStatusItem&) = delete;

  /// From now on it is in the tray.
  void showBy(TrayWatch::Road road);
  /// Takes it out of the tray for good.
  void withdraw();
  /// Reads the menu again.
  void refreshMenu();

  // A tray decides by itself on highlights, sizes and texts, and knows no disabled icons and no
  // views.
  void setHighlightMode(bool) override {}
  void setMenu(std::shared_ptr<Menu> menu) override;
  void setEnabled(bool) override {}
  void setImage(std::shared_ptr<const Image> image) override;
  void setLength(double) override {}
  void clearAttributedTitle() override {}
  void setToolTip(const std::string& text) override;
  bool hasView() const override { return false; }
  void removeView() override {}

 private:
  void clicked(QSystemTrayIcon::ActivationReason reason);
  void pick(std::int64_t id);

  QIcon icon_;
  QString toolTip_;
  std::shared_ptr<Menu> menu_;
  std::vector<MenuLine> shownLines_;

  struct Shown;
  /// Deletes later: it may be a click in it that takes the item out of the tray.
  struct DeleteLater {
    void operator()(Shown* shown) const;
  };
  /// What is in the tray; null before there is somebody to show it.
  std::unique_ptr<Shown, DeleteLater> shown_;
};

}  // namespace kv
