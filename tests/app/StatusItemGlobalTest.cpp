#include <gmock/gmock.h>

#include "tests/app/ScriptWorld.h"

namespace kv::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char kTwoItems[] = R"(
    var controller = new TAV_StatusItemController();
    var menu = controller.menu = new NSMenu('main');
    var first = menu.addItem(new NSMenuItem('one', item => { item.state = item.state ? 0 : 1; }));
    var second = menu.addItem(new NSMenuItem('two'));
    second.submenu = new NSMenu();
    var inner = second.submenu.addItem(new NSMenuItem('inner', () => { throw new Error('oops'); }));
    controller.createStatusItemWithMenu();)";

struct MenuWorld : ScriptWorld {
  MenuWorld() { script(kTwoItems); }
  Menu& menu() { return *statusBar->items.front()->menu; }
  /// The lines in words, those of submenus in brackets.
  static std::string words(const std::vector<MenuLine>& lines) {
    std::string text;
    for (const MenuLine& line : lines) {
      text += (line.isChecked ? "+" : "") + (line.isSeparator ? "--" : line.title) +
              (line.isEnabled ? "" : "!") +
              (line.hasSubmenu ? "[" + words(line.submenu) + "]" : "") + ";";
    }
    return text;
  }
  std::string shown() { return words(menu().lines()); }
};

TEST(StatusItemGlobal, HasTheOperationsAndFieldsOfTheController) {
  MenuWorld world;
  EXPECT_EQ(world.show("[controller.statusItem, controller.animationTimer, controller.updateCount,"
                       " controller.menu === menu, controller.dynmenu].join()"),
            "true,,0,true,");
  world.script("controller.updateAnimation(2); controller.dynmenu = second.submenu;");
  world.runLoop->advance(Seconds(2));
  EXPECT_EQ(world.show("[controller.animationTimer, controller.updateCount].join()"), "true,3");
  world.script("controller.updateIcon(null); controller.toggleIconAnimation(0);");
  EXPECT_EQ(world.show("[controller.animationTimer, controller.updateCount].join()"), ",4");
  world.script("controller.releaseStatusItem(); controller.updateDisplay();");
  EXPECT_THAT(world.statusBar->items, IsEmpty());
  EXPECT_THAT(world.show("controller.menu = {}"), HasSubstr("TypeError"));
  EXPECT_THAT(world.show("controller.updateDisplay.call(menu)"), HasSubstr("TypeError"));
}

TEST(StatusItemGlobal, AnimatesOnWhenTheScriptHasDroppedIt) {
  MenuWorld world;
  world.script("controller.updateAnimation(2); controller = null;");
  world.collectGarbage();
  world.statusBar->calls.clear();
  world.runLoop->advance(Seconds(1));
  EXPECT_THAT(world.statusBar->calls, ElementsAre("image copy of kvuA1"));
}

TEST(Menus, ShowWhatTheScriptHasMade) {
  const std::pair<const char*, const char*> kCases[] = {
      {"", "one;two[inner;];"},
      {"first.title = 'a\\n\\u0000b & _c'", "a b & _c;two[inner;];"},
      {"first.enabled = false; inner.state = '1'", "one!;two[+inner;];"},
      {"first.state = {valueOf() { throw 'no'; }}", "one;two[inner;];"},
      {"menu.insertItem(NSMenuItem.separatorItem(), 1)", "one;--!;two[inner;];"},
      {"menu.insertItem(inner, -5)", "inner;one;two[];"},
      {"menu.items.push(5)", "one;two[inner;];"},
      {"menu.items = 5", ""},
      {"menu.removeAllItems(); first.title = 'alone'", ""},
      {"second.submenu = null", "one;two;"},
      {"first.title = 'x'.repeat(9); second.title = null", "xxxxxxxxx;[inner;];"},
  };
  for (const auto& [change, lines] : kCases) {
    MenuWorld world;
    world.script(change);
    EXPECT_EQ(world.shown(), lines) << change;
  }
}

TEST(Menus, EndSomewhereWhenTheyHoldThemselves) {
  MenuWorld world;
  world.script("second.submenu.addItem(new NSMenuItem('again')).submenu = menu;");
  EXPECT_LT(world.shown().size(), 200u);
  world.menu().pick(-1);
}

TEST(Menus, AreReadAgainWhenTheScriptIsDone) {
  MenuWorld world;
  const int before = world.statusBar->refreshes;
  world.script("first.title = 'one'; menu.removeItem({}); first.enabled = true;");
  EXPECT_EQ(world.statusBar->refreshes, before) << "nothing has changed";
  world.script("first.title = 'changed'; first.title = 'again'; second.enabled = false;");
  EXPECT_EQ(world.statusBar->refreshes, before + 1);
}

TEST(Menus, RunWhatTheUserPicks) {
  MenuWorld world;
  const auto lines = world.menu().lines();
  world.menu().pick(lines[0].id);
  EXPECT_EQ(world.shown(), "+one;two[inner;];");
  EXPECT_EQ(world.statusBar->refreshes, 2);  // once when the script was loaded
  world.menu().pick(lines[1].submenu[0].id);
  EXPECT_THAT(world.log(), ElementsAre(HasSubstr("host.js:7: NSMenuItem.action: Error: oops")));
  world.menu().pick(lines[1].id);  // has no action
  world.script("first.enabled = false; menu.removeItem(second);");
  for (const MenuLine& gone : lines) world.menu().pick(gone.id);
  EXPECT_EQ(world.shown(), "+one!;");
}

}  // namespace
}  // namespace kv::test
