"""A stand-in for the part of a desktop that keeps the list of status notifier items."""

from gi.repository import Gio, GLib

NAME = "org.kde.StatusNotifierWatcher"
PATH = "/StatusNotifierWatcher"
INTERFACE = """
<node><interface name="org.kde.StatusNotifierWatcher">
  <method name="RegisterStatusNotifierItem"><arg type="s" direction="in"/></method>
  <method name="RegisterStatusNotifierHost"><arg type="s" direction="in"/></method>
  <property name="RegisteredStatusNotifierItems" type="as" access="read"/>
  <property name="IsStatusNotifierHostRegistered" type="b" access="read"/>
  <property name="ProtocolVersion" type="i" access="read"/>
  <signal name="StatusNotifierItemRegistered"><arg type="s"/></signal>
  <signal name="StatusNotifierItemUnregistered"><arg type="s"/></signal>
  <signal name="StatusNotifierHostRegistered"/>
</interface></node>
"""


class Watcher:
    """Owns the watcher's name, on a connection of its own, until it is closed."""

    def __init__(self, session):
        self.items = []  # the unique names of their owners
        self.bus = session.connect()
        connection = self.bus.connection
        connection.register_object(PATH, Gio.DBusNodeInfo.new_for_xml(INTERFACE).interfaces[0],
                                   self.called, self.get_property, None)
        connection.signal_subscribe(
            "org.freedesktop.DBus", "org.freedesktop.DBus", "NameOwnerChanged", None, None,
            Gio.DBusSignalFlags.NONE, self.owner_changed)
        self.bus.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                      "org.freedesktop.DBus.RequestName", GLib.Variant("s", NAME),
                      GLib.Variant("u", 0))

    def called(self, connection, sender, path, interface, method, arguments, invocation):
        if method == "RegisterStatusNotifierItem":
            self.items.append(sender)
        invocation.return_value(None)

    def get_property(self, connection, sender, path, interface, name):
        return {"RegisteredStatusNotifierItems": GLib.Variant("as", self.items),
                "IsStatusNotifierHostRegistered": GLib.Variant("b", True),
                "ProtocolVersion": GLib.Variant("i", 0)}[name]

    def owner_changed(self, connection, sender, path, interface, signal, arguments):
        name, _, new_owner = arguments.unpack()
        if name in self.items and not new_owner:
            self.items.remove(name)

    def close(self):
        self.bus.close()
