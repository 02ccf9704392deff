"""The agent on a desktop whose tray is a stand-in, and where parts of a desktop are missing."""

import pathlib
import socket
import unittest

import pictures
from session import Display, SessionTest, wait_for
from statusitem import StatusItem
from watcher import Watcher

# A host with a menu; `%s` fills it.
HOST = """
const icon = new TAV_StatusItemController();
const menu = icon.menu = new NSMenu();
const add = (title, action, to) => (to || menu).addItem(new NSMenuItem(title, action));
application.delegate = {
  applicationDidFinishLaunching() {
    %s
    icon.createStatusItemWithMenu();
    console.log("launched");
  }
};
"""


class WatcherTest(SessionTest):
    """Starts an agent, which has to end well at last unless the test ended it."""

    def tearDown(self):
        if self.agent.process.poll() is None:
            self.assertEqual(self.agent.end(), 0, self.agent.said())

    def start(self, script="", session=None):
        """An agent that has been launched."""
        self.session = session or self.new_session()
        self.agent = self.session.start_agent(self.session.write_bundle(HOST % script))
        self.agent.wait_until_said("launched")

    def wait_for_item(self, watcher):
        owner = wait_for("the item", lambda: watcher.items and watcher.items[-1])
        return StatusItem(self.session.connect(), owner)

    def start_with_item(self, script):
        session = self.new_session()
        self.watcher = Watcher(session)
        self.start(script, session)
        return self.wait_for_item(self.watcher)


class AppearanceTest(WatcherTest):
    def test_item_tells_what_it_is(self):
        item = self.start_with_item("")
        properties = {name: item.property(name) for name in ["Id", "Title", "Status", "ToolTip"]}
        self.assertEqual(properties, {"Id": "KVScheduler", "Title": "KVScheduler",
                                      "Status": "Active",
                                      "ToolTip": ("", [], "KVScheduler", "")})
        shown = {picture.size: pictures.name_of(picture) for picture in item.pictures()}
        self.assertEqual(shown, {(size, size): pictures.STILL for size in [16, 22, 24, 32, 48, 64]})

    def test_watcher_that_comes_late_and_returns(self):
        self.start('add("Here"); system.after(1, () => console.log("a second later"));')
        self.agent.wait_until_said("a second later")
        for _ in range(2):
            watcher = Watcher(self.session)
            item = self.wait_for_item(watcher)
            self.assertEqual(item.menu().outline(), ["Here"])
            watcher.close()

    def test_released_item_leaves_the_tray(self):
        item = self.start_with_item('add("Release", () => icon.releaseStatusItem());'
                                    'add("Anew", () => icon.createStatusItemWithMenu());')
        item.pick("Release")
        wait_for("the item's end", lambda: not self.watcher.items)
        self.assertFalse(item.bus.name_has_owner(item.owner))

    def test_animation(self):
        item = self.start_with_item("""
          add("Start", () => icon.updateAnimation(2));
          add("Stop", () => {
            icon.updateAnimation(1);
            system.after(1.2, () => console.log("a step later"));
          });
        """)

        def announcements():
            return item.signals_named("NewIcon")

        item.pick("Start")
        moments, names = [], []
        while pictures.FRAMES[2] not in names and len(names) < 9:
            wait_for("the next picture", lambda: len(announcements()) > len(moments))
            moments.append(announcements()[len(moments)])
            names.append(self.name_shown(item))
        # The picture of the start is shown again by the first step.
        self.assertEqual(names[-4:], ["kvuA1", "kvuA1", "kvuA2", "kvuA3"], names)
        self.assertGreater(moments[-1] - moments[-4], 2.5)
        self.assertLess(moments[-1] - moments[-4], 4.5)
        item.pick("Stop")
        self.assertEqual(self.name_shown(item), pictures.STILL)
        wait_for("its announcement", lambda: len(announcements()) > len(moments))
        self.agent.wait_until_said("a step later")
        self.assertEqual(self.name_shown(item), pictures.STILL)

    def name_shown(self, item):
        names = {pictures.name_of(picture) for picture in item.pictures()}
        self.assertEqual(len(names), 1, "its sizes show different pictures")
        return names.pop()


