"""./run desktop, from its start to its end. Runs in a session of its own."""

import os
import pathlib
import re
import signal
import subprocess
import unittest
import urllib.error
import urllib.request
from contextlib import suppress

from desktop import Application, Atspi, accessibility, wait_for, x_server
from harness import DEADLINE, SOURCE, folder, photograph

NAMES = ["a.jpg", "b.jpg", "c.jpg"]


class RunDesktop(unittest.TestCase):
    def setUp(self):
        self.enterContext(x_server())
        here = self.enterContext(folder())
        self.temporary = here / "temporary"
        self.temporary.mkdir()
        self.shoot = here / "Smith"
        self.shoot.mkdir()
        for name in NAMES:
            photograph(self.shoot / name, 300, 200)

    def processes(self) -> dict[int, dict[str, str]]:
        """The environments of all that the script has started: they tell it of those that outlive it, too."""
        found = {}
        for process in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                text = os.fsdecode((process / "environ").read_bytes())
            except OSError:
                continue  # It has ended, or is somebody else's.
            environment = dict(entry.split("=", 1) for entry in text.split("\0") if "=" in entry)
            if environment.get("TMPDIR", "").startswith(str(self.temporary)):
                found[int(process.name)] = environment
        return found

    def environment_of_application(self) -> dict[str, str] | None:
        return next((found for found in self.processes().values() if "QUILLMARK_SERVICE_CONFIG" in found), None)

    def end_all(self, script: subprocess.Popen):
        """Of a run that has failed."""
        for process in self.processes():
            with suppress(ProcessLookupError):
                os.kill(process, signal.SIGTERM)
        script.wait(DEADLINE)

    def start(self) -> tuple[Application, str]:
        """And what the script has told."""
        application = self.enterContext(Application(
            {**os.environ, "TMPDIR": str(self.temporary)}, self.shoot, command=[SOURCE / "run", "desktop"],
            stdout=subprocess.PIPE, stderr=None, text=True))
        self.addCleanup(self.end_all, application.process)
        told = ""
        with application.process.stdout as lines:
            while "Gallery: " not in told:
                line = lines.readline()
                self.assertTrue(line, told)
                told += line
        return application, told

    def log_in(self, application: Application, user: str, password: str):
        application.menu("Edit", "Select All")
        application.press("Export to Quillmark*")
        application.focus_window("Export to Quillmark")
        application.type_into(application.find("User*", Atspi.Role.TEXT), user)
        application.type_into(application.find("Password*", Atspi.Role.PASSWORD_TEXT), password)
        application.press("Login")
        application.find("Event*", Atspi.Role.COMBO_BOX)

    def test_application_works_with_the_sandbox_and_nothing_is_left_of_either(self):
        application, told = self.start()
        environment = wait_for("the application", self.environment_of_application)
        # Its session bus is its own.
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = environment["DBUS_SESSION_BUS_ADDRESS"]
        with accessibility():
            application.wait_until_shows(f"{len(NAMES)} photographs")
            for name in NAMES:
                application.find(f"{name}*", Atspi.Role.LIST_ITEM)
            self.log_in(application, *re.search("Log in as (.+) with the password (.+),", told).groups())
            gallery = re.search("Gallery: (.+)", told)[1]
            urllib.request.urlopen(gallery).close()
            application.keys("Escape")
            application.focus_window("Smith")
            application.keys("ctrl+q")
            self.assertEqual(application.process.wait(DEADLINE), 0)
        self.assertEqual(self.processes(), {})
        self.assertEqual(list(self.temporary.iterdir()), [])
        self.assertFalse(pathlib.Path(environment["HOME"]).exists())
        with self.assertRaises(urllib.error.URLError):
            urllib.request.urlopen(gallery)


if __name__ == "__main__":
    unittest.main()
