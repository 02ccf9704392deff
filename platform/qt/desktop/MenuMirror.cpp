#include "platform/qt/desktop/MenuMirror.h"

#include <algorithm>
#include <utility>

namespace kv {
namespace {

std::int64_t idOf(const QAction& action) {
  return action.data().toLongLong();
}

bool isSameKind(const QAction& action, const MenuLine& line) {
  return idOf(action) == line.id && action.isSeparator() == line.isSeparator &&
         (action.menu() != nullptr) == line.hasSubmenu;
}

}  // namespace

MenuMirror::MenuMirror(ShownBy shownBy, std::function<void(std::int64_t)> pick)
    : shownBy_(shownBy), pick_(std::move(pick)) {}

MenuMirror::~MenuMirror() {
  update(menu_, {});
}

QString MenuMirror::label(const std::string& text, ShownBy shownBy) {
  QString label = QString::fromStdString(text);
  if (shownBy == ShownBy::kQt) return label.replace('&', "&&");
  // On its way to the bus Qt makes a mark there, "_", of the first "&"; the others stay. Beside a
  // mark GTK's panels lose each "__", which stands for "_".
  const qsizetype underscore = label.indexOf('_');
  label.replace('_', "__");
  if (underscore < 0) {
    const qsizetype first = label.indexOf('&');
    if (first >= 0 && first + 1 < label.size()) label.insert(first, '&');
    return label;
  }
  // So there is to be no mark: Qt makes half of the first "__" instead, and what "&" stand before
  // it are shown by the wide sign.
  constexpr char16_t kWideAmpersand = 0xff06;
  for (qsizetype index = 0; index < underscore; ++index) {
    if (label[index] == '&') label[index] = QChar(kWideAmpersand);
  }
  if (label.contains('&')) label[underscore + 1] = '&';
  return label;
}

void MenuMirror::update(QMenu& menu, const std::vector<MenuLine>& lines) {
  const auto isStillThere = [&lines](const QAction* action) {
    return std::any_of(lines.begin(), lines.end(),
                       [action](const MenuLine& line) { return isSameKind(*action, line); });
  };
  for (QAction* action : menu.actions()) {
    if (!isStillThere(action)) remove(menu, action);
  }
  for (std::size_t index = 0; index < lines.size(); ++index) {
    const MenuLine& line = lines[index];
    const QList<QAction*> actions = menu.actions();
    const auto place = static_cast<qsizetype>(index);
    QAction* action = place < actions.size() ? actions[place] : nullptr;
    if (action == nullptr || !isSameKind(*action, line)) {
      // A line that has moved up is made anew.
      for (QAction* moved : actions.mid(place)) {
        if (idOf(*moved) == line.id) remove(menu, moved);
      }
      const QList<QAction*> left = menu.actions();
      action = insert(menu, place < left.size() ? left[place] : nullptr, line);
    } else {
      update(*action, line);
    }
    if (line.hasSubmenu) update(*action->menu(), line.submenu);
  }
}

QAction* MenuMirror::insert(QMenu& menu, QAction* before, const MenuLine& line) {
  auto* const action = new QAction(&menu);
  action->setData(QVariant::fromValue<qlonglong>(line.id));
  action->setSeparator(line.isSeparator);
  if (line.hasSubmenu) action->setMenu(new QMenu(&menu));
  QObject::connect(action, &QAction::triggered, action, [this, action] {
    // Qt has taken the mark away; the mark is the host's to change.
    if (action->isCheckable()) action->setChecked(true);
    pick_(idOf(*action));
  });
  update(*action, line);
  menu.insertAction(before, action);
  return action;
}

void MenuMirror::update(QAction& action, const MenuLine& line) {
  const QString text = label(line.title, shownBy_);
  if (action.text() != text) action.setText(text);
  action.setEnabled(line.isEnabled);
  if (action.isChecked() != line.isChecked || action.isCheckable() != line.isChecked) {
    action.setCheckable(line.isChecked);
    action.setChecked(line.isChecked);
  }
}

void MenuMirror::remove(QMenu& menu, QAction* action) {
  menu.removeAction(action);
  QMenu* const submenu = action->menu();
  action->deleteLater();  // it may be the one whose picking changes the menu
  if (submenu == nullptr) return;
  // The tray's side of a line is freed when the line is removed, not when its menu ends.
  update(*submenu, {});
  submenu->deleteLater();
}

}  // namespace kv
