"""The desktop application on a display of its own, used through the desktop's accessibility interface and keyboard."""

import os
import subprocess
import time
from contextlib import contextmanager
from fnmatch import fnmatchcase

import gi

from harness import BUILD, DEADLINE

gi.require_version("Atspi", "2.0")
from gi.repository import Atspi, Gio, GLib  # noqa: E402

QUILLMARK = BUILD / "host" / "desktop" / "quillmark"
BUS_LAUNCHER = "/usr/libexec/at-spi-bus-launcher"
PAUSE = 0.05


def wait_for(what: str, condition):
    """The first true value of `condition`, looked at again and again."""
    deadline = time.monotonic() + DEADLINE
    while True:
        while GLib.MainContext.default().iteration(False):
            pass  # What the bus has told goes to its listeners.
        try:
            if value := condition():
                return value
        except GLib.Error:
            pass  # It has just gone.
        if time.monotonic() > deadline:
            raise AssertionError(f"in vain it was waited for {what}")
        time.sleep(PAUSE)


def accessibility_bus() -> str:
    """The bus's address; an error as long as there is none."""
    session = Gio.bus_get_sync(Gio.BusType.SESSION)
    answer = session.call_sync("org.a11y.Bus", "/org/a11y/bus", "org.a11y.Bus", "GetAddress", None, None,
                               Gio.DBusCallFlags.NONE, -1)
    return answer.unpack()[0]


@contextmanager
def x_server():
    """Without a screen."""
    read, write = os.pipe()
    server = subprocess.Popen(
        ["Xvfb", "-displayfd", str(write), "-screen", "0", "1280x900x24", "-noreset", "-nolisten", "tcp"],
        pass_fds=[write], stderr=subprocess.DEVNULL,
    )
    os.close(write)
    with os.fdopen(read) as numbers:
        os.environ["DISPLAY"] = ":" + numbers.readline().strip()
    try:
        yield
    finally:
        server.terminate()
        server.wait()


@contextmanager
def accessibility():
    """The bus on which applications of the session show themselves to assistive tools."""
    bus = subprocess.Popen([BUS_LAUNCHER, "--launch-immediately"], stderr=subprocess.DEVNULL)
    try:
        wait_for("the accessibility bus", accessibility_bus)
        Atspi.init()
        Atspi.get_desktop(0).set_cache_mask(Atspi.Cache.NONE)
        yield
    finally:
        bus.terminate()
        bus.wait()


@contextmanager
def display():
    with x_server(), accessibility():
        yield


class ScreenReader:
    """What one hears: names and values of progress bars as they change, and notifications as they appear."""

    EVENTS = ("object:property-change:accessible-value", "object:state-changed:showing")

    def __init__(self):
        self.progress: list[tuple[str, float]] = []
        self.notifications: list[str] = []
        self._listener = Atspi.EventListener.new(self._note)

    def __enter__(self):
        for event in self.EVENTS:
            self._listener.register(event)
        return self

    def __exit__(self, *_):
        for event in self.EVENTS:
            self._listener.deregister(event)

    def _note(self, event):
        try:
            role = event.source.get_role()
            if role == Atspi.Role.PROGRESS_BAR and event.type.endswith("value"):
                self.progress.append((event.source.get_name(), Atspi.Value.get_current_value(event.source)))
            elif role == Atspi.Role.NOTIFICATION and event.type.endswith("showing") and event.detail1:
                self.notifications.append(event.source.get_name())
        except GLib.Error:
            pass  # It has just gone.


class Application:
    """A running quillmark, as its user meets it."""

    def __init__(self, environment: dict, *arguments, folder=None, command=(QUILLMARK,), **options):
        """Started in `folder`, from which relative paths count, by `command`, with options of Popen's."""
        self.process = subprocess.Popen(
            [*command, *map(str, arguments)], cwd=folder, start_new_session=True,
            env={**environment, "DISPLAY": os.environ["DISPLAY"], "QT_QPA_PLATFORM": "xcb",
                 "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1", "QT_STYLE_OVERRIDE": "fusion"},
            **{"stderr": subprocess.DEVNULL, **options},
        )

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.kill()

    def kill(self):
        self.process.kill()
        self.process.wait()

    # --- What is on the screen ---

    def _has_started(self, process: int) -> bool:
        try:
            return os.getsid(process) == self.process.pid
        except ProcessLookupError:
            return False

    def _windows(self):
        desktop = Atspi.get_desktop(0)
        for index in range(desktop.get_child_count()):
            program = desktop.get_child_at_index(index)
            if program and self._has_started(program.get_process_id()):
                for window in range(program.get_child_count()):
                    yield program.get_child_at_index(window)

    def _all(self, root):
        if root is None:
            return
        yield root
        for index in range(root.get_child_count()):
            yield from self._all(root.get_child_at_index(index))

    def _find(self, name: str, role):
        """`name` may hold wildcards."""
        for root in list(self._windows()):
            for found in self._all(root):
                is_it = found.get_role() == role and fnmatchcase(found.get_name(), name)
                if is_it and found.get_state_set().contains(Atspi.StateType.SHOWING):
                    return found
        return None

    def _enabled(self, name: str, role):
        found = self._find(name, role)
        return found if found and found.get_state_set().contains(Atspi.StateType.ENABLED) else None

    def find(self, name: str, role=Atspi.Role.PUSH_BUTTON):
        return wait_for(f"{name} ({role.value_nick})", lambda: self._enabled(name, role))

    def texts(self) -> list[str]:
        """Of all labels and notifications."""
        return [found.get_name() for root in list(self._windows()) for found in self._all(root)
                if found.get_role() in (Atspi.Role.LABEL, Atspi.Role.NOTIFICATION)
                and found.get_state_set().contains(Atspi.StateType.SHOWING)]

    def shows(self, text: str) -> bool:
        """Whether one of them begins so."""
        return any(shown.startswith(text) for shown in self.texts())

    def wait_until_shows(self, text: str):
        try:
            wait_for(f'"{text}"', lambda: self.shows(text))
        except AssertionError as error:
            raise AssertionError(f"{error}; there is {self.texts()}") from None

    # --- What its user does ---

    def press(self, name: str, role=Atspi.Role.PUSH_BUTTON):
        Atspi.Action.do_action(self.find(name, role), 0)

    def menu(self, menu: str, item: str):
        """Chooses from a menu of the main window."""
        top = self.find(menu, Atspi.Role.MENU_ITEM)
        for found in self._all(top):
            if fnmatchcase(found.get_name(), item):
                Atspi.Action.do_action(found, 0)
                return
        raise AssertionError(f"{menu} has no {item}")

    def type_into(self, field, text: str):
        Atspi.EditableText.set_text_contents(field, text)

    @staticmethod
    def keys(*keys: str):
        """Presses keys in the window that has the focus."""
        subprocess.run(["xdotool", "key", *keys], check=True)

    def focus_window(self, title: str):
        """What a window manager does with a new window."""
        wait_for(title, lambda: subprocess.run(
            ["xdotool", "search", "--onlyvisible", "--name", f"^{title}", "windowfocus", "--sync"],
            capture_output=True).returncode == 0)
