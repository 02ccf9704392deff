"""Desktop sessions of the tests' own: a display, a session bus, a home, and programs in them.

Nothing here sees the session of the user who runs the tests, and nothing outlives the test: the
programs are ended by their ids, and the kernel ends them should the test itself be killed.
"""

import ctypes
import os
import pathlib
import shutil
import signal
import subprocess
import tempfile
import time
import unittest

from gi.repository import Gio, GLib

PROGRAMS = pathlib.Path(os.environ["KV_PROGRAMS"])
RESOURCES = pathlib.Path(os.environ["KV_RESOURCES"])
# How long to wait for what has to happen; sanitizers make programs slow.
PATIENCE_SECONDS = float(os.environ.get("KV_PATIENCE", "15"))
POLL_MILLISECONDS = 20

# What a program leaves behind becomes a child of the test, which can then end it.
PR_SET_CHILD_SUBREAPER = 36
ctypes.CDLL(None).prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0)


def wait_for(what, condition, seconds=PATIENCE_SECONDS):
    """Serves the buses until `condition` answers something true, which is returned."""
    context = GLib.MainContext.default()
    poll = GLib.timeout_add(POLL_MILLISECONDS, lambda: True)
    deadline = time.monotonic() + seconds
    try:
        while not (answer := condition()):
            if time.monotonic() > deadline:
                said = "\n".join(program.said() for program in Program.running)
                raise AssertionError(f"not seen within {seconds:.0f} s: {what}; said was:\n{said}")
            context.iteration(True)
        return answer
    finally:
        GLib.source_remove(poll)


class Program:
    """A program that was started; its standard error is kept."""

    running = []

    def __init__(self, command, environment, log, **more):
        self.log = log
        with open(log, "ab") as errors:
            self.process = subprocess.Popen(
                ["setpriv", "--pdeathsig", "KILL", "--", *map(str, command)], env=environment,
                stdin=subprocess.DEVNULL, stderr=errors, **more)
        Program.running.append(self)

    def said(self):
        return self.log.read_text(errors="replace")

    def wait_until_said(self, text, count=1):
        def has_said():
            self.check()
            return self.said().count(text) >= count
        wait_for(text, has_said)

    def check(self):
        if self.process.poll() is not None:
            raise AssertionError(f"ended with {self.process.returncode}:\n{self.said()}")

    def wait_for_end(self):
        """Returns the exit status."""
        wait_for(f"end of {self.process.args[4]}", lambda: self.process.poll() is not None)
        return self.process.returncode

    def end(self, by=signal.SIGTERM):
        self.process.send_signal(by)
        return self.wait_for_end()

    def kill(self):
        self.process.kill()
        self.process.wait()
        if self.process.stdout:
            self.process.stdout.close()
        Program.running.remove(self)


def end_adopted():
    """Ends what programs that have ended left behind, such as services that the bus started."""
    own = {program.process.pid for program in Program.running}
    for entry in pathlib.Path("/proc").glob("[0-9]*/stat"):
        try:
            parent = int(entry.read_text().rsplit(")", 1)[1].split()[1])
        except OSError:
            continue  # gone meanwhile
        pid = int(entry.parent.name)
        if parent == os.getpid() and pid not in own:
            os.kill(pid, signal.SIGKILL)
            os.waitpid(pid, 0)


class Display:
    """An X server on a display of its own."""

    def __init__(self, size="640x400"):
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="kv-display-"))
        read_end, write_end = os.pipe()
        self.server = Program(
            ["Xvfb", "-displayfd", str(write_end), "-screen", "0", f"{size}x24",
             "-nolisten", "tcp", "-noreset"],
            {"PATH": os.environ["PATH"]}, self.folder / "errors", pass_fds=[write_end])
        os.close(write_end)
        with os.fdopen(read_end) as answer:
            number = answer.readline().strip()
        if not number:
            raise AssertionError(f"no X server: {self.server.said()}")
        self.name = f":{number}"

    def close(self):
        self.server.kill()
        shutil.rmtree(self.folder)


