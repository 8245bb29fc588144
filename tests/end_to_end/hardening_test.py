"""What the built files must carry so that a fault in them is hard to use for an attack."""

import os
import subprocess
import unittest
from pathlib import Path

BUILD = Path(os.environ["QUILLMARK_BUILD_DIR"])
# What users run and load. Each comes from our own code, so each must be built with all of it.
PROGRAMS = [BUILD / "host/cli/quillmark-export", BUILD / "host/desktop/quillmark"]
MODULES = [BUILD / "host/cli/quillmark-export.so", BUILD / "Quillmark.bundle/Quillmark.so"]


def readelf(option: str, file: Path) -> str:
    return subprocess.run(["readelf", "--wide", option, file], check=True, capture_output=True, text=True).stdout


class Hardening(unittest.TestCase):
    def test_programs_are_position_independent(self):
        for file in PROGRAMS:
            self.assertIn("DYN (Position-Independent Executable file)", readelf("-h", file), file)

    def test_relocations_are_read_only_before_the_first_call(self):
        for file in PROGRAMS + MODULES:
            self.assertIn("GNU_RELRO", readelf("-l", file), file)
            self.assertRegex(readelf("-d", file), r"\(FLAGS\)\s+BIND_NOW|\(FLAGS_1\)\s+Flags: .*\bNOW\b", file)

    def test_stacks_are_not_executable(self):
        for file in PROGRAMS + MODULES:
            self.assertRegex(readelf("-l", file), r"GNU_STACK .* RW ", file)

    def test_no_segment_is_writable_and_executable(self):
        for file in PROGRAMS + MODULES:
            self.assertNotRegex(readelf("-l", file), r"LOAD .* RWE ", file)

    def test_stack_frames_carry_a_guard(self):
        for file in PROGRAMS + MODULES:
            self.assertIn("__stack_chk_fail", readelf("--dyn-syms", file), file)

    def test_copies_of_known_size_are_checked(self):
        for file in MODULES:
            self.assertRegex(readelf("--dyn-syms", file), r"__\w+_chk@", file)


if __name__ == "__main__":
    unittest.main()
