"""A status notifier item and its menu, as a tray sees them on the bus."""

import time

from gi.repository import Gio, GLib
from PIL import Image

ITEM = "org.kde.StatusNotifierItem"
MENU = "com.canonical.dbusmenu"


class Line:
    """One line of a menu, as a client of it has to read it."""

    def __init__(self, node):
        self.id, properties, children = node
        self.is_separator = properties.get("type") == "separator"
        # "__" stands for "_", and "_" alone marks the key of the next character.
        parts = properties.get("label", "").split("__")
        self.text = "_".join(part.replace("_", "") for part in parts)
        self.has_mark = any("_" in part for part in parts)
        self.is_enabled = properties.get("enabled", True)
        self.is_checked = (properties.get("toggle-type") == "checkmark" and
                           properties.get("toggle-state") == 1)
        self.lines = [Line(child) for child in children]

    def find(self, text):
        return next(line for line in self.lines if line.text == text)

    def outline(self):
        """Texts, with a nested list after a line that has lines of its own.

        A checked line is "[x] text", a disabled one "(text)"."""
        outline = []
        for line in self.lines:
            text = ("[x] " if line.is_checked else "") + line.text
            text = text if line.is_enabled else f"({text})"
            outline.append("---" if line.is_separator else text)
            if line.lines:
                outline.append(line.outline())
        return outline


class StatusItem:
    """The item of the owner of a bus name; notes the signals that it sends from now on."""

    def __init__(self, bus, owner):
        self.bus = bus
        self.owner = owner
        self.signals = []  # (moment, name, arguments)
        bus.connection.signal_subscribe(owner, None, None, None, None, Gio.DBusSignalFlags.NONE,
                                        self.signalled)

    def signalled(self, connection, sender, path, interface, signal, arguments):
        if interface in (ITEM, MENU):
            self.signals.append((time.monotonic(), signal, arguments.unpack()))

    def signals_named(self, name):
        """The moments of all signals of that name."""
        return [moment for moment, signal, _ in self.signals if signal == name]

    def property(self, name):
        return self.bus.call(self.owner, "/StatusNotifierItem",
                             "org.freedesktop.DBus.Properties.Get",
                             GLib.Variant("s", ITEM), GLib.Variant("s", name))[0]

    def pictures(self):
        """The icon in all sizes that it comes in."""
        pictures = []
        for width, height, pixels in self.property("IconPixmap"):
            alpha, *colours = Image.frombytes("CMYK", (width, height), bytes(pixels)).split()
            pictures.append(Image.merge("RGBA", (*colours, alpha)))
        return pictures

    def menu(self):
        answer = self.bus.call(self.owner, self.property("Menu"), MENU + ".GetLayout",
                               GLib.Variant("i", 0), GLib.Variant("i", -1),
                               GLib.Variant("as", []))
        return Line(answer[1])

    def pick(self, *texts):
        """The line of the last text, in the menus of those before it."""
        line = self.menu()
        for text in texts:
            line = line.find(text)
        self.bus.call(self.owner, self.property("Menu"), MENU + ".Event",
                      GLib.Variant("i", line.id), GLib.Variant("s", "clicked"),
                      GLib.Variant("v", GLib.Variant("s", "")), GLib.Variant("u", 0))