class Bus:
    """A connection to a session bus whose calls keep serving the test's own objects."""

    def __init__(self, address):
        self.connection = Gio.DBusConnection.new_for_address_sync(
            address, Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT |
            Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)
        self.connection.set_exit_on_close(False)

    def call(self, name, path, member, *arguments):
        """`member` is interface and method; returns the result, unpacked."""
        interface, method = member.rsplit(".", 1)
        answers = []
        self.connection.call(
            name, path, interface, method, GLib.Variant.new_tuple(*arguments), None,
            Gio.DBusCallFlags.NONE, int(PATIENCE_SECONDS * 1000), None,
            lambda connection, result: answers.append(result))
        wait_for(f"answer to {member}", lambda: answers, 2 * PATIENCE_SECONDS)
        return self.connection.call_finish(answers[0]).unpack()

    def name_has_owner(self, name):
        return self.call("org.freedesktop.DBus", "/org/freedesktop/DBus",
                         "org.freedesktop.DBus.NameHasOwner", GLib.Variant("s", name))[0]

    def close(self):
        if not self.connection.is_closed():
            self.connection.close_sync(None)


class Session:
    """A home, and a session bus if wanted. `display` is a Display or None."""

    def __init__(self, display, has_bus=True):
        self.root = pathlib.Path(tempfile.mkdtemp(prefix="kv-session-"))
        self.environment = {
            "PATH": os.environ["PATH"], "LANG": "C.UTF-8", "HOME": str(self.root / "home"),
            # Nothing of the desktop is to start services that no test needs.
            "NO_AT_BRIDGE": "1", "GTK_A11Y": "none", "GIO_USE_VFS": "local",
            "GSETTINGS_BACKEND": "memory"}
        for name in os.environ:
            if name.endswith("SAN_OPTIONS"):
                self.environment[name] = os.environ[name]
        for name in ["CONFIG_HOME", "DATA_HOME", "CACHE_HOME", "STATE_HOME", "RUNTIME_DIR"]:
            self.environment["XDG_" + name] = str(self.root / name)
            (self.root / name).mkdir(mode=0o700)
        (self.root / "home").mkdir()
        if display is not None:
            self.environment["DISPLAY"] = display.name
        self.programs = []
        self.buses = []
        self.bus_daemon = self.start_bus() if has_bus else None

    def start_bus(self):
        daemon = self.start("dbus-daemon", "--session", "--nofork", "--print-address",
                            f"--address=unix:path={self.root}/bus", stdout=subprocess.PIPE)
        address = daemon.process.stdout.readline().decode().strip()
        if not address:
            raise AssertionError(f"no session bus: {daemon.said()}")
        self.environment["DBUS_SESSION_BUS_ADDRESS"] = address
        return daemon

    def connect(self):
        self.buses.append(Bus(self.environment["DBUS_SESSION_BUS_ADDRESS"]))
        return self.buses[-1]

    def start(self, program, *arguments, **more):
        log = self.root / f"errors of {len(self.programs)} {pathlib.Path(program).name}"
        self.programs.append(Program([program, *arguments], self.environment, log, **more))
        return self.programs[-1]

    def write_bundle(self, script):
        """A bundle with the real pictures and one script of its own."""
        bundle = self.root / "bundle"
        (bundle / "Scripts").mkdir(parents=True)
        (bundle / "Scripts/host.js").write_text(script)
        (bundle / "Images").symlink_to(RESOURCES / "Images")
        return bundle

    def start_agent(self, bundle):
        return self.start(PROGRAMS / "KVScheduler", "--bundle", bundle)

    def close(self):
        for bus in self.buses:
            bus.close()
        for program in reversed(self.programs):
            program.kill()
        end_adopted()
        shutil.rmtree(self.root)


class SessionTest(unittest.TestCase):
    """Tests that share a display; each makes its sessions with `new_session`."""

    @classmethod
    def setUpClass(cls):
        cls.display = Display()
        cls.addClassCleanup(cls.display.close)

    def new_session(self, display="shared", has_bus=True):
        session = Session(self.display if display == "shared" else display, has_bus)
        self.addCleanup(session.close)
        return session
