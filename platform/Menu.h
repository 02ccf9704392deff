#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kv {

/// One line of a menu as it is shown; a plain value.
struct MenuLine {
  /// The same for as long as the line is the same item; no two lines of a menu share it.
  std::int64_t id = 0;
  /// UTF-8, one line, shown as it stands.
  std::string title;
  bool isChecked = false;
  bool isEnabled = true;
  bool isSeparator = false;
  /// Whether the line opens `submenu`, which may be empty.
  bool hasSubmenu = false;
  std::vector<MenuLine> submenu;

  bool operator==(const MenuLine&) const = default;
};

/// A menu of the host.
///
/// Threads    main thread only.
/// Ownership  shared by the host and by whoever shows it.
/// Errors     none: a menu that cannot be read is empty.
class Menu {
 public:
  virtual ~Menu() = default;
  /// What it shows now, from the top.
  virtual std::vector<MenuLine> lines() = 0;
  /// The user has picked that line, here or in a submenu. A line that is gone does nothing.
  virtual void pick(std::int64_t id) = 0;
};

}  // namespace kv
