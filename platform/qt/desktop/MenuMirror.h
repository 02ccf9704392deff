#pragma once

#include <QAction>
#include <QMenu>
#include <QString>
#include <cstdint>
#include <functional>
#include <vector>

#include "platform/Menu.h"

namespace kv {

/// A QMenu that is kept in step with a menu of the host. What has not changed is not touched, so
/// that a menu which others show over the bus causes no traffic.
///
/// Threads    main thread only.
/// Ownership  owns the QMenu and all below it.
class MenuMirror {
 public:
  /// Who shows the menu: both have marks in labels for the letters that choose a line, and neither
  /// shows a mark as it stands.
  enum class ShownBy { kQt, kBus };

  MenuMirror(ShownBy shownBy, std::function<void(std::int64_t)> pick);
  MenuMirror(const MenuMirror&) = delete;
  MenuMirror& operator=(const MenuMirror&) = delete;
  ~MenuMirror();

  QMenu& menu() { return menu_; }
  void show(const std::vector<MenuLine>& lines) { update(menu_, lines); }

  /// The text as a label that shows it as it stands.
  static QString label(const std::string& text, ShownBy shownBy);

 private:
  void update(QMenu& menu, const std::vector<MenuLine>& lines);
  QAction* insert(QMenu& menu, QAction* before, const MenuLine& line);
  void update(QAction& action, const MenuLine& line);
  void remove(QMenu& menu, QAction* action);

  const ShownBy shownBy_;
  const std::function<void(std::int64_t)> pick_;
  QMenu menu_;
};

}  // namespace kv
