"""A file manager on a display, used by its keys, its mouse and the desktop's accessibility interface."""

import os
import signal
import subprocess
import time
from contextlib import contextmanager

from gi.repository import Gio, GLib

from desktop import PAUSE, accessibility_bus

ALL = ("org.a11y.atspi.Registry", "/org/a11y/atspi/accessible/root")
ACCESSIBLE = "org.a11y.atspi.Accessible"
SHOWING = 25  # A bit of the states.
PATIENCE = 5  # Seconds, until what has not come is tried for again.


def soon(condition):
    """The first true value of `condition`; the last of its values when none has come."""
    deadline = time.monotonic() + PATIENCE
    while not (value := condition()) and time.monotonic() < deadline:
        time.sleep(PAUSE)
    return value


class Accessibility:
    """What is on the display, asked for on the bus itself: libatspi locks itself up over what GTK 3 tells meanwhile."""

    def __init__(self):
        self._bus = Gio.DBusConnection.new_for_address_sync(
            accessibility_bus(),
            Gio.DBusConnectionFlags.AUTHENTICATION_CLIENT | Gio.DBusConnectionFlags.MESSAGE_BUS_CONNECTION, None, None)

    def close(self):
        self._bus.close_sync()

    def _call(self, what: tuple[str, str], interface: str, method: str, arguments=None):
        answer = self._bus.call_sync(*what, interface, method, arguments, None, Gio.DBusCallFlags.NONE, PATIENCE * 1000)
        return answer.unpack()[0]

    def _is(self, what: tuple[str, str], name: str) -> bool:
        found = self._call(what, "org.freedesktop.DBus.Properties", "Get", GLib.Variant("(ss)", (ACCESSIBLE, "Name")))
        return found == name and bool(self._call(what, ACCESSIBLE, "GetState")[0] >> SHOWING & 1)

    def find(self, name: str, root=ALL):
        """What shows itself under that name."""
        try:
            if self._is(root, name):
                return root
            for child in self._call(root, ACCESSIBLE, "GetChildren"):
                if found := self.find(name, child):
                    return found
        except GLib.Error:
            pass  # It has just gone.
        return None

    def press(self, what: tuple[str, str]):
        self._call(what, "org.a11y.atspi.Action", "DoAction", GLib.Variant("(i)", (0,)))


class FileManager:
    """Shows a folder. What its user does may be in vain, when the file manager is not ready yet for it."""

    def __init__(self, environment: dict, *command):
        self._process = subprocess.Popen(command, env=environment, start_new_session=True,
                                         stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self._class = command[0]
        self._accessibility = Accessibility()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()
        self._accessibility.close()

    def _windows(self) -> list[str]:
        """The main one, and then the menus."""
        return subprocess.run(["xdotool", "search", "--onlyvisible", "--class", self._class],
                              capture_output=True, text=True).stdout.split()

    def _menu_is_open(self) -> bool:
        return len(self._windows()) > 1

    def do(self, *actions: str):
        """Actions of xdotool in the main window."""
        if windows := soon(self._windows):
            subprocess.run(["xdotool", "windowfocus", windows[0], *actions])

    @contextmanager
    def _menu(self):
        """Of all files."""
        self.do("key", "ctrl+a", "key", "Menu")
        yield soon(self._menu_is_open)
        soon(lambda: not self._menu_is_open() or self.do("key", "Escape"))

    def choose(self, *items: str):
        """Chooses from the menu of all files."""
        with self._menu():
            for item in items:
                if found := soon(lambda: self._accessibility.find(item)):
                    self._accessibility.press(found)

    def choose_by_key(self, key: str):
        """The same, where the accessibility interface does not reach menus."""
        with self._menu() as is_open:
            if is_open:
                self.do("key", key)
