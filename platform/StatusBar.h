#pragma once

#include <memory>
#include <string>

#include "platform/Menu.h"

namespace kv {

/// A picture that a status item can show.
///
/// Threads    main thread only.
/// Ownership  shared by whoever shows it; the platform may keep the pixels once for all copies.
class Image {
 public:
  virtual ~Image() = default;
  /// Another object with the same picture.
  virtual std::shared_ptr<const Image> copy() const = 0;
};

/// One icon of this program in the desktop's status bar ("tray").
///
/// Threads    main thread only.
/// Ownership  the status bar holds it until it is removed there; letting go of it changes nothing.
/// Errors     none: what the desktop cannot show is not shown.
class StatusItem {
 public:
  virtual ~StatusItem() = default;

  virtual void setHighlightMode(bool highlights) = 0;
  /// The menu that opens at a click; null for none. It is read whenever it may have changed.
  virtual void setMenu(std::shared_ptr<Menu> menu) = 0;
  virtual void setEnabled(bool isEnabled) = 0;
  /// Null shows no icon.
  virtual void setImage(std::shared_ptr<const Image> image) = 0;
  /// In points, or one of the constants of StatusBar.
  virtual void setLength(double length) = 0;
  virtual void clearAttributedTitle() = 0;
  virtual void setToolTip(const std::string& text) = 0;
  /// A view of the host's own in place of the icon.
  virtual bool hasView() const = 0;
  virtual void removeView() = 0;
};

/// The desktop's status bar as far as this program has items in it.
///
/// Threads    main thread only.
/// Errors     none: without a bar, items are kept and not seen.
class StatusBar {
 public:
  static constexpr double kVariableLength = -1.0;
  static constexpr double kSquareLength = -2.0;

  virtual ~StatusBar() = default;

  /// A new item, which stays in the bar until it is removed.
  virtual std::shared_ptr<StatusItem> statusItemWithLength(double length) = 0;
  virtual void removeStatusItem(const StatusItem& item) = 0;

  /// The application's picture of that name, the same object each time; null when it has none.
  virtual std::shared_ptr<const Image> imageNamed(const std::string& name) = 0;

  /// Menus may have changed: those that are shown are read again.
  virtual void refreshMenus() = 0;
};

}  // namespace kv
