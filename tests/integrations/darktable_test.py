"""darktable's export module with Quillmark as its target storage, in the real darktable, on a screen that nobody sees.

Runs in a session with an open keyring.
"""

import os
import pathlib
import signal
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = pathlib.Path(os.environ["QUILLMARK_SOURCE_DIR"])
BUILD = pathlib.Path(os.environ["QUILLMARK_BUILD_DIR"])
HERE = pathlib.Path(__file__).parent
DEADLINE = 120
# darktable 4.2 locks itself up in about one of ten starts on a busy machine: its own start script, which another thread
# runs, makes widgets just before the main loop begins. No line of Quillmark's has been read by then. It is started again.
START_DEADLINE = 20
STARTS = 8

sys.path.insert(0, str(SOURCE / "tests" / "end_to_end"))
from export_test import PASSWORD, service_data  # noqa: E402
from harness import Sandbox, photograph  # noqa: E402

# A shell would act on them; two pictures have the same name.
PICTURES = {"Smith & Söhne": ["it's $(touch broken) \"one\".jpg", "two.jpg"], "Evening": ["two.jpg"]}


def processes_of(program: pathlib.Path):
    """The ids and arguments of the processes that run the program."""
    for entry in pathlib.Path("/proc").glob("[0-9]*"):
        try:
            if os.path.samefile(entry / "exe", program):
                yield int(entry.name), (entry / "cmdline").read_bytes().decode().split("\0")[1:-1]
        except OSError:
            pass  # It has ended, or is somebody else's.


class Darktable(unittest.TestCase):
    def setUp(self):
        self.here = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="quillmark-darktable-")))
        self.sandbox = self.enterContext(Sandbox(self.here / "state", data=service_data()))
        for film, names in PICTURES.items():
            (self.here / film).mkdir()
            for name in names:
                photograph(self.here / film / name, 300, 200)
        programs = [BUILD / "host" / "cli", BUILD / "host" / "desktop"]
        self.environment = {
            **os.environ,
            "PATH": os.pathsep.join([*map(str, programs), os.environ["PATH"]]),
            "QUILLMARK_SERVICE_CONFIG": str(self.sandbox.config),
            "HOME": str(self.here / "home"),
            **{f"XDG_{name}_HOME": str(self.here / "home" / name) for name in ("CONFIG", "DATA", "STATE", "CACHE")},
            "TMPDIR": str(self.here / "tmp"),
            "TEST_FILM_ROLLS": "\n".join(str(self.here / film) for film in PICTURES),
            "TEST_PICTURES": str(sum(map(len, PICTURES.values()))),
            "QT_QPA_PLATFORM": "offscreen",
            "LANG": "C.UTF-8",
        }
        (self.here / "home").mkdir()
        (self.here / "tmp").mkdir()
        configuration = self.here / "darktable"
        configuration.mkdir()
        (configuration / "luarc").write_text((HERE / "drive.lua").read_text())

    def kept(self) -> list[str]:
        folder = self.here / "home/DATA/Quillmark/darktable"
        return sorted(str(pathlib.Path(*path.relative_to(folder).parts[1:])) for path in folder.rglob("*.jpg"))

    def export_until(self, condition, **settings):
        """Exports all pictures in darktable, and ends it once the condition holds."""
        all_settings = {
            "plugins/lighttable/export/storage_name": "quillmark",
            "plugins/lighttable/export/format_name": "jpeg",
            "write_sidecar_files": "never",
            # Its own passwords are no part of this, and must not keep it waiting for the keyring.
            "plugins/pwstorage/pwstorage_backend": "none",
            **{f"lua/quillmark/{name}": value for name, value in settings.items()},
        }
        command = ["xvfb-run", "--auto-servernum", "darktable", "--disable-opencl", "--library", ":memory:",
                   "--configdir", self.here / "darktable", "--cachedir", self.here / "cache", "-d", "lua",
                   *(word for name, value in all_settings.items() for word in ("--conf", f"{name}={value}"))]
        for start in range(1, STARTS + 1):
            log = self.here / f"log-{start}"
            with log.open("w") as out:
                process = subprocess.Popen(command, stdout=out, stderr=out, env=self.environment, start_new_session=True,
                                           cwd=self.here)
            try:
                if not self.wait(process, lambda: "drive: loaded" in log.read_text(), START_DEADLINE) and start < STARTS:
                    continue
                self.assertTrue(self.wait(process, condition, DEADLINE), f"status {process.returncode}\n{log.read_text()}")
                return
            finally:
                self.end(process)

    @staticmethod
    def wait(process, condition, seconds: float) -> bool:
        """Whether the condition comes to hold while the process runs."""
        deadline = time.monotonic() + seconds
        while not condition():
            if process.poll() is not None or time.monotonic() > deadline:
                return False
            time.sleep(0.1)
        return True

    def end(self, process):
        """Ends the screen and all that runs on it: a darktable that has locked itself up only gives way to SIGKILL, and
        would keep its lock on the folder of its settings."""
        for number in (signal.SIGTERM, signal.SIGKILL):
            deadline = time.monotonic() + 5
            try:
                os.killpg(process.pid, number)
                while time.monotonic() < deadline:
                    process.poll()
                    os.killpg(process.pid, 0)
                    time.sleep(0.05)
            except ProcessLookupError:
                return
        self.fail("processes of darktable's are left")

    def test_sends_pictures_at_once_and_keeps_nothing(self):
        subprocess.run([BUILD / "host/cli/quillmark-export", "--user", "ann", "--password-file", "-", "--remember", "--list"],
                       input=PASSWORD + "\n", text=True, env=self.environment, check=True, stdout=subprocess.DEVNULL)
        folder = self.here / "home/DATA/Quillmark/darktable"
        self.export_until(lambda: len(self.sandbox.photographs()) == 3 and not list(folder.iterdir()),
                          way="send at once", account="ann", event="Smith Wedding")
        arrived = sorted((entry["category"], entry["name"]) for entry in self.sandbox.photographs())
        self.assertEqual(arrived, [("Evening", "two-2.jpg"), ("Smith & Söhne", PICTURES["Smith & Söhne"][0]),
                                   ("Smith & Söhne", "two.jpg")])
        self.assertFalse(list(self.here.rglob("broken")))

    def test_keeps_pictures_that_could_not_be_sent_for_a_further_try(self):
        def complained():
            # No password is remembered, and nobody can be asked for one.
            logs = (self.here / "home/DATA/Quillmark/darktable").glob("*/quillmark-export.log")
            return any("quillmark-export: " in log.read_text() for log in logs)

        self.export_until(complained, way="send at once", account="ann", event="Smith Wedding", category="Party")
        self.assertEqual(len(self.kept()), 3)
        self.assertEqual(self.sandbox.photographs(), [])

    def test_shows_pictures_on_the_light_table(self):
        program = BUILD / "host/desktop/quillmark"

        def shown():
            return next(((process, arguments) for process, arguments in processes_of(program)
                         if any(str(self.here) in argument for argument in arguments)), None)

        self.export_until(shown, way="show in Quillmark")
        process, arguments = shown()
        try:
            self.assertEqual(len(arguments), 1)
            option, list_path = arguments[0].split("=", 1)
            self.assertEqual(option, "--files0-from")
            listed = pathlib.Path(list_path).read_bytes().decode().split("\0")[:-1]
            self.assertEqual(sorted("/".join(path.split("/")[-2:]) for path in listed), self.kept())
            self.assertEqual(len(self.kept()), 3)
        finally:
            os.kill(process, signal.SIGTERM)


if __name__ == "__main__":
    unittest.main()
