"""What file managers offer for photographs, in those that Debian has, on a display that nobody sees.

Runs in a session whose bus starts nothing by itself.
"""

import os
import pathlib
import shutil
import stat
import subprocess
import sys
import tempfile
import time
import unittest

SOURCE = pathlib.Path(os.environ["QUILLMARK_SOURCE_DIR"])
ENTRIES = SOURCE / "integrations" / "file-managers"
KINDS = ["image/jpeg", "image/png", "image/tiff", "image/webp", "image/heic", "image/heif"]
DEADLINE = 120
# A shell, or a file manager's own way to fill in names, would act on them.
NAMES = ["-ü.jpg", "100%F.jpg", "it's \"one\".jpg", "two  $(touch broken) & $HOME\\.jpg"]
# In Quillmark's stead. Scripts are also offered, and called, while nothing is selected yet.
RECORDER = """#!/bin/sh
[ "$*" != -- ] || exit
printf "%s\\n" "$@" >"{here}/writing"
mv "{here}/writing" "{here}/called"
"""

sys.path.insert(0, str(SOURCE / "tests" / "end_to_end"))
from desktop import PAUSE, display  # noqa: E402
from file_manager import FileManager  # noqa: E402
from harness import photograph  # noqa: E402


class FileManagers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.enterClassContext(display())

    def setUp(self):
        self.here = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="quillmark-files-")))
        self.config = self.here / "config"
        self.data = self.here / "data"
        self.share = self.here / "share"
        self.environment = {
            **os.environ, "HOME": str(self.here / "home"), "XDG_CACHE_HOME": str(self.here / "cache"), "LANG": "C.UTF-8",
            "XDG_CONFIG_HOME": str(self.config), "XDG_DATA_HOME": str(self.data),
            "XDG_DATA_DIRS": f"{self.share}:/usr/local/share:/usr/share",
            "PATH": f"{self.here}/bin:{os.environ['PATH']}",
        }
        for folder in ("home", "cache", "config", "data"):
            (self.here / folder).mkdir()
        self.called = self.here / "called"
        program = self.here / "bin/quillmark"
        program.parent.mkdir()
        program.write_text(RECORDER.format(here=self.here))
        program.chmod(stat.S_IRWXU)
        self.shoot = self.here / "shoot"
        self.shoot.mkdir()
        for name in NAMES:
            photograph(self.shoot / name, 60, 40)
        self.files = sorted(map(str, self.shoot.iterdir()))
        # Never shown, and so never selected.
        photograph(self.shoot / ".hidden.jpg", 60, 40)

    def install(self, entry: str, folder: pathlib.Path):
        folder.mkdir(parents=True)
        shutil.copy(ENTRIES / entry, folder)

    def start(self, *command) -> FileManager:
        return self.enterContext(FileManager(self.environment, *command, self.shoot))

    def arguments(self, attempt=lambda: None) -> list[str]:
        """What Quillmark was started with, after as many attempts as it takes."""
        deadline = time.monotonic() + DEADLINE
        while not self.called.exists():
            self.assertLess(time.monotonic(), deadline, "Quillmark was not started")
            attempt()
            time.sleep(PAUSE)
        return self.called.read_text().splitlines()

    def assert_hands_over(self, attempt):
        option, *files = self.arguments(attempt)
        self.assertEqual((option, sorted(files)), ("--", self.files))

    def test_open_with_offers_quillmark_for_photographs(self):
        applications = self.data / "applications"
        self.install("../../packaging/quillmark.desktop", applications)
        subprocess.run(["update-desktop-database", applications], check=True)
        for kind in KINDS:
            offered = subprocess.run(["gio", "mime", kind], env=self.environment, capture_output=True, text=True, check=True)
            self.assertIn("quillmark.desktop", offered.stdout, kind)
        subprocess.run(["gio", "launch", applications / "quillmark.desktop", *self.files], env=self.environment, check=True)
        self.assertEqual(self.arguments(), self.files)

    def test_nemo_hands_the_selected_files_over(self):
        self.install("nemo/quillmark.nemo_action", self.share / "nemo/actions")
        nemo = self.start("nemo")
        self.assert_hands_over(lambda: nemo.choose("Send to Quillmark…"))

    def test_dolphin_hands_the_selected_files_over(self):
        self.install("kde/quillmark.desktop", self.share / "kio/servicemenus")
        dolphin = self.start("dolphin")
        # The letter that it underlines in "Send to Quillmark…".
        self.assert_hands_over(lambda: dolphin.choose_by_key("s"))

    def test_nautilus_hands_the_selected_files_over(self):
        self.install("nautilus/Send to Quillmark", self.data / "nautilus/scripts")
        # GTK 4 lets assistive tools press no item of a menu, but a script can have a key.
        (self.config / "nautilus").mkdir()
        (self.config / "nautilus/scripts-accels").write_text("F4 Send to Quillmark\n")
        # OpenGL without a graphics card: drawing the wheel that turns while it loads leaves it no time to load.
        self.environment["GSK_RENDERER"] = "cairo"
        nautilus = self.start("nautilus")
        self.assert_hands_over(lambda: nautilus.do("mousemove", "600", "400", "click", "1", "key", "ctrl+a", "key", "F4"))

    def test_caja_hands_the_selected_files_over(self):
        self.install("nautilus/Send to Quillmark", self.config / "caja/scripts")
        caja = self.start("caja")
        self.assert_hands_over(lambda: caja.choose("Scripts", "Send to Quillmark"))

    def test_thunar_hands_the_selected_files_over(self):
        action = (ENTRIES / "thunar/quillmark.xml").read_text()
        (self.config / "Thunar").mkdir()
        (self.config / "Thunar/uca.xml").write_text(
            f'<?xml version="1.0" encoding="UTF-8"?>\n<actions>\n{action}</actions>\n')
        thunar = self.start("thunar")
        self.assert_hands_over(lambda: thunar.choose("Send to Quillmark…"))

    def test_menus_are_for_the_kinds_that_the_application_opens(self):
        opened = next(line for line in (SOURCE / "packaging/quillmark.desktop").read_text().splitlines()
                      if line.startswith("MimeType=")).split("=")[1]
        for menu in ("kde/quillmark.desktop", "nemo/quillmark.nemo_action"):
            lines = (ENTRIES / menu).read_text().splitlines()
            self.assertIn(opened, [line.split("=", 1)[1] for line in lines if line.lower().startswith("mimetype")], menu)
            self.assertIn("Exec=quillmark -- %F", lines, menu)


if __name__ == "__main__":
    unittest.main()
