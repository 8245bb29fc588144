"""What darktable's script hands to Quillmark, in a Lua of its own, with programs that only note what they are told."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import time
import unittest

HERE = pathlib.Path(__file__).parent
DEADLINE = 60
# Together their paths are longer than what the system takes as one argument: 128 KiB.
COUNT = 600
LONG_NAME = "x" * 200
NOTING_PROGRAM = """#!/bin/sh
for argument; do
    printf '%s\\n' "$argument"
    case $argument in --files0-from=*) cp -- "${argument#*=}" "$TEST_FOLDER/list" ;; esac
done >"$TEST_FOLDER/arguments-"
mv "$TEST_FOLDER/arguments-" "$TEST_FOLDER/arguments"
exit "$TEST_STATUS"
"""


class DarktableScript(unittest.TestCase):
    def setUp(self):
        self.here = pathlib.Path(self.enterContext(tempfile.TemporaryDirectory(prefix="quillmark-script-")))
        programs = self.here / "bin"
        programs.mkdir()
        for name in ("quillmark", "quillmark-export"):
            (programs / name).write_text(NOTING_PROGRAM)
            (programs / name).chmod(0o755)

    def hand_over(self, way: str, names: list[str], status: int = 0) -> str:
        """What the script says."""
        exported = self.here / "exported"
        exported.mkdir()
        for name in names:
            (exported / name).write_text("pixels")
        run = subprocess.run(
            ["lua5.4", HERE / "hand_over.lua", way, "/photographs/Smith & Söhne", *(exported / name for name in names)],
            env={**os.environ, "PATH": f"{self.here / 'bin'}:{os.environ['PATH']}", "XDG_DATA_HOME": str(self.here / "data"),
                 "TEST_FOLDER": str(self.here), "TEST_STATUS": str(status)},
            capture_output=True, text=True, check=True, timeout=DEADLINE)
        return run.stdout.splitlines()[-1]

    def listed(self) -> list[str]:
        deadline = time.monotonic() + DEADLINE
        while not (self.here / "arguments").exists():
            self.assertLess(time.monotonic(), deadline, "nothing was handed over")
            time.sleep(0.02)
        return ["/".join(path.split("/")[-2:]) for path in (self.here / "list").read_text().split("\0")[:-1]]

    def test_hands_over_more_pictures_than_a_command_holds(self):
        names = [f"{LONG_NAME}{number}.jpg" for number in range(COUNT)]
        for way in ("send at once", "show in Quillmark"):
            with self.subTest(way):
                said = self.hand_over(way, names)
                self.assertEqual(self.listed(), [f"Smith & Söhne/{name}" for name in names], said)
                self.assertIn(f"{COUNT} pictures are", said)
            (self.here / "exported").rmdir()
            (self.here / "arguments").unlink(missing_ok=True)

    def test_hands_over_names_that_a_shell_or_an_option_could_take_for_theirs(self):
        names = ["it's $(touch broken) \"one\".jpg", "-two.jpg", "three\nlines.jpg"]
        self.hand_over("send at once", names)
        self.assertEqual(self.listed(), [f"Smith & Söhne/{name}" for name in names])
        self.assertFalse(list(self.here.rglob("broken")))

    def test_speaks_of_going_on_where_an_export_has_begun(self):
        self.assertIn("--resume", self.hand_over("send at once", ["a.jpg"], status=1))

    def test_does_not_speak_of_going_on_where_none_has(self):
        for status in (2, 3, 4):
            with self.subTest(status):
                said = self.hand_over("send at once", ["a.jpg"], status=status)
                self.assertNotIn("--resume", said)
                self.assertIn("could not begin", said)
                (self.here / "exported").rmdir()

    def test_claims_nothing_where_quillmark_is_not_installed(self):
        for program in (self.here / "bin").iterdir():
            program.unlink()
        for way, told in (("show in Quillmark", "could not be started"), ("send at once", "could not begin")):
            with self.subTest(way):
                said = self.hand_over(way, ["a.jpg"])
                self.assertIn(told, said)
                self.assertEqual(len(list((self.here / "data").rglob("a.jpg"))), 1)
                (self.here / "exported").rmdir()
                shutil.rmtree(self.here / "data")


if __name__ == "__main__":
    unittest.main()