class MenuTest(WatcherTest):
    def test_titles_are_read_as_they_were_written(self):
        titles = ["Docs & Co", "&", "&&", "&x & y && z", "end&", "daily 09:30",
                  "a_b", "a_b & c_d & e", "x_&_y", "__a__&", "_", "end_", "日本_&", "a & b_c & d"]
        item = self.start_with_item("for (const title of %r) add(title);" % titles)
        menu = item.menu()
        # Where Qt would make a mark of an "&", it is shown by the wide sign.
        self.assertEqual(menu.outline(), titles[:-1] + ["a ＆ b_c & d"])
        # GTK shows no "_" in a label that has a mark too.
        self.assertEqual([line.text for line in menu.lines if "_" in line.text and line.has_mark],
                         [])

    def test_changes_reach_the_tray_and_picks_the_host(self):
        item = self.start_with_item("""
          const steps = [
            () => add("Added", one => menu.removeItem(one)),
            () => { first.title = "Renamed"; },
            () => { first.enabled = false; },
            () => { first.submenu = new NSMenu(); add("Inner", picked, first.submenu); },
            () => menu.insertItem(NSMenuItem.separatorItem(), 1),
            () => menu.removeItem(menu.items[1]),
            () => { first.submenu = null; first.enabled = true; },
            () => menu.insertItem(first, 9),
          ];
          const picked = one => {
            one.state = one.state ? 0 : 1;
            console.log("picked " + one.title);
          };
          const first = add("First", picked);
          add("Step", () => steps.shift()());
        """)
        item.pick("First")
        self.agent.wait_until_said("picked First")
        self.assertEqual(item.menu().outline(), ["[x] First", "Step"])
        for picked, expected in [
                ("First", ["First", "Step"]),
                ("Step", ["First", "Step", "Added"]),
                ("Step", ["Renamed", "Step", "Added"]),
                ("Step", ["(Renamed)", "Step", "Added"]),
                ("Step", ["(Renamed)", ["Inner"], "Step", "Added"]),
                ("Step", ["(Renamed)", ["Inner"], "---", "Step", "Added"]),
                ("Step", ["(Renamed)", ["Inner"], "Step", "Added"]),
                ("Step", ["Renamed", "Step", "Added"]),
                ("Step", ["Step", "Added", "Renamed"]),
                ("Added", ["Step", "Renamed"])]:
            item.pick(picked)
            wait_for(expected, lambda: item.menu().outline() == expected)

    def test_menu_that_stays_the_same_sends_nothing(self):
        item = self.start_with_item("""
          const titles = [];
          for (let index = 0; index < 100; ++index) titles.push("Set " + index);
          for (const title of titles) add(title).submenu = new NSMenu();
          for (const one of menu.items) add("Back up now", () => {}, one.submenu);
          function tick(left) {
            menu.items.forEach((one, index) => { one.title = titles[index]; one.state = 0; });
            const rebuilt = menu.items.slice();
            menu.removeAllItems();
            for (const one of rebuilt) menu.addItem(one);
            const isLast = left === 1;
            system.after(0.2, isLast ? () => { menu.items[7].title = "Changed"; }
                                     : () => tick(left - 1));
          }
          menu.items[0].submenu.items[0].action = () => tick(10);
        """)
        self.assertEqual(len(item.menu().lines), 100)
        item.signals.clear()
        item.pick("Set 0", "Back up now")
        wait_for("the change", lambda: any("Changed" in str(sent) for sent in item.signals))
        line = item.menu().find("Changed")
        self.assertEqual({(name, tuple(changed[0] for changed in arguments[0]))
                          for _, name, arguments in item.signals},
                         {("ItemsPropertiesUpdated", (line.id,))})


class MissingPartsTest(WatcherTest):
    def maps(self):
        return pathlib.Path(f"/proc/{self.agent.process.pid}/maps").read_text()

    def test_no_display_loads_no_widgets(self):
        self.start(session=self.new_session(display=None))
        self.assertNotIn("libQt6Widgets", self.maps())
        self.assertNotIn("libkv_desktop", self.maps())

    def test_display_that_refuses(self):
        for platform in [None, "xcb", "nonsense"]:
            session = self.new_session()
            session.environment["DISPLAY"] = ":nonexistent"
            if platform is not None:
                session.environment["QT_QPA_PLATFORM"] = platform
            self.start('system.after(0.2, () => console.log("runs on with " + '
                       'system.environment("QT_QPA_PLATFORM")));', session)
            self.agent.wait_until_said(f"runs on with {platform or 'undefined'}")
            self.agent.wait_until_said("there will be no status icon: the display cannot be used")

    def test_no_bus(self):
        self.start('system.after(0.2, () => console.log("runs on"));',
                   self.new_session(has_bus=False))
        self.assertIn("libQt6Widgets", self.maps())
        self.agent.wait_until_said("runs on")

    def test_bus_that_never_answers(self):
        session = self.new_session(has_bus=False)
        with socket.socket(socket.AF_UNIX) as bus:
            bus.bind(str(session.root / "bus"))
            bus.listen()
            session.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={session.root}/bus"
            self.start('system.after(0.2, () => console.log("runs on"));', session)
            self.agent.wait_until_said("runs on")
            self.assertEqual(self.agent.end(), 0)

    def test_bus_that_ends(self):
        self.start_with_item("function beat() { console.log('beat'); system.after(0.1, beat); }"
                             "beat();")
        self.session.bus_daemon.end()
        self.agent.wait_until_said("beat", self.agent.said().count("beat") + 3)

    def test_display_that_ends_is_told_in_the_log(self):
        display = Display()
        self.addCleanup(display.close)
        session = self.new_session(display)
        watcher = Watcher(session)
        self.start("DDLog.addLogger(new DDFileLogger());", session)
        self.wait_for_item(watcher)
        display.server.end()
        self.assertGreaterEqual(self.agent.wait_for_end(), 0, "ended by a signal")
        [log] = (session.root / "home/Library/Logs/KVScheduler").iterdir()
        self.assertIn("the display has gone", log.read_text())


if __name__ == "__main__":
    unittest.main()
