"""A real panel whose only plugin is the tray, on a display that can be looked at and clicked."""

import os
import pathlib
import subprocess

from gi.repository import GLib
from PIL import ImageGrab

import pictures
from session import wait_for
from statusitem import StatusItem

HEIGHT = 30
CHANNEL = """<?xml version="1.0" encoding="UTF-8"?>
<channel name="xfce4-panel" version="1.0">
  <property name="configver" type="int" value="2"/>
  <property name="panels" type="array">
    <value type="int" value="1"/>
    <property name="dark-mode" type="bool" value="{is_dark}"/>
    <property name="panel-1" type="empty">
      <property name="position" type="string" value="p=6;x=0;y=0"/>
      <property name="length" type="uint" value="100"/>
      <property name="position-locked" type="bool" value="true"/>
      <property name="size" type="uint" value="{height}"/>
      <property name="plugin-ids" type="array"><value type="int" value="1"/></property>
    </property>
  </property>
  <property name="plugins" type="empty">
    <property name="plugin-1" type="string" value="systray">
      <property name="icon-size" type="int" value="24"/>
    </property>
  </property>
</channel>
"""


class Panel:
    """The panel of a session, at the top of its display, to be started and ended."""

    def __init__(self, session, is_dark):
        self.session = session
        self.program = None
        channels = pathlib.Path(session.environment["XDG_CONFIG_HOME"],
                                "xfce4/xfconf/xfce-perchannel-xml")
        channels.mkdir(parents=True)
        (channels / "xfce4-panel.xml").write_text(
            CHANNEL.format(is_dark=str(is_dark).lower(), height=HEIGHT))

    def start(self):
        self.program = self.session.start("xfce4-panel", "--disable-wm-check",
                                          "--sm-client-disable")

    def end(self):
        self.program.end()

    def item(self):
        """The one item that the panel's tray has."""
        bus = self.session.connect()
        items, = bus.call("org.kde.StatusNotifierWatcher", "/StatusNotifierWatcher",
                          "org.freedesktop.DBus.Properties.Get",
                          GLib.Variant("s", "org.kde.StatusNotifierWatcher"),
                          GLib.Variant("s", "RegisteredStatusNotifierItems"))
        return StatusItem(bus, items[0].partition("/")[0])


class Screen:
    """What a session's display shows, and its pointer and keyboard."""

    def __init__(self, session):
        self.environment = session.environment

    def grab(self):
        return ImageGrab.grab(xdisplay=self.environment["DISPLAY"])

    def keep(self, name):
        """Writes a screenshot for people to look at."""
        folder = pathlib.Path(os.environ["KV_SCREENSHOTS"])
        folder.mkdir(parents=True, exist_ok=True)
        self.grab().save(folder / f"{name}.png")

    def is_empty(self, top=0):
        """Whether nothing is shown from that row on."""
        screen = self.grab()
        return screen.crop((0, top, *screen.size)).getbbox() is None

    def has_menu(self):
        return not self.is_empty(HEIGHT + 2)  # the panel has a border

    def picture(self):
        """The name of the one picture in the panel."""
        screen = self.grab()
        return pictures.name_on_screen(screen.crop((0, 0, screen.width, HEIGHT)))

    def wait_for_picture(self, name):
        wait_for(f"{name} in the panel", lambda: self.picture() == name)

    def wait_for_menu(self, is_open):
        wait_for("a menu" if is_open else "no menu", lambda: self.has_menu() == is_open)

    def tool(self, *arguments):
        return subprocess.run(["xdotool", *map(str, arguments)], env=self.environment,
                              stdout=subprocess.PIPE, check=False, text=True).stdout

    def click(self, button):
        """On the icon."""
        self.tool("mousemove", HEIGHT // 2, HEIGHT // 2, "click", button)

    def leave(self):
        """Moves the pointer away from the icon, which has another ground below the pointer."""
        self.tool("mousemove", 10 * HEIGHT, 10 * HEIGHT)

    def windows_of(self, program):
        return self.tool("search", "--onlyvisible", "--pid", program.process.pid).split()
