"""What file managers offer for photographs, in those of Debian's that run where nobody looks."""

import os
import pathlib
import signal
import stat
import subprocess
import tempfile
import time
import unittest

SOURCE = pathlib.Path(os.environ["QUILLMARK_SOURCE_DIR"])
ENTRIES = SOURCE / "integrations" / "file-managers"
KINDS = ["image/jpeg", "image/png", "image/tiff", "image/webp", "image/heic", "image/heif"]
DEADLINE = 120

# Opens the folder "shoot" in Thunar, selects all, and presses the keys of the action, until something has been called.
THUNAR = """
thunar shoot &
thunar=$!
window=$(xdotool search --sync --onlyvisible --class thunar | tail -n 1)
until [ -e called ]; do
    xdotool windowfocus "$window" key ctrl+a key ctrl+shift+u || true
    sleep 0.5
done
kill $thunar
"""


class FileManagers(unittest.TestCase):
    def setUp(self):
        self.here = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="quillmark-files-")))
        self.config = self.here / "home/.config"
        self.config.mkdir(parents=True)
        self.environment = {
            **os.environ, "HOME": str(self.here / "home"), "XDG_CONFIG_HOME": str(self.config), "LANG": "C.UTF-8",
            "XDG_DATA_HOME": str(self.here / "data"), "XDG_CACHE_HOME": str(self.here / "cache"),
            "PATH": f"{self.here}/bin:{os.environ['PATH']}",
        }
        self.called = self.here / "called"
        program = self.here / "bin/quillmark"
        program.parent.mkdir()
        program.write_text(f'#!/bin/sh\nprintf "%s\\n" "$@" >"{self.here}/writing"\nmv "{self.here}/writing" "{self.called}"\n')
        program.chmod(stat.S_IRWXU)
        self.shoot = self.here / "shoot"
        self.shoot.mkdir()
        for name in ("it's one.jpg", "two $HOME.jpg"):
            (self.shoot / name).write_bytes((SOURCE / "docs/pictures/panel.png").read_bytes())
        self.files = sorted(map(str, self.shoot.iterdir()))

    def arguments(self) -> list[str]:
        deadline = time.monotonic() + DEADLINE
        while not self.called.exists():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.05)
        return self.called.read_text().splitlines()

    def test_open_with_offers_quillmark_for_photographs(self):
        applications = self.here / "data/applications"
        applications.mkdir(parents=True)
        entry = applications / "quillmark.desktop"
        entry.write_bytes((SOURCE / "packaging/quillmark.desktop").read_bytes())
        subprocess.run(["update-desktop-database", applications], check=True)
        for kind in KINDS:
            offered = subprocess.run(["gio", "mime", kind], env=self.environment, capture_output=True, text=True, check=True)
            self.assertIn("quillmark.desktop", offered.stdout, kind)
        subprocess.run(["gio", "launch", entry, *self.files], env=self.environment, check=True)
        self.assertEqual(self.arguments(), self.files)

    def test_thunar_hands_the_selected_files_over(self):
        folder = self.config / "Thunar"
        folder.mkdir()
        action = (ENTRIES / "thunar/quillmark.xml").read_text()
        (folder / "uca.xml").write_text(f'<?xml version="1.0" encoding="UTF-8"?>\n<actions>\n{action}</actions>\n')
        (folder / "accels.scm").write_text(
            '(gtk_accel_path "<Actions>/ThunarActions/uca-action-1795000000000000-1" "<Primary><Shift>u")\n')
        process = subprocess.Popen(["xvfb-run", "--auto-servernum", "dbus-run-session", "--", "sh", "-c", THUNAR], cwd=self.here,
                                   env=self.environment, start_new_session=True,
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        try:
            self.assertEqual(self.arguments(), ["--", *self.files])
        finally:
            os.killpg(process.pid, signal.SIGTERM)
            process.wait(DEADLINE)

    def test_script_of_nautilus_hands_the_selected_files_over(self):
        self.environment["NAUTILUS_SCRIPT_SELECTED_FILE_PATHS"] = "\n".join(self.files) + "\n"
        subprocess.run([ENTRIES / "nautilus/Send to Quillmark"], env=self.environment, check=True)
        self.assertEqual(self.arguments(), ["--", *self.files])

    def test_script_hands_each_file_over_once_where_caja_sets_the_variables_of_both(self):
        for file_manager in ("NAUTILUS", "CAJA"):
            self.environment[f"{file_manager}_SCRIPT_SELECTED_FILE_PATHS"] = "\n".join(self.files) + "\n"
        subprocess.run([ENTRIES / "nautilus/Send to Quillmark"], env=self.environment, check=True)
        self.assertEqual(self.arguments(), ["--", *self.files])

    def test_menus_are_for_the_kinds_that_the_application_opens(self):
        opened = next(line for line in (SOURCE / "packaging/quillmark.desktop").read_text().splitlines()
                      if line.startswith("MimeType=")).split("=")[1]
        for menu in ("kde/quillmark.desktop", "nemo/quillmark.nemo_action"):
            lines = (ENTRIES / menu).read_text().splitlines()
            self.assertIn(opened, [line.split("=", 1)[1] for line in lines if line.lower().startswith("mimetype")], menu)
            self.assertIn("Exec=quillmark -- %F", lines, menu)


if __name__ == "__main__":
    unittest.main()
