"""The agent in a real panel, as a user sees it."""

import unittest

import pictures
from panel import Panel, Screen
from session import Session, SessionTest, wait_for

HOST = """
const icon = new TAV_StatusItemController();
const menu = icon.menu = new NSMenu();
const add = (title, action) => menu.addItem(new NSMenuItem(title, action));
application.delegate = {
  applicationDidFinishLaunching() {
    add("Hello", () => console.log("hello"));
    add("Start", () => icon.updateAnimation(2));
    add("Stop", () => icon.updateAnimation(1));
    add("Docs_2 & Photos_3: daily 09:30").submenu = new NSMenu();
    icon.createStatusItemWithMenu();
    console.log("launched");
    system.after(1, () => console.log("a second later"));
  }
};
"""


class PanelTest(SessionTest):
    """A session with an agent and a panel that is not yet started."""

    is_dark = True

    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.session = Session(cls.display)
        cls.addClassCleanup(cls.session.close)
        cls.screen = Screen(cls.session)
        cls.panel = Panel(cls.session, cls.is_dark)
        cls.agent = cls.session.start_agent(cls.session.write_bundle(HOST))

    def setUp(self):
        self.screen.leave()

    def see_animation(self, screenshot):
        self.screen.wait_for_picture(pictures.STILL)
        item = self.panel.item()
        seen = []

        def has_seen_three():
            picture = self.screen.picture()
            if picture not in [pictures.STILL, None, *seen[-1:]]:
                seen.append(picture)
            return len(seen) == 3

        item.pick("Start")
        wait_for("three pictures", has_seen_three)
        self.assertEqual(seen, pictures.FRAMES[:3])
        self.screen.keep(screenshot)
        item.pick("Stop")
        self.screen.wait_for_picture(pictures.STILL)


class DarkPanelTest(PanelTest):
    @classmethod
    def setUpClass(cls):
        super().setUpClass()
        cls.panel.start()

    def test_icon_returns_with_the_panel(self):
        self.screen.wait_for_picture(pictures.STILL)
        self.screen.keep("dark-still")
        self.panel.end()
        wait_for("the end of the panel", self.screen.is_empty)
        self.panel.start()
        self.screen.wait_for_picture(pictures.STILL)

    def test_animation(self):
        self.see_animation("dark-animated")

    def test_left_click_opens_a_menu_of_the_agent(self):
        self.screen.wait_for_picture(pictures.STILL)
        self.screen.click(1)
        wait_for("the agent's menu", lambda: self.screen.windows_of(self.agent))
        self.screen.wait_for_menu(True)
        self.screen.keep("dark-left-click")
        self.screen.tool("key", "Escape")
        self.screen.wait_for_menu(False)
        self.assertFalse(self.screen.windows_of(self.agent))
        self.assertNotIn("hello", self.agent.said())

    def test_right_click_opens_a_menu_of_the_panel(self):
        self.screen.wait_for_picture(pictures.STILL)
        self.screen.click(3)
        self.screen.wait_for_menu(True)
        self.assertFalse(self.screen.windows_of(self.agent))
        self.screen.keep("dark-right-click")
        self.screen.tool("key", "Down", "Return")
        self.agent.wait_until_said("hello")
        self.screen.wait_for_menu(False)


class LightPanelTest(PanelTest):
    is_dark = False

    def test_icon_comes_with_the_panel(self):
        self.agent.wait_until_said("a second later")
        self.assertTrue(self.screen.is_empty())
        self.panel.start()
        self.screen.wait_for_picture(pictures.STILL)
        self.screen.keep("light-still")
        self.see_animation("light-animated")
        self.screen.click(3)
        self.screen.wait_for_menu(True)
        self.screen.keep("light-right-click")


if __name__ == "__main__":
    unittest.main()
